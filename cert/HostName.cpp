// SPDX-License-Identifier: BSD-3-Clause
#include "cert/HostName.h"

#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtNetwork/QHostAddress>

#include <algorithm>

namespace vela {

namespace {

constexpr int MAX_NAME = 253;
constexpr std::size_t MAX_LABEL = 63;
constexpr int MAX_IPV6_TEXT = 45;
constexpr int IPV4_SIZE = 4;
constexpr int IPV6_SIZE = 16;
constexpr std::string_view WILDCARD = "*.";

// What the locale or Latin-1 takes for letters and digits does not count.

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

char toLower(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool isHexDigit(char c)
{
    return isDigit(c) || (toLower(c) >= 'a' && toLower(c) <= 'f');
}

bool isLetterOrDigit(char c)
{
    return isDigit(c) || (toLower(c) >= 'a' && toLower(c) <= 'z');
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return toLower(left) == toLower(right); });
}

std::string_view view(const QByteArray& bytes)
{
    return {bytes.constData(), std::size_t(bytes.size())};
}

bool isLabel(std::string_view label)
{
    return !label.empty() && label.size() <= MAX_LABEL
           && std::all_of(label.begin(), label.end(),
                          [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_'; });
}

//! Whether resolvers take a host that ends in \a label for an address, in whatever form.
bool isNumber(std::string_view label)
{
    if (label.size() >= 2 && label[0] == '0' && toLower(label[1]) == 'x')
        return std::all_of(label.begin() + 2, label.end(), isHexDigit);
    return std::all_of(label.begin(), label.end(), isDigit);
}

//! Returns the octets of four numbers without leading zeros; nothing for any other form.
QByteArray ipv4Octets(const QByteArray& text)
{
    constexpr int MAX_TEXT = 15;
    constexpr int MAX_OCTET = 255;
    if (text.size() > MAX_TEXT)
        return {};
    QByteArray octets;
    for (const QByteArray& part : text.split('.')) {
        const int number = part.toInt();
        if (number < 0 || number > MAX_OCTET || part != QByteArray::number(number))
            return {};
        octets.append(char(number));
    }
    return octets.size() == IPV4_SIZE ? octets : QByteArray();
}

bool isZone(const QByteArray& text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](char c) {
        return isLetterOrDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
    });
}

bool isLinkLocal(const QByteArray& octets)
{
    return octets.startsWith('\xFE') && (octets[1] & 0xC0) == 0x80;
}

QByteArray ipv6Octets(const QByteArray& text)
{
    const int percent = text.indexOf('%');
    const QByteArray digits = percent < 0 ? text : text.left(percent);
    // Qt reads more than an address.
    if (digits.size() > MAX_IPV6_TEXT || !std::all_of(digits.begin(), digits.end(), [](char c) {
            return isHexDigit(c) || c == ':' || c == '.';
        })) {
        return {};
    }
    const QHostAddress parsed(QString::fromLatin1(digits));
    if (parsed.protocol() != QAbstractSocket::IPv6Protocol)
        return {};
    const Q_IPV6ADDR address = parsed.toIPv6Address();
    const QByteArray octets(reinterpret_cast<const char*>(address.c), IPV6_SIZE);
    if (percent >= 0 && (!isLinkLocal(octets) || !isZone(text.mid(percent + 1))))
        return {};
    return octets;
}

//! Returns the octets of an address, IPv6 ones with or without brackets; nothing for other texts.
QByteArray addressOctets(const QByteArray& text)
{
    if (text.startsWith('[') && text.endsWith(']'))
        return ipv6Octets(text.mid(1, text.size() - 2));
    return text.contains(':') ? ipv6Octets(text) : ipv4Octets(text);
}

bool isAscii(const QString& text)
{
    constexpr ushort LAST = 0x7F;
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() <= LAST; });
}

QByteArray lowerCase(QByteArray text)
{
    std::transform(text.begin(), text.end(), text.begin(), toLower);
    return text;
}

} // namespace

bool isHostName(std::string_view text)
{
    if (text.size() > std::size_t(MAX_NAME))
        return false;
    std::size_t start = 0;
    for (;;) {
        const std::size_t period = text.find('.', start);
        const std::string_view label = text.substr(start, period - start);
        if (!isLabel(label))
            return false;
        if (period == std::string_view::npos)
            return !isNumber(label);
        start = period + 1;
    }
}

bool isHostPattern(std::string_view text)
{
    if (text.substr(0, WILDCARD.size()) != WILDCARD)
        return isHostName(text);
    const std::string_view parent = text.substr(WILDCARD.size());
    return text.size() <= std::size_t(MAX_NAME) && isHostName(parent)
           && parent.find('.') != std::string_view::npos;
}

bool matchesPattern(const QByteArray& name, std::string_view pattern)
{
    if (pattern.substr(0, WILDCARD.size()) != WILDCARD)
        return equalsIgnoringCase(view(name), pattern);
    const std::string_view parent = pattern.substr(WILDCARD.size());
    const int firstPeriod = name.indexOf('.');
    return firstPeriod >= 0 && parent.find('.') != std::string_view::npos
           && equalsIgnoringCase(view(name).substr(std::size_t(firstPeriod) + 1), parent);
}

HostName readHostName(const QString& text)
{
    HostName host;
    const bool isPlain = isAscii(text);
    // Before any conversion: its time grows faster than the name.
    constexpr int MAX_TEXT = MAX_NAME + 1;
    if (text.size() > MAX_TEXT)
        return host;
    if (isPlain)
        host.address = addressOctets(text.toLatin1());
    if (!host.address.isEmpty())
        return host;
    QByteArray name = isPlain ? text.toLatin1() : QUrl::toAce(text);
    if (name.endsWith('.'))
        name.chop(1);
    if (isHostName(view(name)))
        host.name = lowerCase(name);
    return host;
}

} // namespace vela

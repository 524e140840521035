// SPDX-License-Identifier: BSD-3-Clause
#include "cert/AlternativeNames.h"

#include "cert/HostName.h"
#include "support/OpenSslCompat.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <algorithm>

namespace vela {

namespace {

constexpr std::size_t IPV4_SIZE = 4;
constexpr std::size_t IPV6_SIZE = 16;

std::string_view contentOf(const ASN1_STRING* string)
{
    return {reinterpret_cast<const char*>(string->data), std::size_t(string->length)};
}

//! Whether \a c may stand in a text as it is. The backslash would make escapes ambiguous, the
//! others could make a widget take the text for HTML.
bool isPlain(char c)
{
    return c > ' ' && c <= '~' && c != '\\' && c != '<' && c != '>' && c != '"';
}

void appendEscaped(QString* text, char c)
{
    static const char digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    *text += QLatin1String("\\x");
    *text += QLatin1Char(digits[byte >> 4]);
    *text += QLatin1Char(digits[byte & 0x0F]);
}

QString shownText(std::string_view content)
{
    QString text;
    text.reserve(int(content.size()));
    for (const char c : content) {
        if (isPlain(c))
            text += QLatin1Char(c);
        else
            appendEscaped(&text, c);
    }
    return text;
}

bool isMailAddress(std::string_view text)
{
    const std::size_t at = text.find('@');
    return at != std::string_view::npos && at > 0 && isHostName(text.substr(at + 1))
           && std::all_of(text.begin(), text.end(), isPlain);
}

bool isSchemeCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+'
           || c == '-' || c == '.';
}

bool isUri(std::string_view text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == text.size())
        return false;
    const std::string_view scheme = text.substr(0, colon);
    const bool startsWithLetter = (scheme[0] | 0x20) >= 'a' && (scheme[0] | 0x20) <= 'z';
    return startsWithLetter && std::all_of(scheme.begin(), scheme.end(), isSchemeCharacter)
           && std::all_of(text.begin(), text.end(), isPlain);
}

AlternativeName addressName(std::string_view octets)
{
    AlternativeName name;
    name.kind = AlternativeName::IpAddress;
    if (octets.size() == IPV4_SIZE) {
        quint32 number = 0;
        for (const char octet : octets)
            number = number << 8 | static_cast<unsigned char>(octet);
        name.address.setAddress(number);
    } else if (octets.size() == IPV6_SIZE) {
        name.address.setAddress(reinterpret_cast<const quint8*>(octets.data()));
    } else {
        for (const char octet : octets)
            appendEscaped(&name.text, octet);
        return name;
    }
    name.isValid = true;
    name.text = name.address.toString();
    return name;
}

AlternativeName textName(AlternativeName::Kind kind, std::string_view content,
                         bool (*isOfKind)(std::string_view))
{
    AlternativeName name;
    name.kind = kind;
    name.isValid = isOfKind(content);
    name.text = shownText(content);
    return name;
}

AlternativeName valueOf(const GENERAL_NAME* name)
{
    switch (name->type) {
    case GEN_DNS:
        return textName(AlternativeName::DnsName, contentOf(name->d.dNSName), isHostPattern);
    case GEN_IPADD:
        return addressName(contentOf(name->d.iPAddress));
    case GEN_EMAIL:
        return textName(AlternativeName::Email, contentOf(name->d.rfc822Name), isMailAddress);
    case GEN_URI:
        return textName(AlternativeName::Uri, contentOf(name->d.uniformResourceIdentifier), isUri);
    default:
        return AlternativeName();
    }
}

//! Whether \a name is the name of a service (id-on-dnsSRV), for which engines have no number.
bool isServiceName(const GENERAL_NAME* name)
{
    static const unsigned char encoded[] = {0x06, 0x08, 0x2B, 0x06, 0x01,
                                            0x05, 0x05, 0x07, 0x08, 0x07};
    if (name->type != GEN_OTHERNAME)
        return false;
    // OpenSSL 1.0.2 encodes objects without saying const.
    auto* const object = const_cast<ASN1_OBJECT*>(name->d.otherName->type_id);
    unsigned char found[sizeof encoded] = {};
    if (i2d_ASN1_OBJECT(object, nullptr) != int(sizeof encoded))
        return false;
    unsigned char* cursor = found;
    i2d_ASN1_OBJECT(object, &cursor);
    return std::equal(std::begin(found), std::end(found), std::begin(encoded));
}

} // namespace

AlternativeNames::AlternativeNames(X509* x509)
{
    const int index = X509_get_ext_by_NID(x509, NID_subject_alt_name, -1);
    if (index < 0)
        return;
    const ASN1_OCTET_STRING* const encoded = X509_EXTENSION_get_data(X509_get_ext(x509, index));
    const unsigned char* cursor = encoded->data;
    m_names.reset(d2i_GENERAL_NAMES(nullptr, &cursor, encoded->length));
    m_isMalformed = count() == 0 || cursor != encoded->data + encoded->length
                    || X509_get_ext_by_NID(x509, NID_subject_alt_name, index) >= 0;
    if (m_isMalformed)
        m_names.reset();
}

int AlternativeNames::count() const
{
    return m_names ? sk_GENERAL_NAME_num(m_names.get()) : 0;
}

const GENERAL_NAME* AlternativeNames::at(int index) const
{
    return sk_GENERAL_NAME_value(m_names.get(), index);
}

QVector<AlternativeName> AlternativeNames::values() const
{
    QVector<AlternativeName> values;
    values.reserve(count());
    for (int i = 0; i < count(); ++i)
        values.append(valueOf(at(i)));
    return values;
}

bool AlternativeNames::matchName(const QByteArray& name) const
{
    for (int i = 0; i < count(); ++i) {
        if (at(i)->type == GEN_DNS && matchesPattern(name, contentOf(at(i)->d.dNSName)))
            return true;
    }
    return false;
}

bool AlternativeNames::matchAddress(const QByteArray& octets) const
{
    const std::string_view wanted(octets.constData(), std::size_t(octets.size()));
    for (int i = 0; i < count(); ++i) {
        if (at(i)->type == GEN_IPADD && contentOf(at(i)->d.iPAddress) == wanted)
            return true;
    }
    return false;
}

bool AlternativeNames::nameHosts() const
{
    for (int i = 0; i < count(); ++i) {
        const GENERAL_NAME* const name = at(i);
        if (name->type == GEN_DNS || name->type == GEN_URI || isServiceName(name))
            return true;
    }
    return false;
}

} // namespace vela

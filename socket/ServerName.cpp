// SPDX-License-Identifier: BSD-3-Clause
#include "socket/ServerName.h"

#include <QtCore/QList>
#include <QtCore/QUrl>

#include <algorithm>
#include <cstring>

namespace vela {

namespace {

constexpr int LONGEST_NAME = 253;
constexpr int LONGEST_LABEL = 63;
constexpr int NAME_OFFSET = 5; // Behind the list's length, and type and length of its one entry.
const char DIGITS[] = "0123456789";
const char HEXADECIMAL_DIGITS[] = "0123456789abcdef";

bool isAscii(const QString& text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
}

bool consistsOf(const QByteArray& text, const char* characters)
{
    return std::all_of(text.cbegin(), text.cend(),
                       [characters](char c) { return c != 0 && std::strchr(characters, c); });
}

bool isLabel(const QByteArray& label)
{
    // The underscore is against the rules, but there are such hosts, and they can be reached.
    return !label.isEmpty() && label.size() <= LONGEST_LABEL && !label.startsWith('-')
           && !label.endsWith('-') && consistsOf(label, "abcdefghijklmnopqrstuvwxyz0123456789-_");
}

//! Resolvers take what ends so for an address, in one of its older spellings if need be.
bool isNumber(const QByteArray& label)
{
    return consistsOf(label, DIGITS)
           || (label.startsWith("0x") && consistsOf(label.mid(2), HEXADECIMAL_DIGITS));
}

bool isHostName(const QByteArray& name)
{
    if (name.size() > LONGEST_NAME)
        return false;
    const QList<QByteArray> labels = name.split('.');
    return std::all_of(labels.cbegin(), labels.cend(), isLabel) && !isNumber(labels.last());
}

//! Returns \a name without the dot at the end that stands for the root; empty for no host name.
QByteArray checked(QByteArray name)
{
    if (name.endsWith('.'))
        name.chop(1);
    return isHostName(name) ? name : QByteArray();
}

int readLength(const unsigned char* octets)
{
    return octets[0] << 8 | octets[1];
}

//! Returns the name in an extension of \a size octets, which the engine is still to check.
QByteArray nameIn(const unsigned char* extension, int size)
{
    const int nameSize = size - NAME_OFFSET;
    if (nameSize < 0 || readLength(extension) != size - 2
        || extension[2] != TLSEXT_NAMETYPE_host_name || readLength(extension + 3) != nameSize) {
        return QByteArray();
    }
    const char* const name = reinterpret_cast<const char*>(extension) + NAME_OFFSET;
    return QByteArray(name, nameSize);
}

} // namespace

QByteArray toServerName(const QString& name)
{
    return checked(isAscii(name) ? name.toLatin1().toLower() : QUrl::toAce(name));
}

bool ServerName::begin(SSL* ssl, const QByteArray& name)
{
    m_name = name;
    m_settled = false;
    // The engine's own answer would be the name of the session where a client resumes one, which
    // may have been made under another name.
    SSL_set_tlsext_debug_callback(ssl, extensionCame);
    SSL_set_tlsext_debug_arg(ssl, this);
    return name.isEmpty() || SSL_set_tlsext_host_name(ssl, m_name.data()) == 1;
}

void ServerName::clear()
{
    m_name.clear();
    m_settled = false;
}

void ServerName::extensionCame(SSL* ssl, int, int type, ExtensionOctet* data, int size,
                               void* serverName)
{
    auto* const self = static_cast<ServerName*>(serverName);
    if (type != TLSEXT_TYPE_server_name || self->m_settled || !SSL_is_server(ssl))
        return;
    // Nobody is to see as a name what a client could never be asked to connect to.
    self->m_name = checked(nameIn(data, size).toLower());
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/ServerName.h"

#include "cert/HostName.h"

namespace vela {

namespace {

constexpr int NAME_OFFSET = 5; // Behind the list's length, and type and length of its one entry.

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

//! Returns \a name, as a client has sent it, in the form in which it is told; empty for no host.
QByteArray checked(QByteArray name)
{
    if (name.endsWith('.'))
        name.chop(1);
    return isHostName({name.constData(), std::size_t(name.size())}) ? name.toLower() : QByteArray();
}

} // namespace

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
    self->m_name = checked(nameIn(data, size));
}

} // namespace vela

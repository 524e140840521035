// SPDX-License-Identifier: BSD-3-Clause
// The TLS settings of an SslSocket, and the statistics of all sockets.

#include "socket/SslContext.h"
#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

namespace vela {

QString SslSocket::ciphers() const
{
    return d->settings.ciphers;
}

void SslSocket::setCiphers(const QString& ciphers)
{
    d->settings.ciphers = ciphers;
}

QString SslSocket::pathToCertificate() const
{
    return d->settings.pathToCertificate;
}

void SslSocket::setPathToCertificate(const QString& path)
{
    d->settings.pathToCertificate = path;
}

QString SslSocket::pathToPrivateKey() const
{
    return d->settings.pathToPrivateKey;
}

void SslSocket::setPathToPrivateKey(const QString& path)
{
    d->settings.pathToPrivateKey = path;
}

QString SslSocket::pathToCACertFile() const
{
    return d->settings.pathToCACertFile;
}

void SslSocket::setPathToCACertFile(const QString& path)
{
    d->settings.pathToCACertFile = path;
}

QString SslSocket::pathToCACertDir() const
{
    return d->settings.pathToCACertDir;
}

void SslSocket::setPathToCACertDir(const QString& path)
{
    d->settings.pathToCACertDir = path;
}

QString SslSocket::serverName() const
{
    return d->serverName();
}

void SslSocket::setServerName(const QString& name)
{
    d->settings.serverName = name;
}

void SslSocket::resetServerName()
{
    d->settings.serverName.reset();
}

QString SslSocket::printStatistics()
{
    SSL_CTX* context = SslContext::get();
    if (!context)
        return QString();
    return QString::fromLatin1("OpenSSL Session Statistics\n"
                               "==========================\n\n"
                               "       total: %1 \n"
                               "in handshake: %2 \n"
                               "   connected: %3 \n"
                               "renegotiated: %4 \n"
                               "  cache hits: %5 \n"
                               "cache misses: %6 \n"
                               "  cache full: %7 \n")
        .arg(SSL_CTX_sess_number(context))
        .arg(SSL_CTX_sess_connect(context))
        .arg(SSL_CTX_sess_connect_good(context))
        .arg(SSL_CTX_sess_connect_renegotiate(context))
        .arg(SSL_CTX_sess_hits(context))
        .arg(SSL_CTX_sess_misses(context))
        .arg(SSL_CTX_sess_cache_full(context));
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
// The TLS settings of an SslSocket and the engine that is made from them.

#include "socket/SessionCache.h"
#include "socket/SslContext.h"
#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>

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

bool SslSocket::initSsl()
{
    const TlsEngine::Role role =
        d->mode == Server ? TlsEngine::Role::Server : TlsEngine::Role::Client;
    const QString error = d->engine.begin(role, d->settings, d->sessionOrigin());
    if (!error.isNull()) {
        d->fail(error);
        return false;
    }
    const SessionGuard guard(d);
    if (d->transport) {
        d->copyEndpoint();
        d->transport->flush();
    }
    if (!guard.holds())
        return false;
    d->sslInitialised = true;
    return true;
}

SessionOrigin SslSocketPrivate::sessionOrigin() const
{
    if (transport.isOwned() || !transport)
        return {sessionKey, sessionKey};
    const QString name = transport->peerName();
    const QString server = name.isEmpty() ? transport->peerAddress().toString() : name;
    return {sessionKey,
            QString::fromLatin1("%1:%2").arg(server, QString::number(transport->peerPort()))};
}

void SslSocketPrivate::copyEndpoint()
{
    q->setPeerAddress(transport->peerAddress());
    q->setPeerPort(transport->peerPort());
    q->setPeerName(transport->peerName());
    q->setLocalAddress(transport->localAddress());
    q->setLocalPort(transport->localPort());
}

void SslSocketPrivate::tidySessions()
{
    if (SessionCache::tidy())
        QTimer::singleShot(SessionCache::tidyInterval(), q, [this] { tidySessions(); });
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

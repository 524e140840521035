// SPDX-License-Identifier: BSD-3-Clause
// The TLS settings of an SslSocket and the engine that is made from them.

#include "socket/GroupLimit.h"
#include "socket/SessionCache.h"
#include "socket/SslContext.h"
#include "socket/SslSocketPrivate.h"
#include "support/EngineFileName.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslErrors.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>
#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>

namespace vela {

QString SslSocket::ciphers() const
{
    return d->ciphers;
}

void SslSocket::setCiphers(const QString& ciphers)
{
    d->ciphers = ciphers;
}

QString SslSocket::pathToCertificate() const
{
    return d->pathToCertificate;
}

void SslSocket::setPathToCertificate(const QString& path)
{
    d->pathToCertificate = path;
}

QString SslSocket::pathToPrivateKey() const
{
    return d->pathToPrivateKey;
}

void SslSocket::setPathToPrivateKey(const QString& path)
{
    d->pathToPrivateKey = path;
}

QString SslSocket::pathToCACertFile() const
{
    return d->pathToCACertFile;
}

void SslSocket::setPathToCACertFile(const QString& path)
{
    d->pathToCACertFile = path;
}

QString SslSocket::pathToCACertDir() const
{
    return d->pathToCACertDir;
}

void SslSocket::setPathToCACertDir(const QString& path)
{
    d->pathToCACertDir = path;
}

bool SslSocket::initSsl()
{
    d->releaseEngine(); // What an earlier attempt that failed has left.
    clearOpenSslErrors();
    const QString error = d->createEngine();
    if (!error.isNull()) {
        d->fail(error);
        return false;
    }
    const SessionGuard guard(d);
    if (d->socket) {
        d->copyEndpoint();
        d->socket->flush();
    }
    if (!guard.holds())
        return false;
    d->sslInitialised = true;
    return true;
}

QString SslSocketPrivate::createEngine()
{
    if (!SslContext::create())
        return QStringLiteral("Error creating SSL context, %1").arg(takeOpenSslError());
    if (mode == SslSocket::Server) {
        if (pathToCertificate.isEmpty() && certificateSource.isEmpty())
            return SslSocket::tr("QtSslSocket: Certificate required in server mode");
        if (pathToPrivateKey.isEmpty())
            return SslSocket::tr("Private key required in server mode");
    }

    // Held over all steps, so that the engine gets the settings of this socket and not those that
    // another thread loads in between.
    const ContextLock lock = SslContext::shared().lock();
    QString error = applyCipherList(lock);
    if (error.isNull() && mode == SslSocket::Server)
        error = loadIdentity(lock);
    if (error.isNull())
        error = loadAuthorities(lock);
    if (!error.isNull())
        return error;

    ssl = SslContext::shared().newConnection(lock);
    if (!ssl)
        return SslSocket::tr("Error creating SSL session, %1").arg(takeOpenSslError());
    SSL_clear(ssl);
    // A server has no use for a session of the pool's, which would make the reference engine speak
    // the version that it was made with.
    if (!session.begin(lock, ssl, sessionOrigin(), mode != SslSocket::Server))
        return SslSocket::tr("Error setting pooled SSL session");
    return connectEngine();
}

QString SslSocketPrivate::applyCipherList(const ContextLock& lock)
{
    if (ciphers.isEmpty() || SslContext::shared().setCipherList(lock, ciphers.toLatin1()))
        return QString();
    return SslSocket::tr("Invalid or empty cipher list, %1").arg(takeOpenSslError());
}

QString SslSocketPrivate::loadIdentity(const ContextLock& lock)
{
    const QByteArray certificate = engineFileName(pathToCertificate);
    const QByteArray key = engineFileName(pathToPrivateKey);
    SslContext& context = SslContext::shared();
    context.authorities().loadDefaults(lock);
    const IdentityFiles::Errors errors = context.identity().load(lock, certificate, key);
    if (!errors.certificate.isNull())
        return SslSocket::tr("Error loading certificate, %1").arg(errors.certificate);
    if (!errors.key.isNull())
        return SslSocket::tr("Error loading private key, %1").arg(errors.key);
    if (!errors.match.isNull())
        return SslSocket::tr("Private key does not certify public key, %1").arg(errors.match);
    return QString();
}

QString SslSocketPrivate::loadAuthorities(const ContextLock& lock)
{
    if (pathToCACertFile.isEmpty() && pathToCACertDir.isEmpty())
        return QString();
    const QByteArray file = engineFileName(pathToCACertFile);
    // In directories, OpenSSL looks for files by the means of the C library.
    const QByteArray directory = QFile::encodeName(pathToCACertDir);
    if (SslContext::shared().authorities().load(lock, file, directory))
        return QString();
    return SslSocket::tr("Failed to load the list of trusted CAs: %1").arg(takeOpenSslError());
}

SessionOrigin SslSocketPrivate::sessionOrigin() const
{
    if (ownsSocket || !socket)
        return {sessionKey, sessionKey};
    const QString name = socket->peerName();
    const QString server = name.isEmpty() ? socket->peerAddress().toString() : name;
    return {sessionKey,
            QString::fromLatin1("%1:%2").arg(server, QString::number(socket->peerPort()))};
}

QString SslSocketPrivate::connectEngine()
{
    BioHandle input(BIO_new(BIO_s_mem()));
    BioHandle output(BIO_new(BIO_s_mem()));
    if (!input || !output)
        return SslSocket::tr("Error creating SSL session");
    readBio = input.release();
    writeBio = output.release();
    SSL_set_bio(ssl, readBio, writeBio);

    if (mode == SslSocket::Server)
        SSL_set_accept_state(ssl);
    else
        SSL_set_connect_state(ssl);
    limitGroups(ssl);
    return QString();
}

void SslSocketPrivate::copyEndpoint()
{
    q->setPeerAddress(socket->peerAddress());
    q->setPeerPort(socket->peerPort());
    q->setPeerName(socket->peerName());
    q->setLocalAddress(socket->localAddress());
    q->setLocalPort(socket->localPort());
}

void SslSocketPrivate::releaseEngine()
{
    if (!ssl)
        return;
    // Freed without this, a connection that did not say goodbye would take its session with it.
    SSL_set_shutdown(ssl, SSL_SENT_SHUTDOWN);
    session.end(ssl);
    SSL_free(ssl); // And both BIOs with it.
    ssl = nullptr;
    readBio = nullptr;
    writeBio = nullptr;
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

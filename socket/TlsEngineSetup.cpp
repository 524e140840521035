// SPDX-License-Identifier: BSD-3-Clause
// How a TlsEngine gets its connection: from a host's settings and the context that all share.

#include "socket/GroupLimit.h"
#include "socket/SslContext.h"
#include "socket/TlsEngine.h"
#include "support/EngineFileName.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslErrors.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>

#include <utility>

namespace vela {

namespace {

QString applyCipherList(const ContextLock& lock, const QString& ciphers)
{
    if (ciphers.isEmpty() || SslContext::shared().setCipherList(lock, ciphers.toLatin1()))
        return QString();
    return SslSocket::tr("Invalid or empty cipher list, %1").arg(takeOpenSslError());
}

QString checkIdentity(const TlsSettings& settings)
{
    if (settings.pathToCertificate.isEmpty() && settings.certificateSource.isEmpty())
        return SslSocket::tr("QtSslSocket: Certificate required in server mode");
    if (settings.pathToPrivateKey.isEmpty())
        return SslSocket::tr("Private key required in server mode");
    return QString();
}

QString loadIdentity(const ContextLock& lock, const TlsSettings& settings)
{
    SslContext& context = SslContext::shared();
    const QByteArray certificate = engineFileName(settings.pathToCertificate);
    const QByteArray key = engineFileName(settings.pathToPrivateKey);
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

QString loadAuthorities(const ContextLock& lock, const TlsSettings& settings)
{
    if (settings.pathToCACertFile.isEmpty() && settings.pathToCACertDir.isEmpty())
        return QString();
    const QByteArray file = engineFileName(settings.pathToCACertFile);
    // In directories, OpenSSL looks for files by the means of the C library.
    const QByteArray directory = QFile::encodeName(settings.pathToCACertDir);
    if (SslContext::shared().authorities().load(lock, file, directory))
        return QString();
    return SslSocket::tr("Failed to load the list of trusted CAs: %1").arg(takeOpenSslError());
}

} // namespace

QString TlsEngine::begin(Role role, const TlsSettings& settings, const SessionOrigin& origin)
{
    release();
    clearOpenSslErrors();
    if (!SslContext::create())
        return QStringLiteral("Error creating SSL context, %1").arg(takeOpenSslError());
    const bool server = role == Role::Server;
    QString error = server ? checkIdentity(settings) : QString();
    if (!error.isNull())
        return error;

    // Held over all steps, so that the connection gets these settings and not those that another
    // thread loads in between.
    const ContextLock lock = SslContext::shared().lock();
    error = applyCipherList(lock, settings.ciphers);
    if (error.isNull() && server)
        error = loadIdentity(lock, settings);
    if (error.isNull())
        error = loadAuthorities(lock, settings);
    return error.isNull() ? makeConnection(lock, role, origin) : error;
}

QString TlsEngine::makeConnection(const ContextLock& lock, Role role, const SessionOrigin& origin)
{
    m_ssl.reset(SslContext::shared().newConnection(lock));
    if (!m_ssl)
        return SslSocket::tr("Error creating SSL session, %1").arg(takeOpenSslError());
    SSL_clear(m_ssl.get());
    if (!m_serverName.begin(m_ssl.get(), role == Role::Client ? origin.serverName : QByteArray()))
        return SslSocket::tr("Error creating SSL session, %1").arg(takeOpenSslError());
    // A server has no use for a session of the pool's, which would make the reference engine speak
    // the version that it was made with.
    if (!m_session.begin(lock, m_ssl.get(), origin, role != Role::Server))
        return SslSocket::tr("Error setting pooled SSL session");
    return joinBuffers(role);
}

QString TlsEngine::joinBuffers(Role role)
{
    BioHandle input(BIO_new(BIO_s_mem()));
    BioHandle output(BIO_new(BIO_s_mem()));
    if (!input || !output)
        return SslSocket::tr("Error creating SSL session");
    BIO_up_ref(input.get());
    BIO_up_ref(output.get());
    SSL_set_bio(m_ssl.get(), input.get(), output.get());
    m_input = std::move(input);
    m_output = std::move(output);

    if (role == Role::Server)
        SSL_set_accept_state(m_ssl.get());
    else
        SSL_set_connect_state(m_ssl.get());
    limitGroups(m_ssl.get());
    return QString();
}

} // namespace vela

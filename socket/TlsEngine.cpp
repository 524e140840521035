// SPDX-License-Identifier: BSD-3-Clause
#include "socket/TlsEngine.h"

#include "support/OpenSslCompat.h"
#include "support/OpenSslErrors.h"

#include <openssl/err.h>

namespace vela {

namespace {

TlsEngine::Outcome failure()
{
    return {TlsEngine::Result::Failed, 0, ERR_get_error()};
}

//! Returns true if \a ssl lacks input, and nothing is wrong, after an operation gave \a result.
bool isWaiting(const SSL* ssl, int result)
{
    const int error = SSL_get_error(ssl, result);
    return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
}

} // namespace

QString TlsEngine::Outcome::text() const
{
    return describeOpenSslError(error);
}

TlsEngine::~TlsEngine()
{
    release();
}

void TlsEngine::release()
{
    if (!m_ssl)
        return;
    // Freed without this, a connection that did not say goodbye would take its session with it.
    SSL_set_shutdown(m_ssl.get(), SSL_SENT_SHUTDOWN);
    m_session.end(m_ssl.get());
    m_ssl.reset();
    m_input.reset();
    m_output.reset();
    m_serverName.clear();
}

bool TlsEngine::feed(const char* data, int size)
{
    clearOpenSslErrors();
    return m_input && BIO_write(m_input.get(), data, size) == size;
}

TlsEngine::Outcome TlsEngine::step(Role role)
{
    const bool server = role == Role::Server;
    SSL* const ssl = m_ssl.get();
    m_session.enterRole(ssl, server);
    clearOpenSslErrors();
    const int result = server ? SSL_accept(ssl) : SSL_connect(ssl);
    if (result > 0) {
        m_session.handshakeCompleted();
        m_serverName.handshakeCompleted();
        m_session.peer.begin(ssl);
        return {Result::Done};
    }
    if (result < 0 && isWaiting(ssl, result))
        return {Result::WantsMore};
    m_session.handshakeFailed();
    return failure();
}

TlsEngine::Outcome TlsEngine::decrypt(char* data, int size)
{
    SSL* const ssl = m_ssl.get();
    clearOpenSslErrors();
    const int result = SSL_read(ssl, data, size);
    if (result > 0)
        return {Result::Done, result};
    if (result < 0 && isWaiting(ssl, result))
        return {Result::WantsMore};
    if (result == 0 && SSL_get_error(ssl, result) == SSL_ERROR_ZERO_RETURN)
        return {Result::Closed};
    return failure();
}

TlsEngine::Outcome TlsEngine::encrypt(const char* data, int size)
{
    SSL* const ssl = m_ssl.get();
    clearOpenSslErrors();
    const int result = SSL_write(ssl, data, size);
    if (result > 0)
        return {Result::Done, result};
    if (SSL_in_init(ssl) && isWaiting(ssl, result))
        return {Result::WantsMore};
    return failure();
}

int TlsEngine::pendingOutput() const
{
    return m_output ? static_cast<int>(BIO_pending(m_output.get())) : 0;
}

void TlsEngine::drain(char* data, int size)
{
    BIO_read(m_output.get(), data, size);
}

bool TlsEngine::keepsPeer() const
{
    return !m_session.peer.hasRefused() && m_session.peer.isSamePeer(m_ssl.get());
}

X509* TlsEngine::peerCertificate() const
{
    return m_ssl ? m_session.peer.certificate(m_ssl.get()) : nullptr;
}

bool TlsEngine::hasBufferedInput() const
{
    return m_input && (SSL_pending(m_ssl.get()) > 0 || BIO_pending(m_input.get()) > 0);
}

bool TlsEngine::hasGoodbye() const
{
    return m_ssl && (SSL_get_shutdown(m_ssl.get()) & SSL_RECEIVED_SHUTDOWN) != 0;
}

bool TlsEngine::isSessionReused() const
{
    return m_ssl && SSL_is_init_finished(m_ssl.get()) && SSL_session_reused(m_ssl.get());
}

} // namespace vela

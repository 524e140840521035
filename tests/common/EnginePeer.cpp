// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/EnginePeer.h"

#include <openssl/err.h>

namespace test {

EnginePeer::EnginePeer(Role role, QTcpSocket* transport, const Identity& identity,
                       unsigned long options, const char* ciphers)
    : m_context(SSL_CTX_new(SSLv23_method()))
    , m_transport(transport)
{
    transport->setParent(this);
    SSL_CTX_set_options(m_context, options);
    if (ciphers)
        SSL_CTX_set_cipher_list(m_context, ciphers);
    if (identity.x509()) {
        SSL_CTX_use_certificate(m_context, identity.x509());
        SSL_CTX_use_PrivateKey(m_context, identity.key());
    }
    static_cast<void>(SSL_CTX_set_ecdh_auto(m_context, 1));
    m_ssl = SSL_new(m_context);
    m_input = BIO_new(BIO_s_mem());
    m_output = BIO_new(BIO_s_mem());
    SSL_set_bio(m_ssl, m_input, m_output);
    if (role == Server)
        SSL_set_accept_state(m_ssl);
    else
        SSL_set_connect_state(m_ssl);
    connect(transport, &QIODevice::readyRead, this, &EnginePeer::process);
    connect(transport, &QAbstractSocket::connected, this, &EnginePeer::process);
    if (transport->state() == QAbstractSocket::ConnectedState)
        process();
}

EnginePeer::~EnginePeer()
{
    m_transport->disconnect(this);
    SSL_free(m_ssl);
    SSL_CTX_free(m_context);
}

bool EnginePeer::sawCloseNotify() const
{
    return SSL_get_shutdown(m_ssl) & SSL_RECEIVED_SHUTDOWN;
}

void EnginePeer::write(const QByteArray& data)
{
    ERR_clear_error();
    SSL_write(m_ssl, data.constData(), data.size());
    flush();
}

void EnginePeer::sendCloseNotify()
{
    ERR_clear_error();
    SSL_shutdown(m_ssl);
    flush();
}

void EnginePeer::hold(bool held)
{
    m_held = held;
    flush();
}

QByteArray EnginePeer::takePending()
{
    QByteArray pending(static_cast<int>(BIO_pending(m_output)), '\0');
    if (!pending.isEmpty())
        BIO_read(m_output, pending.data(), pending.size());
    return pending;
}

void EnginePeer::process()
{
    const QByteArray arrived = m_transport->readAll();
    if (!arrived.isEmpty())
        BIO_write(m_input, arrived.constData(), arrived.size());
    ERR_clear_error();
    if (!m_handshakeDone && SSL_do_handshake(m_ssl) == 1) {
        m_handshakeDone = true;
        flush();
        Q_EMIT handshakeDone();
    }
    noteFailure();
    char buffer[16384];
    int length = 0;
    while (m_handshakeDone && (length = SSL_read(m_ssl, buffer, sizeof buffer)) > 0)
        m_received.append(buffer, length);
    noteFailure();
    flush();
    if (!m_received.isEmpty())
        Q_EMIT dataReceived();
}

void EnginePeer::noteFailure()
{
    char text[256];
    if (m_failure.isEmpty() && ERR_peek_error() != 0) {
        ERR_error_string_n(ERR_peek_error(), text, sizeof text);
        m_failure = text;
    }
    ERR_clear_error();
}

void EnginePeer::flush()
{
    if (!m_held && m_transport->isOpen())
        m_transport->write(takePending());
}

} // namespace test

#include "moc_EnginePeer.cpp"

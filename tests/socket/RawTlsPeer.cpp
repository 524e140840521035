// SPDX-License-Identifier: BSD-3-Clause
#include "RawTlsPeer.h"

#include <openssl/err.h>

namespace test {

namespace {

SSL_CTX* serverContext()
{
    static const vela::SslContextHandle context([] {
        const Identity identity = makeIdentity(CertificateSpec());
        SSL_CTX* made = SSL_CTX_new(SSLv23_method());
        SSL_CTX_set_ecdh_auto(made, 1);
        if (SSL_CTX_use_certificate(made, identity.x509()) != 1
            || SSL_CTX_use_PrivateKey(made, identity.key()) != 1) {
            qFatal("RawTlsPeer: no identity");
        }
        return made;
    }());
    return context.get();
}

SSL_CTX* clientContext()
{
    static const vela::SslContextHandle context(SSL_CTX_new(SSLv23_method()));
    return context.get();
}

} // namespace

RawTlsPeer::RawTlsPeer(QTcpSocket* connection, End end)
    : m_connection(connection)
    , m_ssl(SSL_new(end == End::Server ? serverContext() : clientContext()))
    , m_input(BIO_new(BIO_s_mem()))
    , m_output(BIO_new(BIO_s_mem()))
{
    connection->setParent(this);
    SSL_set_bio(m_ssl.get(), m_input, m_output);
    if (end == End::Server)
        SSL_set_accept_state(m_ssl.get());
    else
        SSL_set_connect_state(m_ssl.get());
    connect(connection, &QTcpSocket::readyRead, this, &RawTlsPeer::takeInput);
}

void RawTlsPeer::start()
{
    if (m_connection->state() == QAbstractSocket::ConnectedState)
        takeInput();
    else
        connect(m_connection, &QTcpSocket::connected, this, &RawTlsPeer::takeInput);
}

void RawTlsPeer::write(const QByteArray& data)
{
    SSL_write(m_ssl.get(), data.constData(), data.size());
    flush();
}

void RawTlsPeer::sendCloseNotify()
{
    SSL_shutdown(m_ssl.get());
    flush();
}

void RawTlsPeer::sendGarbage()
{
    m_connection->write(QByteArray(64, '?'));
}

void RawTlsPeer::hangUp()
{
    m_connection->disconnectFromHost();
}

void RawTlsPeer::takeInput()
{
    const QByteArray input = m_connection->readAll();
    BIO_write(m_input, input.constData(), input.size());
    advance();
}

void RawTlsPeer::advance()
{
    ERR_clear_error();
    const bool justSecured = !m_secured && SSL_do_handshake(m_ssl.get()) == 1;
    m_secured = m_secured || justSecured;
    flush();
    if (justSecured)
        Q_EMIT secured();
    if (m_secured)
        readPlaintext();
    ERR_clear_error();
}

void RawTlsPeer::readPlaintext()
{
    char piece[4096];
    int size;
    while ((size = SSL_read(m_ssl.get(), piece, sizeof piece)) > 0) {
        m_received.append(piece, size);
        write(QByteArray(piece, size));
    }
}

void RawTlsPeer::flush()
{
    char piece[4096];
    int size;
    while ((size = BIO_read(m_output, piece, sizeof piece)) > 0) {
        if (m_connection->state() == QAbstractSocket::ConnectedState)
            m_connection->write(piece, size);
    }
}

} // namespace test

#include "moc_RawTlsPeer.cpp"

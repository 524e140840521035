// SPDX-License-Identifier: BSD-3-Clause
#include "common/MemoryPeer.h"

#include "common/Options.h"

#include <QtCore/QFile>

#include <openssl/ssl.h>

namespace bench {

namespace {

//! Leaves \a context nothing to negotiate but \a protocol.
void restrict(SSL_CTX* context, Protocol protocol)
{
    SSL_CTX_set_options(context,
                        SSL_OP_NO_SSLv2 | SSL_OP_NO_SSLv3 | SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1);
#ifdef SSL_OP_NO_TLSv1_3
    SSL_CTX_set_options(context,
                        protocol == Protocol::Tls13 ? SSL_OP_NO_TLSv1_2 : SSL_OP_NO_TLSv1_3);
    if (SSL_CTX_set_ciphersuites(context, "TLS_AES_256_GCM_SHA384") != 1)
        fail(QStringLiteral("the peer does not know the cipher of TLS 1.3"));
#else
    Q_UNUSED(protocol)
#endif
    if (SSL_CTX_set_cipher_list(context, "AES256-GCM-SHA384") != 1)
        fail(QStringLiteral("the peer does not know the cipher of TLS 1.2"));
}

} // namespace

MemoryPeer::MemoryPeer(const Setup& setup)
    : m_protocol(setup.protocol)
    , m_context(SSL_CTX_new(SSLv23_method()))
{
    restrict(m_context, setup.protocol);
    const QByteArray certificate = QFile::encodeName(setup.certificateFile);
    const QByteArray key = QFile::encodeName(setup.keyFile);
    if (SSL_CTX_use_certificate_file(m_context, certificate.constData(), SSL_FILETYPE_PEM) != 1
        || SSL_CTX_use_PrivateKey_file(m_context, key.constData(), SSL_FILETYPE_PEM) != 1)
        fail(QStringLiteral("the peer does not read its certificate or key"));
    m_ssl = SSL_new(m_context);
    m_input = BIO_new(BIO_s_mem());
    m_output = BIO_new(BIO_s_mem());
    SSL_set_bio(m_ssl, m_input, m_output);
    SSL_set_accept_state(m_ssl);
}

MemoryPeer::~MemoryPeer()
{
    SSL_free(m_ssl);
    SSL_CTX_free(m_context);
}

QByteArray MemoryPeer::handshake(const QByteArray& octets)
{
    BIO_write(m_input, octets.constData(), octets.size());
    SSL_do_handshake(m_ssl);
    return takeOutput();
}

bool MemoryPeer::isReady() const
{
    return SSL_is_init_finished(m_ssl);
}

QByteArray MemoryPeer::encrypt(const QByteArray& data)
{
    if (SSL_write(m_ssl, data.constData(), data.size()) != data.size())
        fail(QStringLiteral("the peer cannot encrypt"));
    return takeOutput();
}

qint64 MemoryPeer::decrypt(const QByteArray& octets)
{
    BIO_write(m_input, octets.constData(), octets.size());
    qint64 total = 0;
    char piece[16384];
    int length = 0;
    while ((length = SSL_read(m_ssl, piece, sizeof piece)) > 0)
        total += length;
    if (SSL_get_error(m_ssl, length) != SSL_ERROR_WANT_READ)
        fail(QStringLiteral("the peer cannot decrypt"));
    return total;
}

void MemoryPeer::check() const
{
    const QString version = QString::fromLatin1(SSL_get_version(m_ssl))
                                .replace(QLatin1String("TLSv"), QLatin1String("TLS "));
    const QString cipher = QString::fromLatin1(SSL_get_cipher_name(m_ssl));
    if (version != nameOf(m_protocol) || cipher != cipherName(m_protocol))
        fail(QStringLiteral("the handshake agreed on %1, %2").arg(version, cipher));
}

QByteArray MemoryPeer::takeOutput()
{
    QByteArray output(static_cast<int>(BIO_pending(m_output)), Qt::Uninitialized);
    if (!output.isEmpty())
        BIO_read(m_output, output.data(), output.size());
    return output;
}

} // namespace bench

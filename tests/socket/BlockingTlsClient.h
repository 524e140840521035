// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_BLOCKINGTLSCLIENT_H
#define FERRULE_TESTS_BLOCKINGTLSCLIENT_H

#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>

#include <openssl/ssl.h>

#ifdef Q_OS_WIN
#    include <winsock2.h>
#else
#    include <netinet/in.h>
#    include <netinet/tcp.h>
#    include <sys/socket.h>
#endif

namespace test {

/*!
    A client that speaks TLS through OpenSSL itself, blocking, for a thread of its own. Offers the
    session of its last connection with the next.
*/
class BlockingTlsClient
{
public:
    //! \a options are for `SSL_CTX_set_options`.
    BlockingTlsClient(quint16 port, unsigned long options)
        : m_address(QByteArray("127.0.0.1:").append(QByteArray::number(port)))
        , m_context(SSL_CTX_new(SSLv23_method()))
    {
        SSL_CTX_set_options(m_context.get(), options);
    }

    ~BlockingTlsClient() { SSL_SESSION_free(m_session); }

    //! Connects, has \a text echoed and says goodbye; returns false when any of that fails.
    bool converse(const QByteArray& text)
    {
        const vela::SslHandle ssl(SSL_new(m_context.get()));
        if (m_session)
            SSL_set_session(ssl.get(), m_session);
        BIO* transport = BIO_new_connect(m_address.data());
        if (BIO_do_connect(transport) != 1) {
            BIO_free(transport);
            return false;
        }
        // Its small writes would wait for acknowledgements that the server has reason to delay.
        const int on = 1;
        setsockopt(BIO_get_fd(transport, nullptr), IPPROTO_TCP, TCP_NODELAY,
                   reinterpret_cast<const char*>(&on), sizeof on);
        SSL_set_bio(ssl.get(), transport, transport);
        if (SSL_connect(ssl.get()) != 1 || !echoes(ssl.get(), text))
            return false;
        m_resumptions += SSL_session_reused(ssl.get()) ? 1 : 0;
        SSL_SESSION_free(m_session);
        m_session = SSL_get1_session(ssl.get());
        SSL_shutdown(ssl.get());
        return true;
    }

    int resumptions() const { return m_resumptions; }

private:
    Q_DISABLE_COPY(BlockingTlsClient)

    static bool echoes(SSL* ssl, const QByteArray& text)
    {
        if (SSL_write(ssl, text.constData(), text.size()) != text.size())
            return false;
        QByteArray echo;
        char piece[1024];
        while (echo.size() < text.size()) {
            const int size = SSL_read(ssl, piece, sizeof piece);
            if (size < 1)
                return false;
            echo.append(piece, size);
        }
        return echo == text;
    }

    QByteArray m_address;
    vela::SslContextHandle m_context;
    SSL_SESSION* m_session = nullptr;
    int m_resumptions = 0;
};

} // namespace test

#endif

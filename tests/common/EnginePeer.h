// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_ENGINEPEER_H
#define FERRULE_TESTS_ENGINEPEER_H

#include "tests/common/TestCertificates.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtNetwork/QTcpSocket>

#include <openssl/ssl.h>

namespace test {

/*!
    A TLS peer made of OpenSSL alone, for what a socket of the library would not do: it says
    goodbye, renegotiates, and holds its octets back to send them as the test pleases.
*/
class EnginePeer : public QObject
{
    Q_OBJECT

public:
    enum Role {
        Client,
        Server
    };

    /*!
        Speaks over \a transport, which it then owns. A server needs \a identity, a client may have
        one. \a options are for `SSL_CTX_set_options`, \a ciphers the cipher list if not null.
    */
    EnginePeer(Role role, QTcpSocket* transport, const Identity& identity = Identity(),
               unsigned long options = 0, const char* ciphers = nullptr);
    ~EnginePeer() override;

    SSL* ssl() const { return m_ssl; }
    QTcpSocket* transport() const { return m_transport; }
    bool isHandshakeDone() const { return m_handshakeDone; }
    QByteArray received() const { return m_received; }
    bool sawCloseNotify() const;
    //! What the engine said about the first failure of the connection, an alert for instance.
    QByteArray failure() const { return m_failure; }

    //! Encrypts \a data as one write of the engine.
    void write(const QByteArray& data);
    void sendCloseNotify();

    //! While held, nothing leaves; what waits can be taken, changed and sent by the test.
    void hold(bool held);
    QByteArray takePending();

    //! Runs the handshake or reads, then sends what the engine has produced.
    void process();

Q_SIGNALS:
    void handshakeDone();
    void dataReceived();

private:
    void flush();
    void noteFailure();

    SSL_CTX* m_context;
    SSL* m_ssl;
    BIO* m_input;
    BIO* m_output;
    QTcpSocket* m_transport;
    QByteArray m_received;
    QByteArray m_failure;
    bool m_handshakeDone = false;
    bool m_held = false;
};

} // namespace test

#endif

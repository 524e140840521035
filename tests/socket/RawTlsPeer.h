// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_RAWTLSPEER_H
#define FERRULE_TESTS_RAWTLSPEER_H

#include "support/OpenSslHandles.h"
#include "tests/common/TestCertificates.h"

#include <QtCore/QPointer>
#include <QtNetwork/QTcpSocket>

namespace test {

//! The end of the connection that a peer of the socket under test plays.
enum class End {
    Client,
    Server
};

/*!
    A peer that speaks TLS through OpenSSL itself, without the library: echoes what it receives, and
    can do what the library never does, such as saying goodbye properly.
*/
class RawTlsPeer : public QObject
{
    Q_OBJECT

public:
    //! Speaks over \a connection, which it owns from now on.
    RawTlsPeer(QTcpSocket* connection, End end);

    //! Starts the handshake as soon as there is a connection.
    void start();
    void write(const QByteArray& data);
    void sendCloseNotify();
    //! Sends bytes that are no TLS record.
    void sendGarbage();
    //! Closes the connection without a word.
    void hangUp();

    bool isSecured() const { return m_secured; }
    QByteArray received() const { return m_received; }

Q_SIGNALS:
    void secured();

private:
    void takeInput();
    void advance();
    void readPlaintext();
    void flush();

    QPointer<QTcpSocket> m_connection;
    vela::SslHandle m_ssl;
    BIO* m_input;
    BIO* m_output;
    QByteArray m_received;
    bool m_secured = false;
};

} // namespace test

#endif

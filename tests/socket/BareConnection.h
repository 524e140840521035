// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_BARECONNECTION_H
#define FERRULE_TESTS_BARECONNECTION_H

#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/common/SignalLog.h"

#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <functional>
#include <memory>

#ifdef Q_OS_WIN
#    include <winsock2.h>
#else
#    include <sys/socket.h>
#endif

namespace test {

//! The option that leaves TLS 1.3 out, where the engine has it.
inline unsigned long atMostTls12()
{
#ifdef SSL_OP_NO_TLSv1_3
    return SSL_OP_NO_TLSv1_3;
#else
    return 0;
#endif
}

//! A client of the library, with what is protected in it.
class OpenSocket : public vela::SslSocket
{
public:
    using SslSocket::readData;
    using SslSocket::readLineData;
    using SslSocket::SslSocket;
};

//! A server that is OpenSSL alone.
class BareServer : public QTcpServer
{
public:
    explicit BareServer(const Identity& identity, unsigned long peerOptions = 0)
        : options(peerOptions)
    {
        listenOnFreshPort(this);
        connect(this, &QTcpServer::newConnection, this, [this, identity] {
            peer = std::make_unique<EnginePeer>(EnginePeer::Server, nextPendingConnection(),
                                                identity, options);
            if (prepare)
                prepare();
        });
    }

    unsigned long options; //!< Of the peers to come, for `SSL_CTX_set_options`.
    std::unique_ptr<EnginePeer> peer;
    std::function<void()> prepare; //!< Called with each new peer.
};

//! A client of the library that is connected to such a server, and what it has emitted since.
struct BareConnection
{
    explicit BareConnection(unsigned long options = 0)
        : server(makeIdentity(CertificateSpec()), options)
        , client(vela::SslSocket::Client)
        , log(&client)
    {
        client.connectToHost(QStringLiteral("localhost"), server.serverPort());
        settled = QTest::qWaitFor([this] {
            return server.peer && server.peer->isHandshakeDone()
                   && client.state() == QAbstractSocket::ConnectedState
                   && client.socket()->bytesToWrite() == 0;
        });
        log.clear();
    }

    EnginePeer& peer() { return *server.peer; }

    BareServer server;
    OpenSocket client;
    SignalLog log;
    bool settled = false;
};

//! Hands what \a transport holds to the system, which has it at the other end at once.
inline void sendNow(QTcpSocket* transport)
{
    while (transport->bytesToWrite() > 0 && transport->flush()) {
    }
}

//! Sends the end of the stream and goes on receiving, which QTcpSocket has no call for.
inline void endSending(QTcpSocket* transport)
{
    sendNow(transport);
#ifdef Q_OS_WIN
    ::shutdown(static_cast<SOCKET>(transport->socketDescriptor()), SD_SEND);
#else
    ::shutdown(static_cast<int>(transport->socketDescriptor()), SHUT_WR);
#endif
}

} // namespace test

#endif

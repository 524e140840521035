// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_BARECONNECTION_H
#define FERRULE_TESTS_BARECONNECTION_H

#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/common/SignalLog.h"

#include <QtTest/QtTest>

#include <functional>
#include <memory>

namespace test {

//! Lets a test call what the device calls.
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
    //! Called with each new peer.
    std::function<void()> prepare;
};

//! A client of the library and such a server, connected to each other.
struct Connection
{
    explicit Connection(unsigned long options = 0)
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

    BareServer server;
    OpenSocket client;
    SignalLog log;
    bool settled = false;
};

inline unsigned long atMostTls12()
{
#ifdef SSL_OP_NO_TLSv1_3
    return SSL_OP_NO_TLSv1_3;
#else
    return 0;
#endif
}

} // namespace test

#endif

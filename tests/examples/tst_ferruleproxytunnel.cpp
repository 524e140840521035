// SPDX-License-Identifier: BSD-3-Clause
// ferrule-proxy: what goes through its tunnels.

#include "tests/examples/Program.h"
#include "tests/examples/ProxyPeers.h"

#include <QtTest/QtTest>

#include <fcntl.h>
#include <future>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace test;

namespace {

constexpr int MEBIBYTE = 1024 * 1024;

/*! Reads from a blocking socket until the peer has ended its sending. */
QByteArray readToEnd(int descriptor)
{
    QByteArray all;
    QByteArray piece(64 * 1024, Qt::Uninitialized);
    while (true) {
        const ssize_t count = recv(descriptor, piece.data(), size_t(piece.size()), 0);
        if (count <= 0)
            return all;
        all.append(piece.constData(), int(count));
    }
}

bool sendAll(int descriptor, const QByteArray& data)
{
    for (int sent = 0; sent < data.size();) {
        const ssize_t count =
            send(descriptor, data.constData() + sent, size_t(data.size() - sent), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += int(count);
    }
    return true;
}

} // namespace

class tst_FerruleProxyTunnel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatFollowsTheRequestGoesToTheServer();
    void eitherSideMayEndItsSendingFirst_data();
    void eitherSideMayEndItsSendingFirst();
    void slowReceiverHoldsTheSenderUp();
    void manyTunnelsAtOnce();
    void clientThatLeavesEndsTheTunnel();
};

void tst_FerruleProxyTunnel::whatFollowsTheRequestGoesToTheServer()
{
    const QByteArray data = randomBytes(100 * 1024, 20);
    EchoServer server;
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.write(connectRequest(server.serverPort()) + data);
    QTRY_COMPARE(client.received.size(), ESTABLISHED.size() + data.size());
    QVERIFY(client.received == ESTABLISHED + data);
}

void tst_FerruleProxyTunnel::eitherSideMayEndItsSendingFirst_data()
{
    QTest::addColumn<bool>("clientFirst");
    QTest::newRow("the client") << true;
    QTest::newRow("the server") << false;
}

/*
    Blocking sockets on both sides: those of Qt close as a whole when the other side ends.
*/
void tst_FerruleProxyTunnel::eitherSideMayEndItsSendingFirst()
{
    QFETCH(bool, clientFirst);
    const QByteArray question = randomBytes(MEBIBYTE, 21);
    const QByteArray reply = randomBytes(2 * MEBIBYTE, 22);
    QTcpServer listener;
    QVERIFY(listener.listen(QHostAddress::LocalHost));
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.write(connectRequest(listener.serverPort()));
    QTRY_COMPARE(client.received, ESTABLISHED);
    QTRY_VERIFY(listener.hasPendingConnections());
    const std::unique_ptr<QTcpSocket> server(listener.nextPendingConnection());

    const auto blocking = [](QTcpSocket* socket) {
        const int copy = dup(int(socket->socketDescriptor()));
        socket->abort();
        fcntl(copy, F_SETFL, fcntl(copy, F_GETFL) & ~O_NONBLOCK);
        return copy;
    };
    const int clientEnd = blocking(&client);
    const int serverEnd = blocking(server.get());
    const int first = clientFirst ? clientEnd : serverEnd;
    const int second = clientFirst ? serverEnd : clientEnd;
    auto answering = std::async(std::launch::async, [second, reply] {
        const QByteArray all = readToEnd(second);
        sendAll(second, reply);
        close(second);
        return all;
    });
    QVERIFY(sendAll(first, question));
    shutdown(first, SHUT_WR);
    const QByteArray received = readToEnd(first);
    close(first);
    QVERIFY(answering.get() == question);
    QVERIFY(received == reply);
    QVERIFY2(proxy.waitForOutput(clientFirst
                                     ? " 200 up 1048576 down 2097152: closed by the client\n"
                                     : " 200 up 2097152 down 1048576: closed by the server\n"),
             proxy.output().constData());
}

void tst_FerruleProxyTunnel::slowReceiverHoldsTheSenderUp()
{
    const QByteArray data = randomBytes(64 * MEBIBYTE, 23);
    QTcpServer listener;
    QVERIFY(listener.listen(QHostAddress::LocalHost));
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.setReadBufferSize(1024);
    client.write(connectRequest(listener.serverPort()));
    QTRY_VERIFY(client.received.endsWith("\r\n\r\n"));
    client.isReading = false;
    QTRY_VERIFY(listener.hasPendingConnections());
    QTcpSocket* server = listener.nextPendingConnection();
    server->write(data);
    // Until the buffers of the system are full and nothing moves any more.
    QSignalSpy moved(server, &QIODevice::bytesWritten);
    while (moved.wait(1000)) {
    }
    QVERIFY2(server->bytesToWrite() > 0, "the proxy takes what its client does not");

    client.received.clear();
    client.isReading = true;
    client.setReadBufferSize(0);
    client.received = client.readAll();
    QTRY_COMPARE_WITH_TIMEOUT(client.received.size(), data.size(), 60000);
    QVERIFY(client.received == data);
}

void tst_FerruleProxyTunnel::manyTunnelsAtOnce()
{
    constexpr int CLIENTS = 50;
    EchoServer server;
    ProxyProgram proxy;
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < CLIENTS; ++i)
        clients.push_back(std::make_unique<RawClient>(proxy.port()));
    for (int i = 0; i < CLIENTS; ++i)
        clients[i]->write(connectRequest(server.serverPort()) + randomBytes(256 * 1024, 100 + i));
    for (int i = 0; i < CLIENTS; ++i) {
        const QByteArray expected = ESTABLISHED + randomBytes(256 * 1024, 100 + i);
        QTRY_COMPARE_WITH_TIMEOUT(clients[i]->received.size(), expected.size(), 60000);
        QVERIFY(clients[i]->received == expected);
    }
    clients.clear();
    for (const QObject* child : server.children()) {
        if (const auto* socket = qobject_cast<const QTcpSocket*>(child))
            QTRY_COMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    }
    QVERIFY(QTest::qWaitFor([&] {
        return proxy.output().count(" 200 up 262144 down 262144: closed by the client\n")
               == CLIENTS;
    }));
}

void tst_FerruleProxyTunnel::clientThatLeavesEndsTheTunnel()
{
    EchoServer server;
    ProxyProgram proxy;
    {
        RawClient client(proxy.port());
        client.write(connectRequest(server.serverPort()) + "12345");
        QTRY_COMPARE(client.received, ESTABLISHED + "12345");
    }
    QVERIFY2(proxy.waitForOutput(" 200 up 5 down 5: closed by the client\n"),
             proxy.output().constData());
}

QTEST_GUILESS_MAIN(tst_FerruleProxyTunnel)

#include "tst_ferruleproxytunnel.moc"

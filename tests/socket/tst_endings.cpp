// SPDX-License-Identifier: BSD-3-Clause
// What still leaves when a connection ends, and what the device is like afterwards.

#include "BareConnection.h"
#include "EventWait.h"
#include "TcpPair.h"
#include "tests/common/TlsServer.h"
#include "tests/common/Wine.h"

#include <Ferrule/SslProxySocket.h>

using test::atMostTls12;
using test::BareConnection;
using test::BareServer;
using test::EnginePeer;
using test::endSending;
using test::TcpPair;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");

int count(const QStringList& log, const char* entry)
{
    return log.filter(QLatin1String(entry)).size();
}

//! Returns a ServerHello with a cipher that nobody offers any more.
QByteArray unwantedServerHello()
{
    const QByteArray body = QByteArray::fromHex("0303") + QByteArray(32, 'r')
                            + QByteArray::fromHex("00") + QByteArray::fromHex("000100");
    const auto length = static_cast<char>(body.size());
    return QByteArray::fromHex("16030300") + static_cast<char>(length + 4)
           + QByteArray::fromHex("020000") + length + body;
}

//! A server of the library that its peer, OpenSSL alone, has connected to.
struct ServedPeer
{
    explicit ServedPeer(unsigned long options = 0, const char* peerCiphers = nullptr)
        : identity(test::makeIdentity(test::CertificateSpec()))
        , socket(SslSocket::Server)
    {
        socket.setPathToCertificate(directory.writeCertificate(QStringLiteral("c"), identity));
        socket.setPathToPrivateKey(directory.writeKey(QStringLiteral("k"), identity));
        const TcpPair pair;
        socket.setSocket(pair.near);
        peer = std::make_unique<EnginePeer>(EnginePeer::Client, pair.far, test::Identity(), options,
                                            peerCiphers);
    }

    bool settle()
    {
        return QTest::qWaitFor([this] {
            return peer->isHandshakeDone() && socket.state() == QAbstractSocket::ConnectedState;
        });
    }

    test::Identity identity;
    test::PemDirectory directory;
    SslSocket socket;
    std::unique_ptr<EnginePeer> peer;
};

} // namespace

class EndingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersLeaveBeforeTheGoodbyeIsFollowed_data();
    void answersLeaveBeforeTheGoodbyeIsFollowed();
    void alertOfAFailedHandshakeReachesThePeer_data();
    void alertOfAFailedHandshakeReachesThePeer();
    void alertOfADamagedRecordReachesThePeer_data();
    void alertOfADamagedRecordReachesThePeer();
    void failureIsReportedWhenTheAlertCannotBeSent();
    void nothingIsReportedToAHostThatHasClosed();
    void deviceIsClosedAfterClose_data();
    void deviceIsClosedAfterClose();
    void deviceStaysOpenForAConnectionBegunWhileClosing_data();
    void deviceStaysOpenForAConnectionBegunWhileClosing();
    void dataWaitsWhileThePeerRenegotiates_data();
    void dataWaitsWhileThePeerRenegotiates();
    void waitForBytesWrittenWhileThePeerRenegotiates();
};

void EndingsTest::answersLeaveBeforeTheGoodbyeIsFollowed_data()
{
    QTest::addColumn<bool>("server");
    QTest::addColumn<int>("size");
    for (const bool server : {false, true}) {
        for (const int size : {1, 4096, 4097, 60000, 1000000})
            QTest::addRow("%s, %d bytes", server ? "server" : "client", size) << server << size;
    }
}

// Data, goodbye and the end of the stream at once, echoed as every piece comes.
void EndingsTest::answersLeaveBeforeTheGoodbyeIsFollowed()
{
    QFETCH(bool, server);
    QFETCH(int, size);
    std::unique_ptr<BareConnection> connection;
    std::unique_ptr<ServedPeer> served;
    if (server) {
        served = std::make_unique<ServedPeer>();
        QVERIFY(served->settle());
    } else {
        connection = std::make_unique<BareConnection>();
        QVERIFY(connection->settled);
    }
    SslSocket& socket = server ? served->socket : connection->client;
    EnginePeer& peer = server ? *served->peer : connection->peer();
    const test::SignalLog log(&socket);
    QByteArray received;
    connect(&socket, &QIODevice::readyRead, this, [&] {
        const QByteArray piece = socket.readAll();
        received += piece;
        socket.write(piece);
    });
    QByteArray sent(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        sent[i] = static_cast<char>(i / 4096 + i);
    peer.hold(true);
    peer.write(sent);
    peer.sendCloseNotify();
    peer.hold(false);
    // Sent by the event loop where it is too much for the system at once.
    QTRY_COMPARE(peer.transport()->bytesToWrite(), 0);
    endSending(peer.transport());
    QTRY_VERIFY(log.contains(QStringLiteral("disconnected")));
    QTRY_COMPARE(peer.transport()->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(received == sent);
    QVERIFY2(peer.received() == sent, qPrintable(QString::number(peer.received().size())));
    QVERIFY2(count(log, "error") == 0, qPrintable(log.join(u' ')));
}

void EndingsTest::alertOfAFailedHandshakeReachesThePeer_data()
{
    QTest::addColumn<bool>("server");
    QTest::addColumn<int>("how");
    for (const bool server : {true, false}) {
        const char* const ways[] = {"close", "abort", "disconnectFromHost", "deleteLater"};
        for (int how = 0; how < 4; ++how)
            QTest::addRow("%s, %s", server ? "server" : "client", ways[how]) << server << how;
    }
}

void EndingsTest::alertOfAFailedHandshakeReachesThePeer()
{
    QFETCH(bool, server);
    QFETCH(int, how);
    const auto end = [how](SslSocket* socket) {
        if (how == 0)
            socket->close();
        else if (how == 1)
            socket->state() == QAbstractSocket::UnconnectedState ? socket->close()
                                                                 : socket->abort();
        else if (how == 2)
            socket->disconnectFromHost();
        else
            socket->deleteLater();
    };
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    test::TlsServer tlsServer(identity);
    // A client that the server has nothing in common with, and a server that answers nonsense.
    std::unique_ptr<EnginePeer> peer;
    std::unique_ptr<SslSocket> client;
    if (server) {
        tlsServer.configure = [](SslSocket* socket) {
            socket->setCiphers(QStringLiteral("ECDHE-ECDSA-AES256-GCM-SHA384"));
        };
        connect(&tlsServer, &test::TlsServer::accepted, this, [end](SslSocket* socket) {
            connect(socket, &QAbstractSocket::errorOccurred, socket,
                    [end, socket] { end(socket); });
        });
        auto* transport = new QTcpSocket;
        transport->connectToHost(QHostAddress::LocalHost, tlsServer.serverPort());
        peer = std::make_unique<EnginePeer>(EnginePeer::Client, transport, test::Identity(),
                                            atMostTls12(), "ECDHE-ECDSA-AES128-GCM-SHA256");
        QTRY_VERIFY(!peer->failure().isEmpty());
        QVERIFY2(peer->failure().contains("handshake failure"), peer->failure());
        return;
    }
    QTcpServer listener;
    test::listenOnFreshPort(&listener);
    QByteArray answer;
    bool ended = false;
    connect(&listener, &QTcpServer::newConnection, this, [&] {
        QTcpSocket* transport = listener.nextPendingConnection();
        connect(transport, &QIODevice::readyRead, this, [&answer, &ended, transport] {
            if (answer.isEmpty())
                transport->write(unwantedServerHello());
            answer += transport->readAll();
        });
        connect(transport, &QAbstractSocket::disconnected, this, [&ended] { ended = true; });
    });
    client = std::make_unique<SslSocket>(SslSocket::Client);
    QPointer<SslSocket> socket = client.get();
    if (how == 3)
        client.release();
    connect(socket, &QAbstractSocket::errorOccurred, this, [end, socket] { end(socket); });
    socket->connectToHost(LOCALHOST, listener.serverPort());
    QTRY_VERIFY(ended);
    // The last record is an alert: fatal, illegal parameter.
    QCOMPARE(answer.right(7).left(1).toHex(), QByteArray("15"));
    QCOMPARE(answer.right(2).toHex(), QByteArray("022f"));
}

void EndingsTest::alertOfADamagedRecordReachesThePeer_data()
{
    QTest::addColumn<ulong>("options");
    QTest::newRow("newest version") << 0UL;
    QTest::newRow("TLS 1.2") << atMostTls12();
}

void EndingsTest::alertOfADamagedRecordReachesThePeer()
{
    QFETCH(ulong, options);
    BareConnection connection(options);
    QVERIFY(connection.settled);
    EnginePeer& peer = connection.peer();
    connect(&connection.client, &QAbstractSocket::errorOccurred, this,
            [&] { connection.client.close(); });
    peer.hold(true);
    peer.write("damaged on the way");
    QByteArray record = peer.takePending();
    record[record.size() - 1] = static_cast<char>(~record.at(record.size() - 1));
    peer.hold(false);
    peer.transport()->write(record);
    QTRY_VERIFY(!peer.failure().isEmpty());
    QVERIFY2(peer.failure().contains("bad record mac"), peer.failure());
    QCOMPARE(count(connection.log, "error"), 1);
    QVERIFY(!connection.client.isOpen());
}

// The peer has aborted the connection; the failure of TLS came first and is told as well.
void EndingsTest::failureIsReportedWhenTheAlertCannotBeSent()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = connection.peer();
    QStringList texts;
    connect(&connection.client, &QAbstractSocket::errorOccurred, this,
            [&] { texts.append(connection.client.errorString()); });
    peer.transport()->write(QByteArray("\x17\x03\x03\x00\x05never", 10));
    test::sendNow(peer.transport());
    peer.transport()->abort();
    QTRY_VERIFY(!texts.isEmpty());
    test::noticeEnd(connection.client.socket());
    QTRY_VERIFY(connection.log.contains(QStringLiteral("disconnected")));
    QVERIFY2(texts.filter(QStringLiteral("Failed to read from SSL, error:")).size() == 1,
             qPrintable(texts.join(u'\n')));
}

// The alert meets a connection that the peer has reset, whose end is told, and closed upon, first.
void EndingsTest::nothingIsReportedToAHostThatHasClosed()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    QTcpSocket* transport = connection.peer().transport();
    QStringList afterwards;
    bool closed = false;
    connect(&client, &QAbstractSocket::errorOccurred, this, [&] {
        if (closed)
            afterwards.append(client.errorString());
    });
    connect(&client, &QAbstractSocket::disconnected, this, [&] {
        client.close();
        closed = true;
    });
    // What the peer has not read when it closes makes the system reset the connection.
    transport->blockSignals(true);
    transport->setReadBufferSize(1);
    client.write(QByteArray(200000, 'x'));
    QCoreApplication::sendPostedEvents(&client);
    test::sendNow(client.socket());
    transport->write(QByteArray("\x17\x03\x03\x00\x05never", 10));
    test::sendNow(transport);
    transport->abort();
    QTRY_VERIFY((test::noticeEnd(client.socket()), closed));
    test::settle();
    QVERIFY2(afterwards.isEmpty(), qPrintable(afterwards.join(u'\n')));
}

void EndingsTest::deviceIsClosedAfterClose_data()
{
    QTest::addColumn<bool>("aborting");
    QTest::addColumn<bool>("inDisconnected");
    QTest::newRow("close, disconnected") << false << true;
    QTest::newRow("close, UnconnectedState") << false << false;
    QTest::newRow("abort, disconnected") << true << true;
    QTest::newRow("abort, UnconnectedState") << true << false;
}

// Hosts tidy up with disconnectFromHost() in their slots.
void EndingsTest::deviceIsClosedAfterClose()
{
    QFETCH(bool, aborting);
    QFETCH(bool, inDisconnected);
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    int slotCalls = 0;
    const auto tidy = [&] {
        if (++slotCalls == 1)
            client.disconnectFromHost();
    };
    if (inDisconnected) {
        connect(&client, &QAbstractSocket::disconnected, this, tidy);
    } else {
        connect(&client, &QAbstractSocket::stateChanged, this,
                [tidy](QAbstractSocket::SocketState state) {
                    if (state == QAbstractSocket::UnconnectedState)
                        tidy();
                });
    }
    if (aborting)
        client.abort();
    else
        client.close();
    QVERIFY(slotCalls > 0);
    QVERIFY(!client.isOpen());
    QCOMPARE(client.write("nobody takes this"), -1);
    QCOMPARE(client.state(), QAbstractSocket::UnconnectedState);
}

void EndingsTest::deviceStaysOpenForAConnectionBegunWhileClosing_data()
{
    QTest::addColumn<bool>("disconnecting");
    QTest::newRow("connectToHost") << false;
    QTest::newRow("disconnectFromHost, connectToHost") << true;
}

void EndingsTest::deviceStaysOpenForAConnectionBegunWhileClosing()
{
    QFETCH(bool, disconnecting);
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    bool again = true;
    connect(&client, &QAbstractSocket::disconnected, this, [&] {
        if (!std::exchange(again, false))
            return;
        if (disconnecting)
            client.disconnectFromHost();
        client.connectToHost(LOCALHOST, connection.server.serverPort());
    });
    client.close();
    QVERIFY(client.isOpen());
    QTRY_COMPARE(connection.log.count(QStringLiteral("connected")), 1);
    client.write("by the new connection");
    QTRY_COMPARE(connection.peer().received(), QByteArray("by the new connection"));
}

void EndingsTest::dataWaitsWhileThePeerRenegotiates_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 5000, 100000})
        QTest::addRow("%d bytes", size) << size;
}

// The client has answered the request with a ClientHello and waits for the server to go on.
void EndingsTest::dataWaitsWhileThePeerRenegotiates()
{
    QFETCH(int, size);
    BareConnection connection(atMostTls12());
    QVERIFY(connection.settled);
    EnginePeer& peer = connection.peer();
    QCOMPARE(SSL_renegotiate(peer.ssl()), 1);
    QCOMPARE(SSL_do_handshake(peer.ssl()), 1);
    peer.transport()->blockSignals(true);
    peer.transport()->write(peer.takePending());
    // The answer has arrived, and nobody has looked at it.
    QTRY_VERIFY(peer.transport()->bytesAvailable() > 0);
    connection.client.write(QByteArray(size, 'x'));
    QCoreApplication::sendPostedEvents(&connection.client);
    QCOMPARE(count(connection.log, "error"), 0);
    QCOMPARE(connection.client.bytesToWrite(), size);
    connection.client.write("behind");
    QCoreApplication::sendPostedEvents(&connection.client);
    peer.transport()->blockSignals(false);
    peer.process();
    QTRY_COMPARE(peer.received().size(), size + 6);
    QVERIFY(peer.received().endsWith("xbehind"));
    QCOMPARE(count(connection.log, "error"), 0);
    QCOMPARE(connection.client.bytesToWrite(), 0);
}

void EndingsTest::waitForBytesWrittenWhileThePeerRenegotiates()
{
    BareConnection connection(atMostTls12());
    QVERIFY(connection.settled);
    EnginePeer& peer = connection.peer();
    QCOMPARE(SSL_renegotiate(peer.ssl()), 1);
    QCOMPARE(SSL_do_handshake(peer.ssl()), 1);
    peer.transport()->blockSignals(true);
    peer.transport()->write(peer.takePending());
    QTRY_VERIFY(peer.transport()->bytesAvailable() > 0);
    connection.client.write("waits");
    peer.transport()->blockSignals(false);
    peer.process();
    test::sendNow(peer.transport());
    QVERIFY(connection.client.waitForBytesWritten(5000));
    QTRY_COMPARE(peer.received(), QByteArray("waits"));
    QCOMPARE(count(connection.log, "error"), 0);
}

QTEST_GUILESS_MAIN(EndingsTest)
#include "tst_endings.moc"

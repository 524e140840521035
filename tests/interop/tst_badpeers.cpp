// SPDX-License-Identifier: BSD-3-Clause
// What a host is told when the other side is not there, does not speak TLS, or falls silent.

#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/interop/EngineOracle.h"
#include "tests/interop/ErrorLog.h"
#include "tests/interop/TlsPeers.h"

#include <QtNetwork/QTcpServer>

using test::ErrorLog;
using test::Role;
using vela::SslSocket;

namespace {

const QByteArray HTTP_ANSWER = QByteArrayLiteral("HTTP/1.1 400 Bad Request\r\n\r\n");
const QByteArray HTTP_REQUEST = QByteArrayLiteral("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
const QByteArray ALERT = QByteArray::fromHex("15030100020228"); // Fatal: handshake failure.
const QString REMOTE_CLOSED = QStringLiteral("The remote host closed the connection");

// Ends of a connection, as a plain socket signals them.
const QStringList CLOSED_CLEANLY{QStringLiteral("state Closing"),
                                 QStringLiteral("state Unconnected"),
                                 QStringLiteral("disconnected")};
const QStringList CLOSED_BY_PEER = QStringList{QStringLiteral("error 1")} + CLOSED_CLEANLY;
const QStringList TLS_FAILURE{QStringLiteral("error -1"), QStringLiteral("error -1")};
const QStringList CONNECTING{QStringLiteral("state HostLookup"),
                             QStringLiteral("state Connecting")};

QByteArray garbage()
{
    QByteArray bytes(512, Qt::Uninitialized);
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(0xC1 ^ (i * 37));
    return bytes;
}

//! A record that says that it is of the handshake, and is not.
QByteArray garbageInRecord()
{
    return QByteArray::fromHex("1603010200") + garbage();
}

//! Returns what a socket says when the engine says this in the handshake and in reading after it.
QStringList errorTexts(const QStringList& engineErrors)
{
    QStringList texts;
    if (!engineErrors.isEmpty())
        texts.append(QStringLiteral("SSL error: ") + engineErrors.first());
    for (int i = 1; i < engineErrors.size(); ++i)
        texts.append(QStringLiteral("Failed to read from SSL, ") + engineErrors.at(i));
    return texts;
}

/*!
    A server that speaks no TLS: runs `act` with each connection once the client has spoken, or at
    once when `early`.
*/
class RawServer : public QTcpServer
{
public:
    RawServer(bool early, std::function<void(QTcpSocket*)> act)
    {
        connect(this, &QTcpServer::newConnection, this, [=] {
            QTcpSocket* peer = nextPendingConnection();
            if (early)
                act(peer);
            else
                connect(peer, &QIODevice::readyRead, this, [=] { act(peer); });
        });
        test::listenOnFreshPort(this);
    }
};

} // namespace

class tst_BadPeers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unknownHostIsNotFound();
    void closedPortIsRefused();
    void clientHearsThatServerCloses_data();
    void clientHearsThatServerCloses();
    void clientTellsWhatServerSaidWrong_data();
    void clientTellsWhatServerSaidWrong();
    void serverHearsThatClientCloses_data();
    void serverHearsThatClientCloses();
    void serverTellsWhatClientSaidWrong_data();
    void serverTellsWhatClientSaidWrong();

private:
    static void closeWithinFlight(QTcpSocket* peer, const test::Identity& identity);
    static void reachGoodServer(SslSocket* client);
};

/*! A client that had trouble reaches a good server like a new one. */
void tst_BadPeers::reachGoodServer(SslSocket* client)
{
    test::TlsServer server;
    QSignalSpy connected(client, &QAbstractSocket::connected);
    QSignalSpy errors(client, &QAbstractSocket::errorOccurred);
    client->connectToHost(QStringLiteral("localhost"), server.serverPort());
    QVERIFY2(connected.wait(test::CONNECT_TIMEOUT_MS), qPrintable(client->errorString()));
    QTRY_COMPARE(server.lastSocket()->state(), QAbstractSocket::ConnectedState);
    QSignalSpy ready(client, &QIODevice::readyRead);
    server.lastSocket()->write("well");
    QVERIFY(ready.wait(test::CONNECT_TIMEOUT_MS));
    QCOMPARE(client->readAll(), QByteArrayLiteral("well"));
    QCOMPARE(connected.count(), 1);
    QVERIFY(errors.isEmpty());
    client->abort();
}

void tst_BadPeers::unknownHostIsNotFound()
{
    SslSocket client(SslSocket::Client);
    ErrorLog log(&client);
    client.connectToHost(QStringLiteral("nonexistent.invalid"), 443);
    QVERIFY(log.waitForErrors(1));
    QCOMPARE(log.signalled,
             QStringList({QStringLiteral("state HostLookup"), QStringLiteral("state Unconnected"),
                          QStringLiteral("error %1").arg(QAbstractSocket::HostNotFoundError)}));
    QCOMPARE(log.texts, QStringList{QStringLiteral("Host not found")});
    QCOMPARE(client.state(), QAbstractSocket::UnconnectedState);
    reachGoodServer(&client);
}

void tst_BadPeers::closedPortIsRefused()
{
    quint16 port = 0;
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        port = server.serverPort();
    }
    SslSocket client(SslSocket::Client);
    ErrorLog log(&client);
    client.connectToHost(QStringLiteral("127.0.0.1"), port);
    QVERIFY(log.waitForErrors(1));
    QCOMPARE(log.signalled,
             CONNECTING
                 + QStringList(
                     {QStringLiteral("state Unconnected"),
                      QStringLiteral("error %1").arg(QAbstractSocket::ConnectionRefusedError)}));
    QCOMPARE(log.texts, QStringList{QStringLiteral("Connection refused")});
    reachGoodServer(&client);
}

void tst_BadPeers::clientHearsThatServerCloses_data()
{
    QTest::addColumn<int>("moment");
    QTest::newRow("at once") << 0;
    QTest::newRow("after the client hello") << 1;
    QTest::newRow("within its own flight") << 2;
}

//! Answers the client's first bytes with half of what a server would, then closes.
void tst_BadPeers::closeWithinFlight(QTcpSocket* peer, const test::Identity& identity)
{
    auto* engine = new test::EnginePeer(test::EnginePeer::Server, peer, identity);
    engine->hold(true);
    connect(peer, &QIODevice::readyRead, engine, [=] {
        const QByteArray flight = engine->takePending();
        QVERIFY(flight.size() > 100);
        peer->write(flight.left(flight.size() / 2));
        peer->disconnectFromHost();
    });
    connect(peer, &QAbstractSocket::disconnected, engine, &QObject::deleteLater);
}

void tst_BadPeers::clientHearsThatServerCloses()
{
    QFETCH(int, moment);
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    RawServer server(moment != 1, [=](QTcpSocket* peer) {
        if (moment == 2) {
            closeWithinFlight(peer, identity);
            return;
        }
        peer->readAll();
        peer->disconnectFromHost();
    });
    SslSocket client(SslSocket::Client);
    ErrorLog log(&client);
    client.connectToHost(QStringLiteral("127.0.0.1"), server.serverPort());
    QVERIFY(log.waitFor(QStringLiteral("disconnected")));
    QCOMPARE(log.signalled, CONNECTING + CLOSED_BY_PEER);
    QCOMPARE(log.texts, QStringList{REMOTE_CLOSED});
    QCOMPARE(log.olderErrors(), 1);
    reachGoodServer(&client);
}

void tst_BadPeers::clientTellsWhatServerSaidWrong_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("plain HTTP") << HTTP_ANSWER;
    QTest::newRow("garbage") << garbage();
    QTest::newRow("garbage in a record") << garbageInRecord();
    QTest::newRow("alert") << ALERT;
}

void tst_BadPeers::clientTellsWhatServerSaidWrong()
{
    QFETCH(QByteArray, answer);
    const QStringList expected = errorTexts(test::engineErrors(Role::Client, answer));
    QVERIFY(!expected.isEmpty());
    QTcpSocket* connection = nullptr;
    RawServer server(false, [&](QTcpSocket* peer) {
        connection = peer;
        peer->readAll();
        peer->write(answer);
        peer->disconnect();
    });
    SslSocket client(SslSocket::Client);
    ErrorLog log(&client);
    client.connectToHost(QStringLiteral("127.0.0.1"), server.serverPort());
    QVERIFY(log.waitForErrors(expected.size()));
    QCOMPARE(log.texts, expected);
    QStringList signalled = CONNECTING;
    if (expected.size() == 1) { // To some engines a fatal alert is the peer's goodbye as well.
        signalled << QStringLiteral("error -1") << CLOSED_CLEANLY;
    } else {
        QCOMPARE(log.signalled, CONNECTING + TLS_FAILURE);
        connection->disconnectFromHost();
        signalled << TLS_FAILURE << CLOSED_BY_PEER;
    }
    QVERIFY(log.waitFor(QStringLiteral("disconnected")));
    QCOMPARE(log.signalled, signalled);
    QCOMPARE(log.olderErrors(), signalled.filter(QStringLiteral("error")).size());
    reachGoodServer(&client);
}

void tst_BadPeers::serverHearsThatClientCloses_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("at once") << QByteArray();
    QTest::newRow("within a record's header") << QByteArray::fromHex("160301");
    QTest::newRow("within its hello") << QByteArray::fromHex("16030100400100003c0303");
}

void tst_BadPeers::serverHearsThatClientCloses()
{
    QFETCH(QByteArray, request);
    test::TlsServer server;
    std::unique_ptr<ErrorLog> log;
    server.configure = [&](SslSocket* socket) { log.reset(new ErrorLog(socket)); };
    QTcpSocket client;
    client.connectToHost(QHostAddress(QHostAddress::LocalHost), server.serverPort());
    QVERIFY(client.waitForConnected());
    QTRY_VERIFY(log);
    client.write(request);
    client.disconnectFromHost();
    QVERIFY(log->waitFor(QStringLiteral("disconnected")));
    QCOMPARE(log->signalled, CLOSED_BY_PEER);
    QCOMPARE(log->texts, QStringList{REMOTE_CLOSED});
    QCOMPARE(log->olderErrors(), 1);
}

void tst_BadPeers::serverTellsWhatClientSaidWrong_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("plain HTTP") << HTTP_REQUEST;
    QTest::newRow("garbage") << garbage();
    QTest::newRow("garbage in a record") << garbageInRecord();
    // Two, since OpenSSL 1.0.2 waits for more than the seven octets of one.
    QTest::newRow("alerts") << ALERT + ALERT;
}

void tst_BadPeers::serverTellsWhatClientSaidWrong()
{
    QFETCH(QByteArray, request);
    const QStringList expected = errorTexts(test::engineErrors(Role::Server, request));
    QCOMPARE(expected.size(), 2);
    test::TlsServer server;
    std::unique_ptr<ErrorLog> log;
    server.configure = [&](SslSocket* socket) {
        if (!log)
            log.reset(new ErrorLog(socket));
    };
    QTcpSocket bad;
    bad.connectToHost(QHostAddress(QHostAddress::LocalHost), server.serverPort());
    bad.write(request);
    QTRY_VERIFY(log);
    QVERIFY(log->waitForErrors(2));
    QCOMPARE(log->signalled, TLS_FAILURE);
    QCOMPARE(log->texts, expected);

    // The next client is served.
    SslSocket good(SslSocket::Client);
    QSignalSpy connected(&good, &QAbstractSocket::connected);
    good.connectToHost(QStringLiteral("localhost"), server.serverPort());
    QVERIFY2(connected.wait(test::CONNECT_TIMEOUT_MS), qPrintable(good.errorString()));
}

QTEST_GUILESS_MAIN(tst_BadPeers)
#include "tst_badpeers.moc"

// SPDX-License-Identifier: BSD-3-Clause
// Hosts that wait, and that wait where an event loop would be expected.

#include "BareConnection.h"
#include "EventWait.h"
#include "tests/common/TlsServer.h"

using test::atMostTls12;
using test::BareConnection;
using test::BareServer;
using test::EnginePeer;
using test::sendNow;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");

// How long the waits may take that are to end at once, and how long they would wait in vain.
constexpr int SHORT_MSECS = 2000;
constexpr int LONG_MSECS = 8000;

enum class Within {
    Verdict,
    FirstConnectedState,
    SecondConnectedState,
    Connected,
    ReadyRead
};

//! Calls \a act on the first emission of the signal that \a within names.
void actOnce(SslSocket* socket, Within within, const std::function<void()>& act)
{
    auto emissions = std::make_shared<int>(0);
    const auto at = [emissions, act](int which) {
        if (++*emissions == which)
            act();
    };
    switch (within) {
    case Within::Verdict:
        QObject::connect(socket, &SslSocket::connectionVerificationDone, socket, [at] { at(1); });
        break;
    case Within::FirstConnectedState:
    case Within::SecondConnectedState:
        QObject::connect(socket, &QAbstractSocket::stateChanged, socket,
                         [at, within](QAbstractSocket::SocketState state) {
                             if (state == QAbstractSocket::ConnectedState)
                                 at(within == Within::FirstConnectedState ? 1 : 2);
                         });
        break;
    case Within::Connected:
        QObject::connect(socket, &QAbstractSocket::connected, socket, [at] { at(1); });
        break;
    case Within::ReadyRead:
        QObject::connect(socket, &QIODevice::readyRead, socket, [at] { at(1); });
        break;
    }
}

void addHandshakeRows()
{
    QTest::addColumn<bool>("server");
    QTest::addColumn<Within>("within");
    QTest::addColumn<ulong>("options");
    const std::pair<const char*, Within> signalRows[] = {
        {"verdict", Within::Verdict},
        {"first ConnectedState", Within::FirstConnectedState},
        {"second ConnectedState", Within::SecondConnectedState},
    };
    for (const bool server : {false, true}) {
        for (const auto& row : signalRows) {
            for (const ulong options : {atMostTls12(), 0UL}) {
                QTest::addRow("%s, %s, %s", server ? "server" : "client", row.first,
                              options ? "TLS 1.2" : "newest version")
                    << server << row.second << options;
                if (atMostTls12() == 0)
                    break;
            }
        }
    }
}

int count(const QStringList& log, const char* entry)
{
    return log.filter(QLatin1String(entry)).size();
}

} // namespace

Q_DECLARE_METATYPE(Within)

class WaitingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void waitBeforeConnectedLeavesTheFinishedHandshakeAlone_data() { addHandshakeRows(); }
    void waitBeforeConnectedLeavesTheFinishedHandshakeAlone();
    void handshakeStepInTheVerdictLeavesTheFinishedHandshakeAlone();
    void waitInTheVerdictReturnsAtOnce();
    void sendingIsWaitedForWhileDataComesIn_data();
    void sendingIsWaitedForWhileDataComesIn();
    void goodbyeEndsAWait_data();
    void goodbyeEndsAWait();
    void waitInReadyReadFindsTheRestOfTheRecord();
    void waitInReadyReadFindsWhatTheInnerSocketHolds();
    void waitInTheErrorOfTlsDoesNotRepeatIt();
    void waitsInReadyReadDoNotNest();
    void waitsInTheErrorOfTlsDoNotNest_data();
    void waitsInTheErrorOfTlsDoNotNest();
    void failureEndsAWaitForSending();
    void waitForSendingAfterAFailureReturnsAtOnce_data();
    void waitForSendingAfterAFailureReturnsAtOnce();
    void handshakeStepInTheErrorOfTlsIsNotEndless();
};

// The greeting follows the end of the handshake at once.
void WaitingTest::waitBeforeConnectedLeavesTheFinishedHandshakeAlone()
{
    QFETCH(bool, server);
    QFETCH(Within, within);
    QFETCH(ulong, options);
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    BareServer bareServer(identity, options);
    test::TlsServer tlsServer(identity);
    std::unique_ptr<EnginePeer> peerOfServer;
    EnginePeer* peer = nullptr;
    SslSocket client(SslSocket::Client);
    SslSocket* socket = &client;
    const auto greet = [&peer] {
        peer->write("greeting");
        sendNow(peer->transport());
    };
    const auto wait = [&] {
        if (peer->isHandshakeDone() && !server)
            greet();
        socket->waitForReadyRead(200);
    };
    std::unique_ptr<test::SignalLog> log;
    const auto watch = [&] {
        log = std::make_unique<test::SignalLog>(socket);
        actOnce(socket, within, wait);
    };
    if (server) {
        connect(&tlsServer, &test::TlsServer::accepted, this, [&](SslSocket* accepted) {
            socket = accepted;
            watch();
        });
        auto* transport = new QTcpSocket;
        transport->connectToHost(QHostAddress::LocalHost, tlsServer.serverPort());
        peerOfServer =
            std::make_unique<EnginePeer>(EnginePeer::Client, transport, test::Identity(), options);
        peer = peerOfServer.get();
        connect(peer, &EnginePeer::handshakeDone, this, greet);
    } else {
        bareServer.prepare = [&] { peer = bareServer.peer.get(); };
        watch();
        client.connectToHost(LOCALHOST, bareServer.serverPort());
    }
    QTRY_VERIFY(log && log->contains(QStringLiteral("connected")) && peer->isHandshakeDone());
    socket->write("answer");
    QTRY_COMPARE(peer->received(), QByteArray("answer"));
    QCOMPARE(count(*log, "verdict"), 1);
    QCOMPARE(log->count(QStringLiteral("connected")), 1);
    QCOMPARE(count(*log, "error -1"), 0);
    if (server || options != 0) {
        QTRY_COMPARE(socket->bytesAvailable(), 8);
        QCOMPARE(socket->readAll(), QByteArray("greeting"));
    }
}

void WaitingTest::handshakeStepInTheVerdictLeavesTheFinishedHandshakeAlone()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()), atMostTls12());
    SslSocket client(SslSocket::Client);
    const test::SignalLog log(&client);
    bool done = false;
    actOnce(&client, Within::Verdict, [&] { done = client.sslConnect(); });
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(log.contains(QStringLiteral("connected")));
    QVERIFY(done);
    server.peer->write("greeting");
    QTRY_COMPARE(client.bytesAvailable(), 8);
    QCOMPARE(client.readAll(), QByteArray("greeting"));
    QCOMPARE(count(log, "verdict"), 1);
    QCOMPARE(count(log, "error"), 0);
}

// There is nothing that it could wait for: no data flows before the host has judged the peer.
void WaitingTest::waitInTheVerdictReturnsAtOnce()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    const test::SignalLog log(&client);
    bool waited = true;
    qint64 elapsed = LONG_MSECS;
    actOnce(&client, Within::Verdict, [&] {
        QElapsedTimer timer;
        timer.start();
        waited = client.waitForReadyRead(LONG_MSECS);
        elapsed = timer.elapsed();
    });
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(log.contains(QStringLiteral("connected")));
    QVERIFY(!waited);
    QVERIFY(elapsed < SHORT_MSECS);
    QCOMPARE(count(log, "error"), 0);
}

void WaitingTest::sendingIsWaitedForWhileDataComesIn_data()
{
    QTest::addColumn<bool>("inner");
    QTest::addColumn<bool>("answering");
    QTest::newRow("the socket") << false << false;
    QTest::newRow("the socket, answering") << false << true;
    QTest::newRow("the inner socket") << true << false;
    QTest::newRow("the inner socket, answering") << true << true;
}

void WaitingTest::sendingIsWaitedForWhileDataComesIn()
{
    QFETCH(bool, inner);
    QFETCH(bool, answering);
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    if (answering) {
        connect(&client, &QIODevice::readyRead, this,
                [&client] { client.write("answer to " + client.readAll()); });
    }
    for (int round = 0; round < 5; ++round) {
        client.write("request");
        QCoreApplication::sendPostedEvents(&client);
        connection.peer().write("push");
        sendNow(connection.peer().transport());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(inner ? client.socket()->waitForBytesWritten(LONG_MSECS)
                      : client.waitForBytesWritten(LONG_MSECS));
        QVERIFY(timer.elapsed() < SHORT_MSECS);
        QVERIFY2(count(connection.log, "error") == 0, qPrintable(connection.log.join(u' ')));
        QTRY_COMPARE(connection.peer().received().count("request"), round + 1);
    }
}

void WaitingTest::goodbyeEndsAWait_data()
{
    QTest::addColumn<Within>("within");
    QTest::addColumn<bool>("nested");
    QTest::newRow("in readyRead") << Within::ReadyRead << false;
    QTest::newRow("in connected") << Within::Connected << false;
    QTest::newRow("in the second ConnectedState") << Within::SecondConnectedState << false;
    QTest::newRow("in an event loop in readyRead") << Within::ReadyRead << true;
    QTest::newRow("in an event loop in connected") << Within::Connected << true;
}

void WaitingTest::goodbyeEndsAWait()
{
    QFETCH(Within, within);
    QFETCH(bool, nested);
    BareServer server(test::makeIdentity(test::CertificateSpec()), atMostTls12());
    SslSocket client(SslSocket::Client);
    const test::SignalLog log(&client);
    bool waited = true;
    qint64 elapsed = LONG_MSECS;
    const auto wait = [&] {
        server.peer->sendCloseNotify();
        sendNow(server.peer->transport());
        QElapsedTimer timer;
        timer.start();
        waited = client.waitForReadyRead(LONG_MSECS);
        elapsed = timer.elapsed();
    };
    actOnce(&client, within, [&] {
        if (!nested) {
            wait();
            return;
        }
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] {
            wait();
            loop.quit();
        });
        loop.exec();
    });
    if (within == Within::ReadyRead) {
        server.prepare = [&] {
            connect(
                server.peer.get(), &EnginePeer::handshakeDone, this,
                [&] { server.peer->write("data"); }, Qt::QueuedConnection);
        };
    }
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(log.contains(QStringLiteral("disconnected")));
    QVERIFY(!waited);
    QVERIFY2(elapsed < SHORT_MSECS, qPrintable(QString::number(elapsed)));
    QVERIFY2(count(log, "error") == 0, qPrintable(log.join(u' ')));
    QCOMPARE(log.count(QStringLiteral("connected")), 1);
    QVERIFY(log.indexOf(QStringLiteral("connected"))
            < log.indexOf(QStringLiteral("state Closing")));
}

void WaitingTest::waitInReadyReadFindsTheRestOfTheRecord()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    bool waited = false;
    qint64 elapsed = LONG_MSECS;
    actOnce(&connection.client, Within::ReadyRead, [&] {
        QElapsedTimer timer;
        timer.start();
        waited = connection.client.waitForReadyRead(LONG_MSECS);
        elapsed = timer.elapsed();
    });
    connection.peer().write(QByteArray(10000, 'x'));
    QTRY_COMPARE(connection.client.bytesAvailable(), 10000);
    QVERIFY(waited);
    QVERIFY(elapsed < SHORT_MSECS);
}

void WaitingTest::waitInReadyReadFindsWhatTheInnerSocketHolds()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    bool waited = false;
    qint64 elapsed = LONG_MSECS;
    actOnce(&connection.client, Within::ReadyRead, [&] {
        connection.peer().write("second");
        sendNow(connection.peer().transport());
        QVERIFY(connection.client.socket()->waitForReadyRead(LONG_MSECS)); // In silence.
        QElapsedTimer timer;
        timer.start();
        waited = connection.client.waitForReadyRead(LONG_MSECS);
        elapsed = timer.elapsed();
    });
    connection.peer().write("first");
    QTRY_COMPARE(connection.client.bytesAvailable(), 11);
    QVERIFY(waited);
    QVERIFY(elapsed < SHORT_MSECS);
    QCOMPARE(connection.client.readAll(), QByteArray("firstsecond"));
}

void WaitingTest::waitInTheErrorOfTlsDoesNotRepeatIt()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connect(&connection.client, &QAbstractSocket::errorOccurred, this,
            [&](QAbstractSocket::SocketError error) {
                if (error == QAbstractSocket::UnknownSocketError && connection.log.size() < 20)
                    connection.client.waitForReadyRead(1);
            });
    connection.peer().hold(true);
    connection.peer().write("good");
    const QByteArray record = connection.peer().takePending();
    connection.peer().transport()->write(record + QByteArray("\x17\x03\x03\x00\x05never", 10));
    QTRY_VERIFY(connection.log.contains(QStringLiteral("error -1")));
    test::settle();
    QCOMPARE(count(connection.log, "error -1"), 1);
}

// As with QTcpSocket, whose readyRead() is not emitted within its slots. The stack is not without
// end, and each record of a large message would take its share of it.
void WaitingTest::waitsInReadyReadDoNotNest()
{
    constexpr int LENGTH = 500000;
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    int depth = 0;
    int deepest = 0;
    bool timedOut = false;
    connect(&client, &QIODevice::readyRead, this, [&] {
        deepest = std::max(deepest, ++depth);
        while (client.bytesAvailable() < LENGTH && !timedOut)
            timedOut = !client.waitForReadyRead(LONG_MSECS);
        --depth;
    });
    connection.peer().write(QByteArray(LENGTH, 'x'));
    QTRY_COMPARE(client.bytesAvailable(), LENGTH);
    QVERIFY(!timedOut);
    QCOMPARE(deepest, 1);
}

void WaitingTest::waitsInTheErrorOfTlsDoNotNest_data()
{
    QTest::addColumn<bool>("secured");
    QTest::newRow("in the handshake") << false;
    QTest::newRow("afterwards") << true;
}

// A peer that goes on sending must not fill the stack of a host that waits there.
void WaitingTest::waitsInTheErrorOfTlsDoNotNest()
{
    QFETCH(bool, secured);
    const QByteArray garbage(500000, 'z');
    BareServer bareServer(test::makeIdentity(test::CertificateSpec()));
    QTcpServer listener;
    test::listenOnFreshPort(&listener);
    connect(&listener, &QTcpServer::newConnection, this,
            [&] { listener.nextPendingConnection()->write(garbage); });
    SslSocket client(SslSocket::Client);
    int depth = 0;
    int deepest = 0;
    connect(&client, &QAbstractSocket::errorOccurred, this,
            [&](QAbstractSocket::SocketError error) {
                if (error != QAbstractSocket::UnknownSocketError)
                    return; // The wait has timed out.
                deepest = std::max(deepest, ++depth);
                client.waitForReadyRead(1);
                --depth;
            });
    client.connectToHost(LOCALHOST, secured ? bareServer.serverPort() : listener.serverPort());
    if (secured) {
        QTRY_VERIFY(bareServer.peer && bareServer.peer->isHandshakeDone());
        QTRY_COMPARE(client.state(), QAbstractSocket::ConnectedState);
        bareServer.peer->transport()->write(garbage);
    }
    QTRY_VERIFY(deepest > 0);
    test::settle();
    QCOMPARE(deepest, 1);
}

// An alert that is flushed while Qt waits leaves Qt nothing to wait for.
void WaitingTest::failureEndsAWaitForSending()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    client.write("request");
    QCoreApplication::sendPostedEvents(&client);
    connection.peer().transport()->write(QByteArray("\x17\x03\x03\x00\x05never", 10));
    sendNow(connection.peer().transport());
    for (int round = 0; round < 5 && count(connection.log, "error -1") == 0; ++round) {
        QElapsedTimer timer;
        timer.start();
        client.waitForBytesWritten(LONG_MSECS);
        QVERIFY2(timer.elapsed() < SHORT_MSECS, qPrintable(connection.log.join(u' ')));
        client.write("more");
    }
    QCOMPARE(count(connection.log, "error -1"), 1);
    QCOMPARE(count(connection.log, "error"), 1);
}

void WaitingTest::waitForSendingAfterAFailureReturnsAtOnce_data()
{
    QTest::addColumn<ulong>("options");
    QTest::newRow("newest version") << 0UL;
    QTest::newRow("TLS 1.2") << atMostTls12();
}

// There are engines that take nothing any more then, and nothing from the peer would change that.
void WaitingTest::waitForSendingAfterAFailureReturnsAtOnce()
{
    QFETCH(ulong, options);
    BareConnection connection(options);
    QVERIFY(connection.settled);
    connection.peer().transport()->write(QByteArray("\x17\x03\x03\x00\x05never", 10));
    QTRY_COMPARE(count(connection.log, "error -1"), 1);
    connection.client.write("nobody reads this");
    QElapsedTimer timer;
    timer.start();
    connection.client.waitForBytesWritten(LONG_MSECS);
    QVERIFY2(timer.elapsed() < SHORT_MSECS, qPrintable(connection.log.join(u' ')));
    QCOMPARE(count(connection.log, "error 5"), 0);
}

// A host that takes the slot for a way to try once more.
void WaitingTest::handshakeStepInTheErrorOfTlsIsNotEndless()
{
    QTcpServer listener;
    test::listenOnFreshPort(&listener);
    connect(&listener, &QTcpServer::newConnection, this,
            [&] { listener.nextPendingConnection()->write(QByteArray(100, 'z')); });
    SslSocket client(SslSocket::Client);
    int errors = 0;
    connect(&client, &QAbstractSocket::errorOccurred, this, [&] {
        if (++errors < 100)
            client.sslConnect();
    });
    client.connectToHost(LOCALHOST, listener.serverPort());
    QTRY_VERIFY(errors > 0);
    test::settle();
    QVERIFY2(errors < 5, qPrintable(QString::number(errors)));
}

QTEST_GUILESS_MAIN(WaitingTest)
#include "tst_waiting.moc"

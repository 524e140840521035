// SPDX-License-Identifier: BSD-3-Clause
#include "BareConnection.h"
#include "TcpPair.h"

#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

using test::BareConnection;
using test::EnginePeer;
using vela::SslSocket;

/*
    The finer points of handshake and pump, as a host or a peer sees them. Some cannot be seen:

    - The error queue is emptied before a step of the handshake. Both engines begin the step with
      that themselves.
    - Verification code 0 has a text. Only failures are asked for theirs.
    - One output ends at 1 GiB. It takes several GiB of memory to get there.
*/
namespace {

const QString LOCALHOST = QStringLiteral("localhost");

//! A server of the library that writes down how its device is opened.
class OpeningServer : public SslSocket
{
public:
    explicit OpeningServer(const test::Identity& identity)
        : SslSocket(Server)
    {
        setPathToCertificate(m_directory.writeCertificate(QStringLiteral("c.pem"), identity));
        setPathToPrivateKey(m_directory.writeKey(QStringLiteral("k.pem"), identity));
    }

    bool open(OpenMode mode) override
    {
        modes.append(mode);
        return SslSocket::open(mode);
    }

    QList<OpenMode> modes;

private:
    test::PemDirectory m_directory;
};

//! Counts the queued calls of an object's slots.
class CallCounter : public QObject
{
public:
    explicit CallCounter(QObject* object) { object->installEventFilter(this); }

    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::MetaCall)
            ++calls;
        return false;
    }

    int calls = 0;
};

QByteArray firstRecordOf(const QByteArray& octets)
{
    return octets.left(5 + (quint8(octets.at(3)) << 8) + quint8(octets.at(4)));
}

} // namespace

class PumpDetailsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void goodbyeInTheHandshakeIsAnError();
    void firstBytesOpenTheDeviceOfAServer();
    void nothingIsReadBeforeTheStateIsAnnounced();
    void decryptionStopsWithTheInnerSocket_data();
    void decryptionStopsWithTheInnerSocket();
    void waitInsideReadyReadLeavesTheOuterWaitItsData();
    void earlierDataDoesNotEndAWait();
    void writesOfOnePassQueueOneCall();
    void answerInsideASlotIsLeftToTheOuterRead();
};

void PumpDetailsTest::goodbyeInTheHandshakeIsAnError()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()), test::atMostTls12());
    server.prepare = [&server] { server.peer->hold(true); };
    SslSocket client(SslSocket::Client);
    QStringList errors;
    connect(&client, &QAbstractSocket::errorOccurred, this,
            [&] { errors.append(client.errorString()); });
    client.connectToHost(LOCALHOST, server.serverPort());
    QByteArray flight;
    QVERIFY(QTest::qWaitFor([&] {
        flight = server.peer ? server.peer->takePending() : QByteArray();
        return !flight.isEmpty();
    }));
    const QByteArray hello = firstRecordOf(flight);
    const QByteArray goodbye = '\x15' + hello.mid(1, 2) + QByteArray("\0\x02\x01\0", 4);
    server.peer->transport()->write(hello + goodbye);
    QTRY_VERIFY(!errors.isEmpty());
    QVERIFY2(errors.first().startsWith(QStringLiteral("SSL error: ")), qPrintable(errors.first()));
}

void PumpDetailsTest::firstBytesOpenTheDeviceOfAServer()
{
    const test::TcpPair pair;
    OpeningServer server(test::makeIdentity(test::CertificateSpec()));
    server.setSocket(pair.near);
    QVERIFY(server.modes.isEmpty());
    QList<QIODevice::OpenMode> modes;
    connect(&server, &SslSocket::connectionVerificationDone, this, [&] { modes = server.modes; });
    QSignalSpy connected(&server, &QAbstractSocket::connected);
    EnginePeer client(EnginePeer::Client, pair.far);
    QVERIFY(connected.wait());
    QVERIFY(modes.contains(QIODevice::ReadWrite));
}

void PumpDetailsTest::nothingIsReadBeforeTheStateIsAnnounced()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    test::OpenSocket client(SslSocket::Client);
    QList<qint64> results;
    connect(&client, &QAbstractSocket::stateChanged, this, [&](QAbstractSocket::SocketState state) {
        char byte = 0;
        if (state == QAbstractSocket::ConnectedState)
            results.append(client.readData(&byte, 1));
    });
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_COMPARE(results, (QList<qint64>{-1, 0}));
}

void PumpDetailsTest::decryptionStopsWithTheInnerSocket_data()
{
    QTest::addColumn<bool>("aborts");
    QTest::newRow("that is closing") << false;
    QTest::newRow("that was aborted") << true;
}

void PumpDetailsTest::decryptionStopsWithTheInnerSocket()
{
    QFETCH(bool, aborts);
    BareConnection connection;
    QVERIFY(connection.settled);
    test::OpenSocket& client = connection.client;
    int pieces = 0;
    QAbstractSocket::SocketState state = QAbstractSocket::ConnectedState;
    connect(&client, &QIODevice::readyRead, this, [&] {
        ++pieces;
        client.socket()->write("what keeps it from closing at once");
        if (aborts)
            client.socket()->abort();
        else
            client.socket()->disconnectFromHost();
        state = client.socket()->state();
    });
    QSignalSpy disconnected(&client, &QAbstractSocket::disconnected);
    connection.server.peer->write(QByteArray(10000, 'x'));
    QTRY_VERIFY(!disconnected.isEmpty());
    QCOMPARE(state, aborts ? QAbstractSocket::UnconnectedState : QAbstractSocket::ClosingState);
    QCOMPARE(pieces, 1);
}

void PumpDetailsTest::waitInsideReadyReadLeavesTheOuterWaitItsData()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connect(&connection.client, &QIODevice::readyRead, this,
            [&] { connection.client.waitForReadyRead(0); });
    connection.server.peer->write("data");
    QVERIFY(connection.server.peer->transport()->flush());
    QVERIFY(connection.client.waitForReadyRead(2000));
}

void PumpDetailsTest::earlierDataDoesNotEndAWait()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.write("earlier");
    QTRY_COMPARE(connection.client.bytesAvailable(), 7);
    peer.hold(true);
    peer.write("cut short");
    peer.transport()->write(peer.takePending().left(7));
    QVERIFY(peer.transport()->flush());
    QVERIFY(!connection.client.waitForReadyRead(100));
}

void PumpDetailsTest::writesOfOnePassQueueOneCall()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QCoreApplication::sendPostedEvents(&connection.client);
    const CallCounter counter(&connection.client);
    for (int i = 0; i < 100; ++i)
        connection.client.write("0123456789");
    QCoreApplication::sendPostedEvents(&connection.client);
    QCOMPARE(counter.calls, 1);
    QCOMPARE(connection.client.bytesToWrite(), 0);
}

// The slot's own wait for it would find nothing to wait for.
void PumpDetailsTest::answerInsideASlotIsLeftToTheOuterRead()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    test::OpenSocket& client = connection.client;
    qint64 left = -1;
    connect(&client, &QIODevice::readyRead, this, [&] {
        client.write(client.readAll());
        QMetaObject::invokeMethod(&client, "readFromSocket");
        left = client.socket()->bytesToWrite();
    });
    connection.server.peer->write("question");
    QTRY_COMPARE(connection.server.peer->received(), QByteArray("question"));
    QVERIFY(left > 0);
}

QTEST_GUILESS_MAIN(PumpDetailsTest)
#include "tst_pumpdetails.moc"

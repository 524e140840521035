// SPDX-License-Identifier: BSD-3-Clause
#include "BareConnection.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

using test::atMostTls12;
using test::BareConnection;
using test::BareServer;
using test::EnginePeer;
using test::OpenSocket;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");

//! How many TLS records of application data \a octets hold.
int countApplicationRecords(const QByteArray& octets)
{
    int records = 0;
    for (int at = 0; at + 5 <= octets.size();) {
        records += octets.at(at) == 23;
        at += 5 + (quint8(octets.at(at + 3)) << 8) + quint8(octets.at(at + 4));
    }
    return records;
}

} // namespace

class PumpTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aRecordIsAnnouncedInPieces();
    void everyPieceIsBufferedWhenItIsAnnounced();
    void dataWithTheEndOfTheHandshakeComesBeforeConnected();
    void aServerThatSpeaksAndLeavesIsHeardWhole();
    void partOfARecordIsNoData();
    void recordsArriveByteByByte();
    void readBeforeTheHandshakeFails();
    void writeBeforeTheHandshakeIsSentAfterIt();
    void writesOfOnePassLeaveInOneRecord();
    void writesOfTwoPassesLeaveApart();
    void bytesToWriteFallsWhenEncrypted();
    void answersLeaveWithTheReadThatAskedForThem();
    void largeAnswersLeaveWithTheEventLoop();
    void answersOfAHostThatWaitsAreLeftToItsWaiting();
    void bytesWrittenCountsTheWire();
    void bytesWrittenIsSilentDuringTheHandshake();
    void damagedRecordIsAnError();
    void damagedRecordLeavesTheConnectionToTheHost();
    void closeNotifyEndsTheConnectionWithoutError();
    void dataBeforeTheCloseNotifyIsDelivered();
    void renegotiationDoesNotHoldDataBack();
    void unknownModeStartsNoHandshake();
    void readDataMovesWhatFits();
    void readLineDataFollowsTheRingBuffer_data();
    void readLineDataFollowsTheRingBuffer();
    void linesAreReadWithTheDevice();
    void bytesAvailableCountsTheDevicesBuffer();
    void canReadLineOverlooksTheDevicesBuffer();
    void atEndSeesTheReadBuffer();
    void waitForReadyReadWithNegativeTimePolls();
    void waitForReadyReadReturnsWhenDataArrived();
    void waitForReadyReadSendsWhatIsPending();
    void waitForReadyReadTimesOut();
    void waitForReadyReadIgnoresTrafficWithoutData();
    void waitForReadyReadWorksInsideReadyRead();
    void waitForBytesWrittenEncryptsFirst();
    void bulkDataArrivesWholeBothWays();
    void backlogIsDecryptedWhole();
};

void PumpTest::aRecordIsAnnouncedInPieces()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write(QByteArray(10000, 'x'));
    QTRY_COMPARE(connection.client.bytesAvailable(), 10000);
    const QStringList expected = {QStringLiteral("readyRead 4096"),
                                  QStringLiteral("readyRead 8192"),
                                  QStringLiteral("readyRead 10000")};
    QCOMPARE(static_cast<const QStringList&>(connection.log), expected);
}

void PumpTest::everyPieceIsBufferedWhenItIsAnnounced()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QList<int> pieces;
    connect(&connection.client, &QIODevice::readyRead, &connection.client,
            [&] { pieces.append(connection.client.readAll().size()); });
    connection.server.peer->write(QByteArray(10000, 'x'));
    QTRY_COMPARE(pieces.size(), 3);
    QCOMPARE(pieces, (QList<int>{4096, 4096, 1808}));
}

void PumpTest::dataWithTheEndOfTheHandshakeComesBeforeConnected()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()), atMostTls12());
    server.prepare = [&server] {
        // The last octets of the handshake are kept until data can go with them.
        connect(server.peer.get(), &EnginePeer::handshakeDone, &server,
                [&server] { server.peer->write("early"); });
    };
    SslSocket client(SslSocket::Client);
    const test::SignalLog log(&client);
    QSignalSpy connected(&client, &QAbstractSocket::connected);
    client.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    const QStringList expected = {
        QStringLiteral("state HostLookup"), QStringLiteral("state Connecting"),
        QStringLiteral("verdict 2"),        QStringLiteral("state Connected"),
        QStringLiteral("readyRead 5"),      QStringLiteral("state Connected"),
        QStringLiteral("connected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QCOMPARE(client.readAll(), QByteArray("early"));
}

void PumpTest::aServerThatSpeaksAndLeavesIsHeardWhole()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()), atMostTls12());
    server.prepare = [&server] {
        connect(server.peer.get(), &EnginePeer::handshakeDone, &server, [&server] {
            server.peer->write("good");
            server.peer->write("bye");
            server.peer->sendCloseNotify();
        });
    };
    SslSocket client(SslSocket::Client);
    const test::SignalLog log(&client);
    QSignalSpy disconnected(&client, &QAbstractSocket::disconnected);
    client.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(disconnected.wait());
    const QStringList expected = {
        QStringLiteral("state HostLookup"), QStringLiteral("state Connecting"),
        QStringLiteral("verdict 2"),        QStringLiteral("state Connected"),
        QStringLiteral("readyRead 4"),      QStringLiteral("readyRead 7"),
        QStringLiteral("state Connected"),  QStringLiteral("connected"),
        QStringLiteral("state Closing"),    QStringLiteral("state Unconnected"),
        QStringLiteral("disconnected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QCOMPARE(client.readAll(), QByteArray("goodbye"));
}

void PumpTest::partOfARecordIsNoData()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    peer.write("whole at last");
    const QByteArray record = peer.takePending();
    peer.transport()->write(record.left(record.size() - 1));
    QVERIFY(peer.transport()->waitForBytesWritten(5000));
    QSignalSpy arrived(connection.client.socket(), &QIODevice::readyRead);
    QVERIFY(arrived.wait());
    QVERIFY(connection.log.isEmpty());
    QCOMPARE(connection.client.bytesAvailable(), 0);
    peer.transport()->write(record.right(1));
    QTRY_COMPARE(connection.log.size(), 1);
    QCOMPARE(connection.client.readAll(), QByteArray("whole at last"));
}

void PumpTest::recordsArriveByteByByte()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    peer.write("slow");
    QSignalSpy arrived(connection.client.socket(), &QIODevice::readyRead);
    const QByteArray record = peer.takePending();
    for (int i = 0; i < record.size(); ++i) {
        QVERIFY(connection.log.isEmpty());
        peer.transport()->write(record.mid(i, 1));
        QVERIFY(arrived.wait());
    }
    QCOMPARE(connection.client.readAll(), QByteArray("slow"));
}

void PumpTest::readBeforeTheHandshakeFails()
{
    OpenSocket socket(SslSocket::Client);
    QVERIFY(socket.open(QIODevice::ReadWrite));
    char data[4];
    QCOMPARE(socket.readData(data, sizeof data), -1);
    QCOMPARE(socket.read(data, sizeof data), -1);
}

void PumpTest::writeBeforeTheHandshakeIsSentAfterIt()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    client.connectToHost(LOCALHOST, server.serverPort());
    QCOMPARE(client.write(QByteArray(100000, 'a')), 100000);
    QCOMPARE(client.bytesToWrite(), 100000);
    QTRY_VERIFY(server.peer);
    QTRY_COMPARE(server.peer->received().size(), 100000);
    QCOMPARE(client.bytesToWrite(), 0);
}

void PumpTest::writesOfOnePassLeaveInOneRecord()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QTcpSocket* transport = connection.server.peer->transport();
    transport->disconnect(connection.server.peer.get());
    for (int i = 0; i < 100; ++i)
        connection.client.write("0123456789");
    QTRY_VERIFY(transport->bytesAvailable() > 1000);
    QCOMPARE(countApplicationRecords(transport->readAll()), 1);
}

void PumpTest::writesOfTwoPassesLeaveApart()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QTcpSocket* transport = connection.server.peer->transport();
    transport->disconnect(connection.server.peer.get());
    connection.client.write("0123456789");
    QCoreApplication::sendPostedEvents(&connection.client);
    connection.client.write("0123456789");
    QCoreApplication::sendPostedEvents(&connection.client);
    QVERIFY(connection.client.socket()->waitForBytesWritten(5000));
    QTRY_COMPARE(countApplicationRecords(transport->peek(1000)), 2);
}

void PumpTest::bytesToWriteFallsWhenEncrypted()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.client.write(QByteArray(5000, 'x'));
    QCOMPARE(connection.client.bytesToWrite(), 5000);
    QCOMPARE(connection.client.socket()->bytesToWrite(), 0);
    QCoreApplication::sendPostedEvents(&connection.client);
    QCOMPARE(connection.client.bytesToWrite(), 0);
    QVERIFY(connection.client.socket()->bytesToWrite() > 5000);
}

void PumpTest::answersLeaveWithTheReadThatAskedForThem()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    OpenSocket& client = connection.client;
    connect(&client, &QIODevice::readyRead, this, [&client] {
        client.write(client.readAll());
        QVERIFY(client.bytesToWrite() > 0); // Nothing is encrypted under the host's hands.
    });
    // Hears the inner socket after the frame has.
    qint64 left = -1;
    qint64 sent = 0;
    connect(&client, &QIODevice::bytesWritten, this, [&sent](qint64 bytes) { sent += bytes; });
    connect(client.socket(), &QIODevice::readyRead, this, [&] {
        left = client.bytesToWrite() + client.socket()->bytesToWrite();
        QVERIFY(sent > 0);
    });
    connection.server.peer->write("question");
    QTRY_COMPARE(connection.server.peer->received(), QByteArray("question"));
    QCOMPARE(left, 0);
}

void PumpTest::largeAnswersLeaveWithTheEventLoop()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    OpenSocket& client = connection.client;
    const QByteArray answer(100000, 'x');
    connect(&client, &QIODevice::readyRead, this, [&client, answer] {
        client.readAll();
        client.write(answer);
    });
    // Hears the inner socket after the frame has.
    qint64 left = -1;
    connect(client.socket(), &QIODevice::readyRead, this,
            [&] { left = client.socket()->bytesToWrite(); });
    connection.server.peer->write("question");
    QTRY_COMPARE(connection.server.peer->received().size(), answer.size());
    QVERIFY(left > answer.size());
}

void PumpTest::answersOfAHostThatWaitsAreLeftToItsWaiting()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    OpenSocket& client = connection.client;
    connect(&client, &QIODevice::readyRead, this, [&client] { client.write(client.readAll()); });
    connection.server.peer->write("question");
    QVERIFY(connection.server.peer->transport()->flush());
    QVERIFY(client.waitForReadyRead(5000));
    QCOMPARE(client.bytesToWrite(), 0);
    QVERIFY(client.socket()->bytesToWrite() > 0);
    QVERIFY(client.waitForBytesWritten(5000));
    QTRY_COMPARE(connection.server.peer->received(), QByteArray("question"));
}

void PumpTest::bytesWrittenCountsTheWire()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    qint64 counted = 0;
    connect(&connection.client, &QIODevice::bytesWritten, this,
            [&counted](qint64 bytes) { counted += bytes; });
    qint64 arrived = 0;
    QTcpSocket* transport = connection.server.peer->transport();
    transport->disconnect(connection.server.peer.get());
    connect(transport, &QIODevice::readyRead, this,
            [&arrived, transport] { arrived += transport->readAll().size(); });
    connection.client.write(QByteArray(5000, 'x'));
    QTRY_VERIFY(arrived > 5000 && connection.client.socket()->bytesToWrite() == 0);
    QCOMPARE(counted, arrived);
}

void PumpTest::bytesWrittenIsSilentDuringTheHandshake()
{
    BareServer server(test::makeIdentity(test::CertificateSpec()), atMostTls12());
    SslSocket client(SslSocket::Client);
    QSignalSpy inner(client.socket(), &QIODevice::bytesWritten);
    QSignalSpy outer(&client, &QIODevice::bytesWritten);
    bool silent = true;
    connect(&client, &SslSocket::connectionVerificationDone, this,
            [&] { silent = outer.isEmpty() && !inner.isEmpty(); });
    QSignalSpy connected(&client, &QAbstractSocket::connected);
    client.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    QVERIFY(silent);
}

void PumpTest::damagedRecordIsAnError()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    peer.write("damaged on the way");
    QByteArray record = peer.takePending();
    record[record.size() - 1] = static_cast<char>(~record.at(record.size() - 1));
    peer.transport()->write(record);
    QTRY_VERIFY(!connection.log.isEmpty());
    QCOMPARE(static_cast<const QStringList&>(connection.log), {QStringLiteral("error -1")});
    QCOMPARE(connection.client.error(), QAbstractSocket::UnknownSocketError);
    const QString text = connection.client.errorString();
    QVERIFY2(text.startsWith(QStringLiteral("Failed to read from SSL, error:")), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral("bad record mac"))
                 || text.contains(QStringLiteral("cipher operation failed")),
             qPrintable(text));
}

void PumpTest::damagedRecordLeavesTheConnectionToTheHost()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.write("good");
    peer.transport()->write("\x17\x03\x03\x00\x05never", 10);
    QTRY_COMPARE(connection.log.size(), 2);
    QCOMPARE(connection.log.last(), QStringLiteral("error -1"));
    QCOMPARE(connection.client.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(connection.client.socket()->state(), QAbstractSocket::ConnectedState);
    QCOMPARE(connection.client.readAll(), QByteArray("good"));
    QVERIFY(!connection.client.getCipherName().isEmpty());
}

void PumpTest::closeNotifyEndsTheConnectionWithoutError()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->sendCloseNotify();
    QTRY_VERIFY(connection.log.contains(QStringLiteral("disconnected")));
    const QStringList expected = {QStringLiteral("state Closing"),
                                  QStringLiteral("state Unconnected"),
                                  QStringLiteral("disconnected")};
    QCOMPARE(static_cast<const QStringList&>(connection.log), expected);
    // The library closes without a goodbye of its own.
    QTRY_COMPARE(connection.server.peer->transport()->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!connection.server.peer->sawCloseNotify());
}

void PumpTest::dataBeforeTheCloseNotifyIsDelivered()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    peer.write(QByteArray(6000, 'x'));
    peer.sendCloseNotify();
    peer.hold(false);
    QTRY_VERIFY(connection.log.contains(QStringLiteral("disconnected")));
    QCOMPARE(connection.client.readAll(), QByteArray(6000, 'x'));
}

// The request and data behind it in one batch: OpenSSL stops reading after the request.
void PumpTest::renegotiationDoesNotHoldDataBack()
{
    BareConnection connection(atMostTls12());
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    QCOMPARE(SSL_renegotiate(peer.ssl()), 1);
    QCOMPARE(SSL_do_handshake(peer.ssl()), 1);
    peer.write("behind the request");
    peer.hold(false);
    QTRY_COMPARE(connection.client.bytesAvailable(), 18);
    // The client answers the request, which only its pump can have sent.
    QTRY_VERIFY(SSL_num_renegotiations(peer.ssl()) > 0 && !SSL_renegotiate_pending(peer.ssl()));
    peer.write(", and after the handshake");
    QTRY_COMPARE(connection.client.bytesAvailable(), 43);
    QCOMPARE(connection.client.readAll(),
             QByteArray("behind the request, and after the handshake"));
    QVERIFY(connection.log.filter(QStringLiteral("error")).isEmpty());
}

void PumpTest::unknownModeStartsNoHandshake()
{
    QTcpServer server;
    test::listenOnFreshPort(&server);
    auto* transport = new QTcpSocket;
    transport->connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(transport->waitForConnected(5000));
    QVERIFY(server.waitForNewConnection(5000));
    QTcpSocket* peer = server.nextPendingConnection();

    SslSocket socket(static_cast<SslSocket::Mode>(2));
    socket.setSocket(transport);
    const test::SignalLog log(&socket);
    QSignalSpy arrived(transport, &QIODevice::readyRead);
    peer->write("\x16\x03\x01\x00\x01\x01 and whatever else");
    QVERIFY(arrived.wait());
    QVERIFY(log.isEmpty());
    QCOMPARE(transport->bytesToWrite(), 0);
    QVERIFY(!peer->waitForReadyRead(50));
    QCOMPARE(peer->bytesAvailable(), 0);
}

void PumpTest::readDataMovesWhatFits()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write(QByteArray(5000, 'a') + QByteArray(5000, 'b'));
    QTRY_COMPARE(connection.client.bytesAvailable(), 10000);
    QByteArray data(7000, '\0');
    QCOMPARE(connection.client.readData(data.data(), 0), 0);
    QCOMPARE(connection.client.readData(data.data(), 7000), 7000);
    QCOMPARE(data, QByteArray(5000, 'a') + QByteArray(2000, 'b'));
    QCOMPARE(connection.client.readData(data.data(), 7000), 3000);
    QCOMPARE(connection.client.readData(data.data(), 7000), 0);
}

void PumpTest::readLineDataFollowsTheRingBuffer_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("max");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("data");
    const auto row = [](const char* name, const char* content, int max, int result,
                        const QByteArray& data) {
        QTest::newRow(name) << QByteArray(content) << max << result << data;
    };
    row("one line", "one\ntwo\n", 8, 4, QByteArray("one\n\0zzz", 8));
    row("a line that just fits", "one\n", 5, 4, QByteArray("one\n\0zzz", 8));
    row("a longer line", "abcdefgh\n", 5, 4, QByteArray("abcd\0zzz", 8));
    row("no line feed", "abcdefgh", 5, 5, QByteArray("abcdezzz", 8));
    row("no line feed, much room", "abc", 8, 3, QByteArray("abczzzzz", 8));
    row("no room", "a\n", 0, -1, QByteArray("zzzzzzzz", 8));
}

void PumpTest::readLineDataFollowsTheRingBuffer()
{
    QFETCH(QByteArray, content);
    QFETCH(int, max);
    QFETCH(int, result);
    QFETCH(QByteArray, data);
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write(content);
    QTRY_COMPARE(connection.client.bytesAvailable(), content.size());
    QByteArray buffer(8, 'z');
    QCOMPARE(connection.client.readLineData(buffer.data(), max), result);
    QCOMPARE(buffer, data);
}

void PumpTest::linesAreReadWithTheDevice()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write("first\nsecond\nthird");
    QTRY_COMPARE(connection.client.bytesAvailable(), 18);
    QVERIFY(connection.client.canReadLine());
    QCOMPARE(connection.client.readLine(), QByteArray("first\n"));
    // Both the device and the socket keep room for a zero byte.
    QCOMPARE(connection.client.readLine(4), QByteArray("se"));
    QCOMPARE(connection.client.readLine(), QByteArray("cond\n"));
    QVERIFY(!connection.client.canReadLine());
    QCOMPARE(connection.client.readLine(), QByteArray("third"));
}

void PumpTest::bytesAvailableCountsTheDevicesBuffer()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write("0123456789");
    QTRY_COMPARE(connection.client.bytesAvailable(), 10);
    char byte = 0;
    QVERIFY(connection.client.getChar(&byte));
    QCOMPARE(connection.client.bytesAvailable(), 9);
    QCOMPARE(connection.client.readAll(), QByteArray("123456789"));
    QCOMPARE(connection.client.bytesAvailable(), 0);
}

void PumpTest::canReadLineOverlooksTheDevicesBuffer()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write("a line\n");
    QTRY_VERIFY(connection.client.canReadLine());
    char byte = 0;
    QVERIFY(connection.client.getChar(&byte)); // The device takes the rest into its own buffer.
    QVERIFY(!connection.client.canReadLine());
    QCOMPARE(connection.client.readLine(), QByteArray(" line\n"));
}

void PumpTest::atEndSeesTheReadBuffer()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QVERIFY(connection.client.atEnd());
    connection.server.peer->write("x");
    QTRY_VERIFY(!connection.client.atEnd());
    connection.client.readAll();
    QVERIFY(connection.client.atEnd());
}

void PumpTest::waitForReadyReadWithNegativeTimePolls()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!connection.client.waitForReadyRead(-1));
    QVERIFY(timer.elapsed() < 5000); // It would be for ever.
    connection.server.peer->write("here already");
    QVERIFY(connection.server.peer->transport()->waitForBytesWritten(5000));
    QTRY_VERIFY(connection.client.waitForReadyRead(-1) || connection.client.bytesAvailable() > 0);
}

void PumpTest::waitForReadyReadReturnsWhenDataArrived()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.server.peer->write(QByteArray(10000, 'x'));
    QVERIFY(connection.server.peer->transport()->flush());
    QVERIFY(connection.client.waitForReadyRead(5000));
    while (connection.client.bytesAvailable() < 10000)
        QVERIFY(connection.client.waitForReadyRead(5000));
}

void PumpTest::waitForReadyReadSendsWhatIsPending()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.client.write("question");
    connection.client.waitForReadyRead(0);
    QCOMPARE(connection.client.bytesToWrite(), 0);
}

void PumpTest::waitForReadyReadTimesOut()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!connection.client.waitForReadyRead(50));
    QVERIFY(timer.elapsed() >= 49);
    const QString timeout =
        QStringLiteral("error %1").arg(int(QAbstractSocket::SocketTimeoutError));
    QCOMPARE(static_cast<const QStringList&>(connection.log), {timeout}); // As of any QTcpSocket.
}

void PumpTest::waitForReadyReadIgnoresTrafficWithoutData()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    peer.write("in two parts");
    const QByteArray record = peer.takePending();
    peer.transport()->write(record.left(7));
    QVERIFY(peer.transport()->flush());
    QVERIFY(!connection.client.waitForReadyRead(100));
    peer.transport()->write(record.mid(7));
    QVERIFY(peer.transport()->flush());
    QVERIFY(connection.client.waitForReadyRead(5000));
    QCOMPARE(connection.client.readAll(), QByteArray("in two parts"));
}

void PumpTest::waitForReadyReadWorksInsideReadyRead()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    bool waited = false;
    bool first = true;
    connect(&connection.client, &QIODevice::readyRead, &connection.client, [&] {
        if (!first)
            return;
        first = false;
        connection.server.peer->write("second");
        connection.server.peer->transport()->flush();
        waited = connection.client.waitForReadyRead(5000);
    });
    connection.server.peer->write("first");
    QTRY_COMPARE(connection.client.bytesAvailable(), 11);
    QVERIFY(waited);
    QCOMPARE(connection.client.readAll(), QByteArray("firstsecond"));
}

void PumpTest::waitForBytesWrittenEncryptsFirst()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    connection.client.write("urgent");
    QVERIFY(connection.client.waitForBytesWritten(5000));
    QCOMPARE(connection.client.bytesToWrite(), 0);
    connection.client.disconnectFromHost();
    QTRY_COMPARE(connection.server.peer->received(), QByteArray("urgent"));
}

void PumpTest::bulkDataArrivesWholeBothWays()
{
    constexpr int PIECE = 70001;
    constexpr int PIECES = 60;
    BareConnection connection;
    QVERIFY(connection.settled);
    QByteArray sent;
    QByteArray received;
    connect(&connection.client, &QIODevice::readyRead, this,
            [&] { received += connection.client.readAll(); });
    for (int i = 0; i < PIECES; ++i) {
        const QByteArray piece(PIECE + i, static_cast<char>(i));
        sent += piece;
        connection.client.write(piece);
        connection.server.peer->write(piece);
    }
    QTRY_COMPARE(received.size(), sent.size());
    QTRY_COMPARE(connection.server.peer->received().size(), sent.size());
    QVERIFY(received == sent);
    QVERIFY(connection.server.peer->received() == sent);
}

// More than the engine is handed at a time, all there before the first byte is read.
void PumpTest::backlogIsDecryptedWhole()
{
    BareConnection connection;
    QVERIFY(connection.settled);
    EnginePeer& peer = *connection.server.peer;
    peer.hold(true);
    for (int i = 0; i < 100; ++i)
        peer.write(QByteArray(16000, static_cast<char>('a' + i % 26)));
    const QByteArray wire = peer.takePending();
    connection.client.socket()->blockSignals(true);
    peer.transport()->write(wire);
    // Session tickets may have come in front of it.
    QTRY_VERIFY(peer.transport()->bytesToWrite() == 0
                && connection.client.socket()->bytesAvailable() >= wire.size());
    connection.client.socket()->blockSignals(false);
    QVERIFY(QMetaObject::invokeMethod(&connection.client, "readFromSocket"));
    QCOMPARE(connection.client.bytesAvailable(), 1600000);
    QCOMPARE(connection.log.size(), 400);
}

QTEST_GUILESS_MAIN(PumpTest)
#include "tst_pump.moc"

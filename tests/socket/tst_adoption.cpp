// SPDX-License-Identifier: BSD-3-Clause
// Connections that were somebody else's before a socket adopts them: what they hold already.

#include "BareConnection.h"
#include "EventWait.h"
#include "TcpPair.h"
#include "tests/common/MessageLog.h"
#include "tests/common/TlsServer.h"

using test::EnginePeer;
using test::TcpPair;
using vela::SslSocket;

namespace {

//! A server whose client has spoken before the server's host adopts the connection.
struct EarlyClient
{
    explicit EarlyClient(SslSocket::Mode mode = SslSocket::Server)
        : socket(mode)
        , identity(test::makeIdentity(test::CertificateSpec()))
    {
        socket.setPathToCertificate(directory.writeCertificate(QStringLiteral("c"), identity));
        socket.setPathToPrivateKey(directory.writeKey(QStringLiteral("k"), identity));
        const TcpPair pair;
        transport = pair.near;
        peer = std::make_unique<EnginePeer>(EnginePeer::Client, pair.far);
    }

    ~EarlyClient()
    {
        if (socket.socket() != transport)
            delete transport;
    }

    //! Waits until the ClientHello waits in the connection that is to be adopted.
    bool hasSpoken() const
    {
        return test::waitFor([this] { return transport->bytesAvailable() > 100; });
    }

    bool exchanges()
    {
        socket.write("from the server");
        peer->write("from the client");
        return test::waitFor([this] {
            return peer->received() == "from the server" && socket.bytesAvailable() == 15;
        });
    }

    SslSocket socket;
    test::Identity identity;
    test::PemDirectory directory;
    QTcpSocket* transport;
    std::unique_ptr<EnginePeer> peer;
};

} // namespace

class AdoptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void helloThatWasReadBeforeIsAnswered();
    void helloThatWasReadBeforeIsAnsweredToAHostThatWaits();
    void helloThatWasReadBeforeIsAnsweredAfterAnAcceptOfTheHosts();
    void socketAdoptedInItsOwnReadyReadIsServed();
    void nothingHappensWithinTheAdoption();
    void connectionGivenUpAtOnceIsNotServed_data();
    void connectionGivenUpAtOnceIsNotServed();
    void failedSetUpIsReportedOnce();
    void adoptionInDisconnectedIsServed();
    void adoptedConnectionBeginsWithoutOldPlaintext();
};

void AdoptionTest::helloThatWasReadBeforeIsAnswered()
{
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    QSignalSpy connected(&client.socket, &QAbstractSocket::connected);
    client.socket.setSocket(client.transport);
    QTRY_COMPARE(connected.size(), 1);
    QTRY_VERIFY(client.peer->isHandshakeDone());
    QVERIFY(client.exchanges());
}

void AdoptionTest::helloThatWasReadBeforeIsAnsweredToAHostThatWaits()
{
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    client.socket.setSocket(client.transport);
    client.socket.waitForReadyRead(1);
    QVERIFY(client.peer->transport()->waitForReadyRead(5000)); // What the engine answers.
    QTRY_VERIFY(client.peer->isHandshakeDone());
    QTRY_COMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    QVERIFY(client.exchanges());
}

void AdoptionTest::helloThatWasReadBeforeIsAnsweredAfterAnAcceptOfTheHosts()
{
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    QSignalSpy verdict(&client.socket, &SslSocket::connectionVerificationDone);
    client.socket.setSocket(client.transport);
    QVERIFY(!client.socket.sslAccept());
    QTRY_VERIFY(client.peer->isHandshakeDone());
    QTRY_COMPARE(verdict.size(), 1);
    QVERIFY(client.exchanges());
}

// A server that looks at the first bytes to tell TLS from plain text.
void AdoptionTest::socketAdoptedInItsOwnReadyReadIsServed()
{
    EarlyClient client;
    QByteArray sniffed;
    connect(client.transport, &QIODevice::readyRead, this, [&] {
        sniffed = client.transport->peek(1);
        client.socket.setSocket(client.transport);
    });
    QTRY_VERIFY(client.peer->isHandshakeDone());
    QTRY_COMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(sniffed, QByteArray("\x16"));
    QVERIFY(client.exchanges());
}

void AdoptionTest::nothingHappensWithinTheAdoption()
{
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    const test::SignalLog log(&client.socket);
    client.socket.setSocket(client.transport);
    QVERIFY(log.isEmpty());
    QCOMPARE(client.transport->bytesToWrite(), 0);
    QVERIFY(client.transport->bytesAvailable() > 0);
}

void AdoptionTest::connectionGivenUpAtOnceIsNotServed_data()
{
    QTest::addColumn<bool>("closing");
    QTest::newRow("close") << true;
    QTest::newRow("disconnectFromHost") << false;
}

void AdoptionTest::connectionGivenUpAtOnceIsNotServed()
{
    QFETCH(bool, closing);
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    client.socket.setSocket(client.transport);
    if (closing)
        client.socket.close();
    else
        client.socket.disconnectFromHost();
    const test::SignalLog log(&client.socket);
    const bool open = client.socket.isOpen();
    test::settle();
    QVERIFY2(log.isEmpty(), qPrintable(log.join(u' ')));
    QCOMPARE(client.socket.isOpen(), open);
    QVERIFY(!client.peer->isHandshakeDone());
}

void AdoptionTest::failedSetUpIsReportedOnce()
{
    EarlyClient client;
    QVERIFY(client.hasSpoken());
    client.socket.setPathToPrivateKey(QString());
    const test::SignalLog log(&client.socket);
    client.socket.setSocket(client.transport);
    test::settle();
    QCOMPARE(static_cast<const QStringList&>(log), QStringList(QStringLiteral("error -1")));
    QCOMPARE(client.socket.errorString(), QStringLiteral("Private key required in server mode"));
}

// The next connection is adopted while the last one is still telling of its end. That has then been
// told nevertheless: the first socket, connected and adopted once more, is used again and again.
void AdoptionTest::adoptionInDisconnectedIsServed()
{
    EarlyClient client;
    client.socket.setSocket(client.transport);
    QTRY_COMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    QTRY_VERIFY(client.peer->isHandshakeDone());
    const TcpPair pair;
    const std::unique_ptr<QTcpSocket> second(pair.near);
    const EnginePeer secondPeer(EnginePeer::Client, pair.far);
    const auto adopting = connect(&client.socket, &QAbstractSocket::disconnected, this,
                                  [&] { client.socket.setSocket(second.get()); });
    client.peer->transport()->disconnectFromHost();
    QTRY_VERIFY(secondPeer.isHandshakeDone());
    disconnect(adopting);
    QTRY_COMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    client.socket.write("to the second");
    QTRY_COMPARE(secondPeer.received(), QByteArray("to the second"));

    QTcpServer listener;
    test::listenOnFreshPort(&listener);
    client.transport->connectToHost(QHostAddress::LocalHost, listener.serverPort());
    QTRY_COMPARE(client.transport->state(), QAbstractSocket::ConnectedState);
    client.socket.setSocket(client.transport);
    client.socket.disconnectFromHost();
    QTRY_COMPARE(client.transport->state(), QAbstractSocket::UnconnectedState);
    client.socket.connectToHost(QStringLiteral("localhost"), listener.serverPort());
    QCOMPARE(client.socket.socket(), client.transport);
}

// Qt reads ahead for hosts that read little at a time.
void AdoptionTest::adoptedConnectionBeginsWithoutOldPlaintext()
{
    test::BareConnection connection;
    QVERIFY(connection.settled);
    SslSocket& client = connection.client;
    connection.peer().write("0123456789");
    QTRY_COMPARE(client.bytesAvailable(), 10);
    QCOMPARE(client.read(1), QByteArray("0"));
    auto* transport = new QTcpSocket;
    transport->connectToHost(QHostAddress::LocalHost, connection.server.serverPort());
    QTRY_COMPARE(transport->state(), QAbstractSocket::ConnectedState);
    client.disconnectFromHost();
    client.setSocket(transport);
    client.sslConnect();
    QTRY_VERIFY(connection.log.contains(QStringLiteral("connected")));
    QTRY_VERIFY(connection.peer().isHandshakeDone());
    connection.peer().write("new");
    QTRY_VERIFY(connection.log.last().startsWith(QStringLiteral("readyRead")));
    QCOMPARE(client.readAll(), QByteArray("new"));
}

QTEST_GUILESS_MAIN(AdoptionTest)
#include "tst_adoption.moc"

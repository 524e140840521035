// SPDX-License-Identifier: BSD-3-Clause
// Peers that become somebody else after the verdict.
#include "EmissionLog.h"
#include "EventWait.h"

#include "support/OpenSslHandles.h"
#include "tests/common/ClientHello.h"
#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

#include <functional>

using namespace test;
using vela::SslSocket;
using vela::X509Handle;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");
const QString REFUSAL =
    QStringLiteral("The peer has changed its certificate after it was verified");

// The first is signed with the key of a certificate; the second needs none.
const char* const CIPHERS = OPENSSL_VERSION_NUMBER < 0x10100000L
                                ? "ECDHE-ECDSA-AES128-SHA:AECDH-AES128-SHA"
                                : "ECDHE-ECDSA-AES128-SHA:AECDH-AES128-SHA:@SECLEVEL=0";

const char* const ANONYMOUS_CIPHER =
    OPENSSL_VERSION_NUMBER < 0x10100000L ? "AECDH-AES128-SHA" : "AECDH-AES128-SHA:@SECLEVEL=0";

#ifdef SSL_OP_NO_TLSv1_3
constexpr unsigned long UP_TO_TLS12 = SSL_OP_NO_TLSv1_3;
#else
constexpr unsigned long UP_TO_TLS12 = 0;
#endif
// A resumed handshake would show no certificate.
constexpr unsigned long OPTIONS = UP_TO_TLS12 | SSL_OP_NO_SESSION_RESUMPTION_ON_RENEGOTIATION;
constexpr int PATIENCE = 5000;

//! A client of the library, connected to a server that can change.
struct Connection
{
    Connection()
    {
        QTcpServer listener;
        listenOnFreshPort(&listener);
        port = listener.serverPort();
        client->setCiphers(QString::fromLatin1(CIPHERS));
        QObject::connect(client, &SslSocket::readyRead, client,
                         [this] { received += client->readAll(); });
        client->connectToHost(LOCALHOST, port);
        settled = waitFor([&] {
            if (QTcpSocket* arrived = peer ? nullptr : listener.nextPendingConnection()) {
                arrived->setParent(nullptr);
                peer = std::make_unique<EnginePeer>(EnginePeer::Server, arrived, identity, OPTIONS);
            }
            return peer && peer->isHandshakeDone() && log.count("connected") == 1;
        });
    }

    ~Connection() { delete client; }

    //! Has the peer become \a other in another handshake, with data before and behind it.
    void change(const Identity& other = makeIdentity(CertificateSpec()))
    {
        SSL_use_certificate(peer->ssl(), other.x509());
        SSL_use_PrivateKey(peer->ssl(), other.key());
        renegotiate();
    }

    void renegotiate()
    {
        peer->write("before. ");
        SSL_renegotiate(peer->ssl());
        SSL_do_handshake(peer->ssl());
        peer->process();
        waitFor([&] { return isOver() || !SSL_renegotiate_pending(peer->ssl()); }, PATIENCE);
        settle();
        peer->write("behind.");
        settle();
    }

    bool isOver() const { return !client || client->state() == QAbstractSocket::UnconnectedState; }

    QPointer<SslSocket> client{new SslSocket(SslSocket::Client)};
    EmissionLog log{client};
    Identity identity = makeIdentity(CertificateSpec());
    std::unique_ptr<EnginePeer> peer;
    quint16 port = 0;
    QByteArray received;
    bool settled = false;
};

} // namespace

Q_DECLARE_METATYPE(std::function<void(SslSocket*)>)

class TestChangedPeer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void sameCertificateGoesUnnoticed();
    void anotherCertificateEndsTheConnection();
    void noCertificateEndsTheConnection();
    void certificateStaysTheOneThatWasJudged();
    void slotMayDoAnything_data();
    void slotMayDoAnything();
    void sessionWithTheOtherIsNotOffered();
};

void TestChangedPeer::cleanup()
{
    SslSocket others(SslSocket::Client);
    others.setCiphers(QStringLiteral("DEFAULT"));
    TlsServer server;
    QSignalSpy connected(&others, &SslSocket::connected);
    others.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(waitFor([&] { return !connected.isEmpty(); }));
}

void TestChangedPeer::sameCertificateGoesUnnoticed()
{
    Connection connection;
    QVERIFY(connection.settled);
    const QByteArrayList before = connection.log.story();
    connection.change(connection.identity);
    QVERIFY(waitFor([&] { return connection.received == "before. behind."; }, PATIENCE));
    QVERIFY(SSL_num_renegotiations(connection.peer->ssl()) > 0);
    QCOMPARE(connection.log.story(), before);
}

void TestChangedPeer::anotherCertificateEndsTheConnection()
{
    Connection connection;
    QVERIFY(connection.settled);
    connection.change();
    QVERIFY(waitFor([&] { return connection.log.count("disconnected") == 1; }, PATIENCE));
    QCOMPARE(connection.received, QByteArray("before. "));
    QCOMPARE(connection.client->errorString(), REFUSAL);
    QCOMPARE(connection.log.count("error"), 1);
    QCOMPARE(connection.client->state(), QAbstractSocket::UnconnectedState);
}

void TestChangedPeer::noCertificateEndsTheConnection()
{
    Connection connection;
    QVERIFY(connection.settled);
    SSL_set_cipher_list(connection.peer->ssl(), ANONYMOUS_CIPHER);
    connection.renegotiate();
    QVERIFY(waitFor([&] { return connection.log.count("disconnected") == 1; }, PATIENCE));
    QCOMPARE(connection.received, QByteArray("before. "));
    QCOMPARE(connection.client->errorString(), REFUSAL);
}

// What the host asks for in the error's slot is still about the peer that it has accepted.
void TestChangedPeer::certificateStaysTheOneThatWasJudged()
{
    Connection connection;
    QVERIFY(connection.settled);
    QList<bool> isJudged;
    connect(connection.client, &SslSocket::errorOccurred, this, [&] {
        const X509Handle seen(connection.client->x509peerCertificate());
        isJudged.append(seen && X509_cmp(seen.get(), connection.identity.x509()) == 0);
    });
    connection.change();
    QVERIFY(waitFor([&] { return connection.log.count("disconnected") == 1; }, PATIENCE));
    QCOMPARE(isJudged, QList<bool>{true});
}

void TestChangedPeer::slotMayDoAnything_data()
{
    using Action = std::function<void(SslSocket*)>;
    QTest::addColumn<Action>("act");
    QTest::newRow("close") << Action([](SslSocket* socket) { socket->close(); });
    QTest::newRow("disconnect") << Action([](SslSocket* socket) { socket->disconnectFromHost(); });
    QTest::newRow("abort") << Action([](SslSocket* socket) { socket->abort(); });
    QTest::newRow("delete") << Action([](SslSocket* socket) { delete socket; });
    QTest::newRow("nothing more") << Action([](SslSocket*) {});
}

// Above all, nothing is sent to the other.
void TestChangedPeer::slotMayDoAnything()
{
    QFETCH(std::function<void(SslSocket*)>, act);
    Connection connection;
    QVERIFY(connection.settled);
    int errors = 0;
    connect(connection.client, &SslSocket::errorOccurred, this, [&] {
        ++errors;
        connection.client->write("for the one that was judged");
        connection.client->waitForBytesWritten(0);
        act(connection.client);
    });
    connection.change();
    QVERIFY(waitFor([&] { return connection.isOver(); }, PATIENCE));
    settle();
    QCOMPARE(errors, 1);
    QCOMPARE(connection.peer->received(), QByteArray());
}

void TestChangedPeer::sessionWithTheOtherIsNotOffered()
{
    Connection connection;
    QVERIFY(connection.settled);
    connection.change();
    QVERIFY(waitFor([&] { return connection.isOver(); }, PATIENCE));

    HelloCollector collector(connection.port);
    std::vector<std::unique_ptr<SslSocket>> sockets;
    for (int i = 0; i < 3; ++i) {
        sockets.push_back(std::make_unique<SslSocket>(SslSocket::Client));
        sockets.back()->connectToHost(LOCALHOST, connection.port);
    }
    QVERIFY(collector.waitForHellos(3));
    int offers = 0;
    for (const ClientHello& hello : collector.hellos())
        offers += hello.session.isEmpty() ? 0 : 1;
    QCOMPARE(offers, 1);
}

QTEST_GUILESS_MAIN(TestChangedPeer)
#include "tst_changedpeer.moc"

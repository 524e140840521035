// SPDX-License-Identifier: BSD-3-Clause
// Peers that want a session to stand for something else than what it was made for.
#include "EventWait.h"
#include "ScriptedProxy.h"
#include "TcpPair.h"

#include "support/OpenSslHandles.h"
#include "tests/common/ClientHello.h"
#include "tests/common/FreshPort.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/SslProxySocket.h>

#include <QtTest/QtTest>

#include <functional>

using namespace test;
using vela::SslProxySocket;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");

#ifdef SSL_OP_NO_TLSv1_3

constexpr unsigned long UP_TO_TLS12 = SSL_OP_NO_TLSv1_3;
constexpr bool HAS_LATER_TICKETS = true;

//! Sends one more session, and an octet to tell that it has arrived.
bool sendTicket(EnginePeer& peer)
{
    const bool sent = SSL_new_session_ticket(peer.ssl()) == 1;
    peer.write("x");
    return sent;
}

#else

constexpr unsigned long UP_TO_TLS12 = 0;
constexpr bool HAS_LATER_TICKETS = false;

bool sendTicket(EnginePeer&)
{
    return false;
}

#endif

constexpr unsigned long WITH_IDENTIFIERS = UP_TO_TLS12 | SSL_OP_NO_TICKET;
constexpr unsigned long ONLY_TLS12 = UP_TO_TLS12 | SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1;
constexpr unsigned long ONLY_TLS10 = UP_TO_TLS12 | SSL_OP_NO_TLSv1_1 | SSL_OP_NO_TLSv1_2;

//! Hands each connection to what the test says; closed connections stay until the end.
class Listener : public QTcpServer
{
public:
    using Handler = std::function<void(QTcpSocket*)>;

    explicit Listener(Handler handler)
        : handle(std::move(handler))
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* connection = nextPendingConnection())
                handle(connection);
        });
        listenOnFreshPort(this);
    }

    Handler handle;
};

//! A server of OpenSSL's alone on each connection. They know each other's tickets.
class PeerServer : public Listener
{
public:
    explicit PeerServer(unsigned long options)
        : Listener([this](QTcpSocket* connection) { serve(connection); })
        , m_options(options)
    {
    }

    std::vector<std::unique_ptr<EnginePeer>> peers;
    bool asksForCertificates = false;

private:
    void serve(QTcpSocket* connection)
    {
        peers.push_back(
            std::make_unique<EnginePeer>(EnginePeer::Server, connection, m_identity, m_options));
        if (asksForCertificates) {
            SSL_set_verify(peers.back()->ssl(), SSL_VERIFY_PEER,
                           [](int, X509_STORE_CTX*) { return 1; });
        }
        SSL_CTX* context = SSL_get_SSL_CTX(peers.back()->ssl());
        QByteArray keys(static_cast<int>(SSL_CTX_get_tlsext_ticket_keys(context, nullptr, 0)), 'k');
        SSL_CTX_set_tlsext_ticket_keys(context, keys.data(), keys.size());
    }

    Identity m_identity = makeIdentity(CertificateSpec());
    unsigned long m_options;
};

//! Takes the hello, answers with \a version and a session, and says nothing more.
void answerOnce(QTcpSocket* connection, char version)
{
    QObject::connect(connection, &QIODevice::readyRead, connection, [connection, version] {
        connection->readAll();
        QByteArray body;
        body.append('\x03').append(version).append(QByteArray(32, 'r'));
        body.append('\x20').append(QByteArray(32, 's')).append('\0').append('\x2f').append('\0');
        const auto length = static_cast<char>(body.size());
        QByteArray record("\x16\x03", 2);
        record.append(version).append('\0').append(static_cast<char>(length + 4));
        record.append('\x02').append('\0').append('\0').append(length).append(body);
        connection->write(record);
    });
}

//! Connects \a socket and closes it again; returns whether it was connected.
bool visit(SslSocket& socket, quint16 port)
{
    bool connected = false;
    bool failed = false;
    QObject connections;
    QObject::connect(&socket, &SslSocket::connected, &connections, [&] { connected = true; });
    QObject::connect(&socket, &SslSocket::errorOccurred, &connections, [&] { failed = true; });
    socket.connectToHost(LOCALHOST, port);
    waitFor([&] { return connected || failed; });
    settle();
    socket.disconnectFromHost();
    waitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; });
    return connected;
}

int sessionsInCache()
{
    const QRegularExpression line(QStringLiteral("total: (\\d+) \n"));
    return line.match(SslSocket::printStatistics()).captured(1).toInt();
}

//! The same over a connection that the host has made.
bool visitAdopted(quint16 port, bool* reused = nullptr)
{
    SslSocket socket(SslSocket::Client);
    auto* transport = new QTcpSocket;
    transport->connectToHost(LOCALHOST, port);
    if (!waitFor([&] { return transport->state() == QAbstractSocket::ConnectedState; }))
        return false;
    socket.setSocket(transport);
    bool failed = false;
    bool connected = false;
    QObject::connect(&socket, &SslSocket::connected, &socket, [&] { connected = true; });
    QObject::connect(&socket, &SslSocket::errorOccurred, &socket, [&] { failed = true; });
    socket.sslConnect();
    waitFor([&] { return connected || failed; });
    settle();
    if (reused)
        *reused = socket.isSessionReused();
    return connected;
}

} // namespace

class TestHostileSessions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void strangerIsNotResumedAsTheProxiedServer();
    void serverThatWasVisitedIsNotResumedAsAClient();
    void halfMadeSessionDoesNotConfineLaterConnections_data();
    void halfMadeSessionDoesNotConfineLaterConnections();
    void oldServerDoesNotDowngradeOthers();
    void tunnelOfAnOldServerDoesNotDowngradeOthers();
    void adoptedClientResumesItsServer();
    void adoptedConnectionIsNotOfferedTheSessionOfAnEarlierServer();
    void sessionWithACipherThatIsNotInForceIsNotOffered();
    void sessionComesBackWithItsCipher();
    void badVerdictIsNotResumedOnceItsAuthorityIsTrusted();
    void sessionIsNotOfferedUnderAnotherIdentity_data();
    void sessionIsNotOfferedUnderAnotherIdentity();
    void onlyTheNewestSessionsOfAServerAreKept_data();
    void onlyTheNewestSessionsOfAServerAreKept();
};

// Whoever has connected to the host's server knows the keys of that session.
void TestHostileSessions::strangerIsNotResumedAsTheProxiedServer()
{
    TlsServer host;
    auto* transport = new QTcpSocket;
    EnginePeer stranger(EnginePeer::Client, transport, Identity(), WITH_IDENTIFIERS);
    QSignalSpy done(&stranger, &EnginePeer::handshakeDone);
    transport->connectToHost(QHostAddress::LocalHost, host.serverPort());
    QVERIFY(waitFor([&] { return !done.isEmpty(); }));
    const vela::SessionHandle session(SSL_get1_session(stranger.ssl()));
    transport->disconnectFromHost();
    delete host.lastSocket();

    ScriptedProxy proxy;
    std::vector<std::unique_ptr<EnginePeer>> targets;
    connect(&proxy, &ScriptedProxy::requested, this, [&](QTcpSocket* connection) {
        targets.push_back(std::make_unique<EnginePeer>(EnginePeer::Server, connection, Identity(),
                                                       WITH_IDENTIFIERS));
        SSL_CTX_add_session(SSL_get_SSL_CTX(targets.back()->ssl()), session.get());
    });
    SslProxySocket client(nullptr);
    client.setProxy(QStringLiteral("127.0.0.1"), proxy.serverPort(), QString(), QString());
    QSignalSpy connected(&client, &SslSocket::connected);
    QSignalSpy error(&client, &SslSocket::errorOccurred);
    client.connectToHost(QStringLiteral("bank.example"), 443);
    QVERIFY(waitFor([&] { return !connected.isEmpty() || !error.isEmpty(); }));
    QVERIFY(connected.isEmpty());
    QVERIFY(!client.isSessionReused());
}

void TestHostileSessions::serverThatWasVisitedIsNotResumedAsAClient()
{
    PeerServer visited(WITH_IDENTIFIERS);
    {
        SslSocket client(SslSocket::Client);
        QVERIFY(visit(client, visited.serverPort()));
    }
    const vela::SessionHandle session(SSL_get1_session(visited.peers.back()->ssl()));

    TlsServer host;
    QList<X509*> seen;
    bool resumed = false;
    connect(&host, &TlsServer::accepted, this, [&](SslSocket* socket) {
        connect(socket, &SslSocket::connected, this, [&, socket] {
            seen.append(socket->x509peerCertificate());
            resumed = socket->isSessionReused();
        });
    });
    auto* transport = new QTcpSocket;
    EnginePeer comesBack(EnginePeer::Client, transport, Identity(), WITH_IDENTIFIERS);
    SSL_set_session(comesBack.ssl(), session.get());
    transport->connectToHost(QHostAddress::LocalHost, host.serverPort());
    QVERIFY(waitFor([&] { return !seen.isEmpty(); }));
    const vela::X509Handle certificate(seen.first());
    QVERIFY(!certificate);
    QVERIFY(!resumed);
}

void TestHostileSessions::halfMadeSessionDoesNotConfineLaterConnections_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("TLS 1.0") << 1;
    QTest::newRow("SSL 3") << 0;
}

// 1.0.2 confines a connection to the version of the session that it is offered.
void TestHostileSessions::halfMadeSessionDoesNotConfineLaterConnections()
{
    QFETCH(int, version);
    PeerServer server(0);
    const Listener::Handler good = server.handle;
    server.handle = [&](QTcpSocket* connection) { answerOnce(connection, char(version)); };
    for (int i = 0; i < 3; ++i) {
        SslSocket client(SslSocket::Client);
        bool failed = false;
        connect(&client, &SslSocket::errorOccurred, this, [&] { failed = true; });
        QSignalSpy arrived(client.socket(), &QIODevice::readyRead);
        client.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(waitFor([&] { return failed || !arrived.isEmpty(); }));
        settle();
    }
    server.handle = good;
    for (int i = 0; i < 3; ++i) {
        SslSocket client(SslSocket::Client);
        QVERIFY2(visit(client, server.serverPort()), qPrintable(client.errorString()));
        QVERIFY(SSL_version(server.peers.back()->ssl()) >= TLS1_2_VERSION);
    }
}

void TestHostileSessions::oldServerDoesNotDowngradeOthers()
{
    PeerServer old(OPENSSL_VERSION_NUMBER < 0x10100000L ? ONLY_TLS10 : UP_TO_TLS12);
    PeerServer modern(ONLY_TLS12);
    for (int i = 0; i < 3; ++i) {
        QVERIFY(visitAdopted(old.serverPort()));
        QVERIFY(visitAdopted(modern.serverPort()));
    }
    HelloCollector collector;
    QVERIFY(visitAdopted(old.serverPort()));
    auto* transport = new QTcpSocket;
    transport->connectToHost(LOCALHOST, collector.serverPort());
    QVERIFY(waitFor([&] { return transport->state() == QAbstractSocket::ConnectedState; }));
    SslSocket socket(SslSocket::Client);
    socket.setSocket(transport);
    socket.sslConnect();
    QVERIFY(collector.waitForHellos(1));
    QVERIFY(collector.hellos().first().session.isEmpty());
}

void TestHostileSessions::tunnelOfAnOldServerDoesNotDowngradeOthers()
{
    const Identity identity = makeIdentity(CertificateSpec());
    ScriptedProxy proxy;
    std::vector<std::unique_ptr<EnginePeer>> targets;
    connect(&proxy, &ScriptedProxy::requested, this, [&](QTcpSocket* connection) {
        const bool isOld = proxy.requests().last().startsWith("CONNECT old.example:");
        const unsigned long oldest =
            OPENSSL_VERSION_NUMBER < 0x10100000L ? ONLY_TLS10 : UP_TO_TLS12;
        targets.push_back(std::make_unique<EnginePeer>(EnginePeer::Server, connection, identity,
                                                       isOld ? oldest : ONLY_TLS12));
    });
    for (int i = 0; i < 3; ++i) {
        for (const QString& target :
             {QStringLiteral("old.example"), QStringLiteral("new.example")}) {
            SslProxySocket client(nullptr);
            client.setProxy(QStringLiteral("127.0.0.1"), proxy.serverPort(), QString(), QString());
            QSignalSpy connected(&client, &SslSocket::connected);
            QSignalSpy error(&client, &SslSocket::errorOccurred);
            client.connectToHost(target, 443);
            QVERIFY(waitFor([&] { return !connected.isEmpty() || !error.isEmpty(); }));
            QVERIFY2(!connected.isEmpty(), qPrintable(client.errorString()));
        }
    }
}

void TestHostileSessions::adoptedClientResumesItsServer()
{
    TlsServer server;
    connect(&server, &TlsServer::accepted, this, [](SslSocket* socket) { socket->write("x"); });
    bool reused = true;
    QVERIFY(visitAdopted(server.serverPort(), &reused));
    QVERIFY(!reused);
    QVERIFY(visitAdopted(server.serverPort(), &reused));
    QVERIFY(reused);
}

// The socket's key is still that of the server which it connected to before.
void TestHostileSessions::adoptedConnectionIsNotOfferedTheSessionOfAnEarlierServer()
{
    PeerServer server(UP_TO_TLS12);
    SslSocket socket(SslSocket::Client);
    QVERIFY(visit(socket, server.serverPort()));
    HelloCollector collector;
    auto* transport = new QTcpSocket;
    transport->connectToHost(LOCALHOST, collector.serverPort());
    QVERIFY(waitFor([&] { return transport->state() == QAbstractSocket::ConnectedState; }));
    socket.setSocket(transport);
    socket.sslConnect();
    QVERIFY(collector.waitForHellos(1));
    QVERIFY(collector.hellos().first().session.isEmpty());
}

void TestHostileSessions::sessionWithACipherThatIsNotInForceIsNotOffered()
{
    PeerServer server(UP_TO_TLS12);
    for (const char* list :
         {"AES128-SHA:ECDHE-ECDSA-AES128-GCM-SHA256", "AES256-SHA:ECDHE-ECDSA-AES256-GCM-SHA384",
          "AES128-SHA:ECDHE-ECDSA-AES128-GCM-SHA256", "DEFAULT"}) {
        SslSocket client(SslSocket::Client);
        client.setCiphers(QString::fromLatin1(list));
        QVERIFY2(visit(client, server.serverPort()), qPrintable(client.errorString()));
    }
}

// With the list that it was made with, the session is of use again.
void TestHostileSessions::sessionComesBackWithItsCipher()
{
    PeerServer server(UP_TO_TLS12);
    const QString list = QStringLiteral("ECDHE-ECDSA-AES128-GCM-SHA256");
    SslSocket client(SslSocket::Client);
    client.setCiphers(list);
    QVERIFY(visit(client, server.serverPort()));
    const quint16 port = server.serverPort();
    server.close();

    HelloCollector collector(port);
    QList<bool> offers;
    for (const QString& current : {QStringLiteral("ECDHE-ECDSA-AES256-GCM-SHA384"), list}) {
        SslSocket later(SslSocket::Client);
        later.setCiphers(current);
        later.connectToHost(LOCALHOST, port);
        QVERIFY(collector.waitForHellos(offers.size() + 1));
        offers.append(!collector.hellos().last().session.isEmpty());
    }
    QCOMPARE(offers, (QList<bool>{false, true}));
    SslSocket all(SslSocket::Client);
    all.setCiphers(QStringLiteral("DEFAULT"));
    all.connectToHost(LOCALHOST, port);
}

void TestHostileSessions::badVerdictIsNotResumedOnceItsAuthorityIsTrusted()
{
    const Authority authority(QStringLiteral("Trusted between two connections"));
    TlsServer server(authority.issue());
    connect(&server, &TlsServer::accepted, this, [](SslSocket* socket) { socket->write("x"); });
    QList<vela::CertVerify> verdicts;
    QList<bool> reused;
    for (const QString& caFile : {QString(), QString(), authority.caFile, authority.caFile}) {
        SslSocket client(SslSocket::Client);
        client.setPathToCACertFile(caFile);
        bool read = false;
        connect(&client, &SslSocket::connectionVerificationDone, this,
                [&](vela::CertVerify verdict) { verdicts.append(verdict); });
        connect(&client, &SslSocket::readyRead, this, [&] { read = true; });
        client.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(waitFor([&] { return read; }));
        reused.append(client.isSessionReused());
    }
    QCOMPARE(verdicts, (QList<vela::CertVerify>{vela::VerifyFailed, vela::VerifyFailed,
                                                vela::VerifyOk, vela::VerifyOk}));
    QCOMPARE(reused, (QList<bool>{false, true, false, true}));
}

// A server that asks for certificates would go on taking the host for whom it was before.
void TestHostileSessions::sessionIsNotOfferedUnderAnotherIdentity_data()
{
    QTest::addColumn<bool>("asked");
    QTest::newRow("to a server that asked for it") << true;
    QTest::newRow("to a server that did not") << false;
}

void TestHostileSessions::sessionIsNotOfferedUnderAnotherIdentity()
{
    QFETCH(bool, asked);
    const auto loadIdentity = [] {
        TlsServer server;
        TcpPair pair;
        const std::unique_ptr<QTcpSocket> far(pair.far);
        SslSocket socket(SslSocket::Server);
        socket.setPathToCertificate(server.certificatePath());
        socket.setPathToPrivateKey(server.keyPath());
        socket.setSocket(pair.near);
    };
    loadIdentity();
    PeerServer server(UP_TO_TLS12);
    server.asksForCertificates = asked;
    SslSocket client(SslSocket::Client);
    QVERIFY(visit(client, server.serverPort()));
    const quint16 port = server.serverPort();
    server.close();
    HelloCollector collector(port);
    loadIdentity();
    client.connectToHost(LOCALHOST, port);
    QVERIFY(collector.waitForHellos(1));
    QCOMPARE(collector.hellos().first().session.isEmpty(), asked);
}

void TestHostileSessions::onlyTheNewestSessionsOfAServerAreKept_data()
{
    QTest::addColumn<int>("connections");
    QTest::addColumn<int>("tickets");
    QTest::newRow("of many connections") << 40 << 0;
    if (HAS_LATER_TICKETS)
        QTest::newRow("of one connection") << 1 << 500;
}

void TestHostileSessions::onlyTheNewestSessionsOfAServerAreKept()
{
    QFETCH(int, connections);
    QFETCH(int, tickets);
    constexpr int KEPT = 24;
    constexpr int OFFERS_ASKED = 40;
    PeerServer server(tickets > 0 ? 0 : UP_TO_TLS12);
    std::vector<std::unique_ptr<SslSocket>> sockets;
    int connected = 0;
    int received = 0;
    for (int i = 0; i < connections; ++i) {
        sockets.push_back(std::make_unique<SslSocket>(SslSocket::Client));
        SslSocket& socket = *sockets.back();
        connect(&socket, &SslSocket::connected, this, [&] { ++connected; });
        connect(&socket, &SslSocket::readyRead, this, [&] { received += socket.readAll().size(); });
        socket.connectToHost(LOCALHOST, server.serverPort());
    }
    QVERIFY(waitFor(
        [&] { return connected == connections && server.peers.back()->isHandshakeDone(); }));
    const int before = sessionsInCache();
    for (int i = 0; i < tickets; ++i)
        QVERIFY(sendTicket(*server.peers.back()));
    QVERIFY(waitFor([&] { return received == tickets; }));
    // Nor does OpenSSL keep what can never be resumed.
    QVERIFY2(sessionsInCache() <= before + KEPT, qPrintable(SslSocket::printStatistics()));
    const quint16 port = server.serverPort();
    server.close();
    sockets.clear();

    HelloCollector collector(port);
    for (int i = 0; i < OFFERS_ASKED; ++i) {
        sockets.push_back(std::make_unique<SslSocket>(SslSocket::Client));
        sockets.back()->connectToHost(LOCALHOST, port);
    }
    QVERIFY(collector.waitForHellos(OFFERS_ASKED));
    int offers = 0;
    for (const ClientHello& hello : collector.hellos())
        offers += hello.session.isEmpty() ? 0 : 1;
    QCOMPARE(offers, KEPT);
}

QTEST_GUILESS_MAIN(TestHostileSessions)
#include "tst_hostilesessions.moc"

// SPDX-License-Identifier: BSD-3-Clause
// The library's client through squid and tinyproxy.

#include "tests/common/EnginePeer.h"
#include "tests/interop/Exchange.h"
#include "tests/interop/HttpProxies.h"

#include <memory>
#include <vector>

using test::Exchange;
using test::Payload;
using test::PeerProcess;
using test::ProxyProcess;
using test::TestServer;
using test::TunnelClient;

namespace {

const QString USER = QStringLiteral("user");
const QString PASSWORD = QStringLiteral("secret");
const QString LOCALHOST = QStringLiteral("localhost");

//! The newest, which both the engine and the peers negotiate if left alone.
const test::TlsVersion& newestVersion()
{
    return test::sharedVersions().front();
}

//! Returns a server whose port is not spelled with what clients take for success.
std::unique_ptr<TestServer> plainServer(const test::PeerFiles& files)
{
    while (true) {
        auto server = std::make_unique<TestServer>(files, newestVersion());
        if (!test::looksLikeSuccess(server->serverPort()))
            return server;
    }
}

} // namespace

class tst_Proxies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    // First of all: the tunnels of a process share their sessions, and the oldest is offered.
    void resumesSession_data() { test::addProxyRows(); }
    void resumesSession();
    void exchangesDataWithServerProgram_data() { addAccessRows(); }
    void exchangesDataWithServerProgram();
    void exchangesDataWithOwnServer_data() { addAccessRows(); }
    void exchangesDataWithOwnServer();
    void twentyTunnelsAtOnce_data() { test::addProxyRows(); }
    void twentyTunnelsAtOnce();
    void wrongPasswordIsRefused_data();
    void wrongPasswordIsRefused();
    void closedPortIsRefused_data() { test::addProxyRows(); }
    void closedPortIsRefused();
    void refusalThatNamesTheTargetMayCountAsSuccess();
    void targets_data();
    void targets();
    void endOfTheProxyEndsTheConnection_data() { test::addProxyRows(); }
    void endOfTheProxyEndsTheConnection();

private:
    static void addAccessRows();
    void exchange(TunnelClient* client, QIODevice* server);
    bool startServer(PeerProcess* server, const char* mode) const;

    test::PeerFiles m_files;
};

void tst_Proxies::initTestCase()
{
    REQUIRE_PROXIES();
}

void tst_Proxies::addAccessRows()
{
    QTest::addColumn<ProxyProcess::Kind>("proxy");
    QTest::addColumn<QString>("user");
    QTest::newRow("squid for everybody") << ProxyProcess::Squid << QString();
    QTest::newRow("squid with a password") << ProxyProcess::Squid << USER;
    QTest::newRow("tinyproxy for everybody") << ProxyProcess::Tinyproxy << QString();
    QTest::newRow("tinyproxy with a password") << ProxyProcess::Tinyproxy << USER;
}

bool tst_Proxies::startServer(PeerProcess* server, const char* mode) const
{
    return server->runServer([&](quint16 port) {
        return QStringList{QStringLiteral("s_server"),
                           QStringLiteral("-accept"),
                           QStringLiteral("127.0.0.1:%1").arg(port),
                           QStringLiteral("-cert"),
                           m_files.certificate,
                           QStringLiteral("-key"),
                           m_files.key,
                           QString::fromLatin1(mode)};
    });
}

void tst_Proxies::resumesSession()
{
    QFETCH(ProxyProcess::Kind, proxy);
    ProxyProcess program(proxy);
    QVERIFY(program.serve());
    PeerProcess server(QStringLiteral("openssl"));
    // Its status page tells what it thinks of the connection.
    QVERIFY(startServer(&server, "-www"));
    TunnelClient client(m_files, program);
    // Sessions of the servers before come first, a few of each.
    constexpr int ATTEMPTS = 10;
    bool isResumed = false;
    while (!isResumed && client.tunnels < ATTEMPTS) {
        QSignalSpy disconnected(&client, &QAbstractSocket::disconnected);
        QVERIFY(test::establish(&client, LOCALHOST, server.port()));
        QCOMPARE(client.verdict, vela::VerifyOk);
        QVERIFY(client.hostNameMatched);
        isResumed = client.isSessionReused();
        client.write("GET / HTTP/1.0\r\n\r\n");
        QVERIFY(disconnected.wait(test::CONNECT_TIMEOUT_MS));
        const QByteArray page = client.readAll();
        QVERIFY2(page.contains(isResumed ? "Reused, " : "New, "), page.constData());
    }
    QVERIFY(isResumed);
    QVERIFY(client.tunnels > 1);
}

void tst_Proxies::exchange(TunnelClient* client, QIODevice* server)
{
    QCOMPARE(client->tunnels, 1);
    QCOMPARE(client->verdict, vela::VerifyOk);
    QVERIFY(client->hostNameMatched);
    Exchange exchange;
    exchange.send(QStringLiteral("client to server"), client, Payload(1));
    exchange.receive(QStringLiteral("server from client"), server, Payload(1));
    exchange.send(QStringLiteral("server to client"), server, Payload(2));
    exchange.receive(QStringLiteral("client from server"), client, Payload(2));
    QCOMPARE(exchange.run(), QString());
    QVERIFY(test::finishConnection(client));
}

void tst_Proxies::exchangesDataWithServerProgram()
{
    QFETCH(ProxyProcess::Kind, proxy);
    QFETCH(QString, user);
    ProxyProcess program(proxy);
    QVERIFY(program.serve(user, PASSWORD));
    PeerProcess server(QStringLiteral("openssl"));
    QVERIFY(startServer(&server, "-quiet"));
    TunnelClient client(m_files, program, user, PASSWORD);
    QVERIFY(test::establish(&client, LOCALHOST, server.port()));
    exchange(&client, &server);
}

void tst_Proxies::exchangesDataWithOwnServer()
{
    QFETCH(ProxyProcess::Kind, proxy);
    QFETCH(QString, user);
    ProxyProcess program(proxy);
    QVERIFY(program.serve(user, PASSWORD));
    TestServer server(m_files, newestVersion());
    TunnelClient client(m_files, program, user, PASSWORD);
    QVERIFY(test::establish(&client, LOCALHOST, server.serverPort()));
    exchange(&client, server.awaitPeer());
}

void tst_Proxies::twentyTunnelsAtOnce()
{
    constexpr int TUNNELS = 20;
    constexpr int SIZE = 1024 * 1024;
    QFETCH(ProxyProcess::Kind, proxy);
    ProxyProcess program(proxy);
    QVERIFY(program.serve());
    TestServer server(m_files, newestVersion());
    connect(&server, &test::TlsServer::accepted, &server, [](vela::SslSocket* peer) {
        connect(peer, &QIODevice::readyRead, peer, [peer] { peer->write(peer->readAll()); });
    });
    std::vector<std::unique_ptr<TunnelClient>> clients;
    std::vector<QByteArray> received(TUNNELS);
    for (int i = 0; i < TUNNELS; ++i) {
        clients.push_back(std::make_unique<TunnelClient>(m_files, program));
        TunnelClient* const client = clients.back().get();
        connect(client, &QIODevice::readyRead, client,
                [client, &received, i] { received[i] += client->readAll(); });
        connect(client, &QAbstractSocket::connected, client,
                [client, i] { client->write(QByteArray(SIZE, char('a' + i))); });
        client->connectToHost(LOCALHOST, server.serverPort());
    }
    for (int i = 0; i < TUNNELS; ++i) {
        QTRY_COMPARE_WITH_TIMEOUT(received[i].size(), SIZE, 60000);
        QVERIFY(received[i] == QByteArray(SIZE, char('a' + i)));
        QCOMPARE(clients[i]->tunnels, 1);
        QCOMPARE(clients[i]->state(), QAbstractSocket::ConnectedState);
    }
}

void tst_Proxies::wrongPasswordIsRefused_data()
{
    QTest::addColumn<ProxyProcess::Kind>("proxy");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("answer");
    const QString required = QStringLiteral("HTTP/1.1 407 Proxy Authentication Required\r\n");
    const QString wrong = QStringLiteral("wrong");
    QTest::newRow("squid, none") << ProxyProcess::Squid << QString() << PASSWORD << required;
    QTest::newRow("squid, other user") << ProxyProcess::Squid << wrong << PASSWORD << required;
    QTest::newRow("squid, other password") << ProxyProcess::Squid << USER << wrong << required;
    QTest::newRow("squid, no password") << ProxyProcess::Squid << USER << QString() << required;
    QTest::newRow("tinyproxy, none")
        << ProxyProcess::Tinyproxy << QString() << PASSWORD
        << QStringLiteral("HTTP/1.0 407 Proxy Authentication Required\r\n");
    const QString unauthorized = QStringLiteral("HTTP/1.0 401 Unauthorized\r\n");
    QTest::newRow("tinyproxy, other user")
        << ProxyProcess::Tinyproxy << wrong << PASSWORD << unauthorized;
    QTest::newRow("tinyproxy, other password")
        << ProxyProcess::Tinyproxy << USER << wrong << unauthorized;
    QTest::newRow("tinyproxy, no password")
        << ProxyProcess::Tinyproxy << USER << QString() << unauthorized;
}

void tst_Proxies::wrongPasswordIsRefused()
{
    QFETCH(ProxyProcess::Kind, proxy);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QString, answer);
    ProxyProcess program(proxy);
    QVERIFY(program.serve(USER, PASSWORD));
    const std::unique_ptr<TestServer> server = plainServer(m_files);
    QSignalSpy accepted(server.get(), &test::TlsServer::accepted);
    TunnelClient client(m_files, program, user, password);
    QSignalSpy failed(&client, &QAbstractSocket::errorOccurred);
    QSignalSpy changed(&client, &QAbstractSocket::stateChanged);
    client.connectToHost(LOCALHOST, server->serverPort());
    QVERIFY(failed.wait(test::CONNECT_TIMEOUT_MS));
    QCOMPARE(client.error(), QAbstractSocket::ConnectionRefusedError);
    QVERIFY2(client.errorString().startsWith(answer), qPrintable(client.errorString()));
    QCOMPARE(client.tunnels, 0);
    QCOMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(changed.isEmpty());
    QVERIFY(accepted.isEmpty());
}

void tst_Proxies::closedPortIsRefused()
{
    QFETCH(ProxyProcess::Kind, proxy);
    ProxyProcess program(proxy);
    QVERIFY(program.serve());
    const quint16 port = plainServer(m_files)->serverPort();
    TunnelClient client(m_files, program);
    QSignalSpy failed(&client, &QAbstractSocket::errorOccurred);
    client.connectToHost(LOCALHOST, port);
    QVERIFY(failed.wait(test::CONNECT_TIMEOUT_MS));
    QCOMPARE(failed.first().first().value<QAbstractSocket::SocketError>(),
             QAbstractSocket::ConnectionRefusedError);
    const QString answer = proxy == ProxyProcess::Squid
                               ? QStringLiteral("HTTP/1.1 503 Service Unavailable\r\n")
                               : QStringLiteral("HTTP/1.0 500 Unable to connect\r\n");
    QVERIFY2(client.errorString().startsWith(answer), qPrintable(client.errorString()));
    QCOMPARE(client.tunnels, 0);
}

/*
    Squid writes the target into the page that comes with a refusal.
*/
void tst_Proxies::refusalThatNamesTheTargetMayCountAsSuccess()
{
    ProxyProcess program(ProxyProcess::Squid);
    QVERIFY(program.serve(USER, PASSWORD));
    TunnelClient client(m_files, program);
    QSignalSpy failed(&client, &QAbstractSocket::errorOccurred);
    client.connectToHost(LOCALHOST, 2001);
    QVERIFY(failed.wait(test::CONNECT_TIMEOUT_MS));
    QCOMPARE(client.tunnels, 1);
    QCOMPARE(client.error(), QAbstractSocket::UnknownSocketError);
}

void tst_Proxies::targets_data()
{
    QTest::addColumn<ProxyProcess::Kind>("proxy");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("refusal");
    QTest::addColumn<bool>("hostNameMatches");
    const QString v4 = QStringLiteral("127.0.0.1");
    const QString v6 = QStringLiteral("::1");
    const QString bracketed = QStringLiteral("[::1]");
    const QString none;
    QTest::newRow("squid, name") << ProxyProcess::Squid << LOCALHOST << none << true;
    QTest::newRow("squid, IPv4") << ProxyProcess::Squid << v4 << none << true;
    QTest::newRow("squid, IPv6") << ProxyProcess::Squid << v6
                                 << QStringLiteral("HTTP/1.1 400 Bad Request\r\n") << false;
    QTest::newRow("squid, IPv6 in brackets") << ProxyProcess::Squid << bracketed << none << false;
    QTest::newRow("tinyproxy, name") << ProxyProcess::Tinyproxy << LOCALHOST << none << true;
    QTest::newRow("tinyproxy, IPv4") << ProxyProcess::Tinyproxy << v4 << none << true;
    QTest::newRow("tinyproxy, IPv6") << ProxyProcess::Tinyproxy << v6 << none << true;
    QTest::newRow("tinyproxy, IPv6 in brackets")
        << ProxyProcess::Tinyproxy << bracketed << none << false;
}

/*
    The certificate is for the host without brackets.
*/
void tst_Proxies::targets()
{
    QFETCH(ProxyProcess::Kind, proxy);
    QFETCH(QString, target);
    QFETCH(QString, refusal);
    QFETCH(bool, hostNameMatches);
    ProxyProcess program(proxy);
    QVERIFY(program.serve());
    const QString name = QString(target).remove(QLatin1Char('[')).remove(QLatin1Char(']'));
    // Peers of the engine share no session with each other.
    const test::Identity identity = m_files.authority.issue(name);
    std::vector<std::unique_ptr<test::EnginePeer>> peers;
    QTcpServer server;
    connect(&server, &QTcpServer::newConnection, &server, [&] {
        peers.push_back(std::make_unique<test::EnginePeer>(
            test::EnginePeer::Server, server.nextPendingConnection(), identity));
    });
    const bool isV6 = name == QLatin1String("::1");
    if (!server.listen(isV6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost))
        QSKIP("no IPv6 on this machine");
    TunnelClient client(m_files, program);
    QCOMPARE(test::establish(&client, target, server.serverPort()), refusal.isEmpty());
    QVERIFY2(client.errorString().startsWith(refusal), qPrintable(client.errorString()));
    QCOMPARE(client.peerName(), target);
    QCOMPARE(client.peerPort(), server.serverPort());
    QCOMPARE(client.hostNameMatched, hostNameMatches);
    QCOMPARE(client.verdict, refusal.isEmpty() ? vela::VerifyOk : vela::VerifyUnknown);
}

void tst_Proxies::endOfTheProxyEndsTheConnection()
{
    QFETCH(ProxyProcess::Kind, proxy);
    ProxyProcess program(proxy);
    QVERIFY(program.serve());
    TestServer server(m_files, newestVersion());
    TunnelClient client(m_files, program);
    QVERIFY(test::establish(&client, LOCALHOST, server.serverPort()));
    QSignalSpy disconnected(&client, &QAbstractSocket::disconnected);
    program.stop();
    QVERIFY(!disconnected.isEmpty() || disconnected.wait(test::CONNECT_TIMEOUT_MS));
    QCOMPARE(client.state(), QAbstractSocket::UnconnectedState);
}

QTEST_GUILESS_MAIN(tst_Proxies)
#include "tst_proxies.moc"

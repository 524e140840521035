// SPDX-License-Identifier: BSD-3-Clause
#include "EchoingProxy.h"
#include "EmissionLog.h"
#include "EventWait.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/SslProxySocket.h>

#include <QtTest/QtTest>

using namespace test;
using vela::SslProxySocket;
using vela::SslSocket;

namespace {

const QString LOOPBACK = QStringLiteral("127.0.0.1");
const QString TARGET = QStringLiteral("target.example");

const QByteArrayList TUNNEL_STORY = {"tunnelEstablished", "connectionVerificationDone",
                                     "stateChanged:3", "stateChanged:3", "connected"};
const QByteArrayList DIRECT_STORY = {
    "stateChanged:1", "stateChanged:2", "connectionVerificationDone",
    "stateChanged:3", "stateChanged:3", "connected"};

//! How far a connection has come.
enum class Stage {
    ConnectingToTheProxy,
    Asking,
    Refused,
    TunnelUp,
    Connected,
    Ended
};

const struct
{
    const char* name;
    Stage stage;
} stages[] = {
    {"connecting to the proxy", Stage::ConnectingToTheProxy},
    {"asking the proxy", Stage::Asking},
    {"refused", Stage::Refused},
    {"tunnel up", Stage::TunnelUp},
    {"connected", Stage::Connected},
    {"ended by the server", Stage::Ended},
};

QList<QTcpSocket*> tunnelsOf(const SslProxySocket* socket)
{
    return socket->findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
}

//! A socket whose connection through a proxy of its own has come to a certain stage.
class Client
{
public:
    explicit Client(Stage stage)
        : socket(new SslProxySocket(nullptr))
        , log(std::make_unique<EmissionLog>(socket.get()))
    {
        if (stage < Stage::Connected)
            m_proxy = std::make_unique<ScriptedProxy>();
        else
            m_proxy = std::make_unique<EchoingProxy>();
        if (stage == Stage::Asking)
            m_proxy->reply.clear();
        else if (stage == Stage::Refused)
            m_proxy->reply = "HTTP/1.0 403 Forbidden\r\n\r\n";
        QObject::connect(m_proxy.get(), &ScriptedProxy::arrived, socket.get(),
                         [this](QTcpSocket* connection) { m_far = connection; });
        connectThrough(*m_proxy);
        firstTunnel = tunnelsOf(socket.get()).last();
        if (!waitFor([&] { return hasReached(stage); }))
            qFatal("the client does not get as far as the test needs");
        if (stage == Stage::Ended) {
            m_far->disconnectFromHost();
            waitFor([&] { return log->count("disconnected") > 0; });
        }
        log->emissions.clear();
    }

    void connectThrough(const ScriptedProxy& proxy)
    {
        socket->setProxy(LOOPBACK, proxy.serverPort(), QString(), QString());
        socket->connectToHost(TARGET, 443);
    }

    void connectDirectly(const QTcpServer& server)
    {
        socket->setProxy(QString(), 0, QString(), QString());
        socket->connectToHost(LOOPBACK, server.serverPort());
    }

    //! Has the first proxy do all that it can to be heard.
    void provokeFirstTunnel()
    {
        settle();
        if (m_far) {
            m_far->write(QByteArray(ScriptedProxy::ACCEPTANCE) + QByteArray(64, '?'));
            settle();
            m_far->disconnectFromHost();
            settle();
        }
    }

    const ScriptedProxy& firstProxy() const { return *m_proxy; }

    //! The first proxy's end of the connection; null when it is gone.
    QTcpSocket* farEnd() const { return m_far; }

    bool becomesConnected() const
    {
        return waitFor([&] { return log->count("connected") > 0; });
    }

    bool exchanges(const QByteArray& text)
    {
        socket->write(text);
        return waitFor([&] { return socket->bytesAvailable() >= text.size(); })
               && socket->readAll() == text;
    }

    std::unique_ptr<SslProxySocket> socket;
    std::unique_ptr<EmissionLog> log;
    QPointer<QTcpSocket> firstTunnel;

private:
    bool hasReached(Stage stage) const
    {
        switch (stage) {
        case Stage::ConnectingToTheProxy:
            return true;
        case Stage::Asking:
            return !m_proxy->requests().isEmpty();
        case Stage::Refused:
            return log->count("errorOccurred") > 0;
        case Stage::TunnelUp:
            return log->count("tunnelEstablished") > 0;
        case Stage::Connected:
        case Stage::Ended:
            return log->count("connected") > 0;
        }
        return false;
    }

    std::unique_ptr<ScriptedProxy> m_proxy;
    QPointer<QTcpSocket> m_far;
};

} // namespace

Q_DECLARE_METATYPE(Stage)

//! One connection of a socket after the other, or in the middle of it.
class ProxyConnectionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void secondTunnelSilencesTheFirst_data() { addStages(); }
    void secondTunnelSilencesTheFirst();
    void everyTunnelStaysAChildUntilTheEnd();
    void directConnectionSilencesTheTunnel_data() { addStages(); }
    void directConnectionSilencesTheTunnel();
    void directConnectionAfterTwoTunnels_data() { addStages(); }
    void directConnectionAfterTwoTunnels();
    void tunnelReplacesADirectConnection();
    void giveUpEndsWhateverIsUnderWay_data();
    void giveUpEndsWhateverIsUnderWay();
    void disconnectWithTwoConnectionsEndsBoth();
    void abortDoesNothingBeforeTheHandshakeIsComplete();
    void connectedAgainAfterTheServerClosedStartsAfresh();
    void deletionEndsTheTunnelInSilence_data() { addStages(); }
    void deletionEndsTheTunnelInSilence();
    void tunnelDeletedByTheHostLeavesAUsableSocket_data() { addStages(); }
    void tunnelDeletedByTheHostLeavesAUsableSocket();
    void connectionBegunWhenTheEngineFailsIsTheOneThatCounts();
    void manySocketsShareTheEmptyKeyWithServers();
    void serverKeepsNothingOfATunnelsVerdict();

private:
    static void addStages();
};

void ProxyConnectionsTest::addStages()
{
    QTest::addColumn<Stage>("stage");
    for (const auto& row : stages)
        QTest::newRow(row.name) << row.stage;
}

void ProxyConnectionsTest::secondTunnelSilencesTheFirst()
{
    QFETCH(Stage, stage);
    Client client(stage);
    EchoingProxy second;
    second.reply.clear();
    client.connectThrough(second);
    QVERIFY(waitFor([&] { return second.server(); }));
    client.provokeFirstTunnel();
    QCOMPARE(client.log->emissions, QByteArrayList());
    QCOMPARE(client.firstProxy().requests().size(), stage == Stage::ConnectingToTheProxy ? 0 : 1);

    second.connection()->write(ScriptedProxy::ACCEPTANCE);
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->story(), TUNNEL_STORY);
    QVERIFY(client.exchanges("through the second"));
    QCOMPARE(second.server()->received(), QByteArray("through the second"));

    QVERIFY(client.firstTunnel);
    QCOMPARE(client.firstTunnel->parent(), client.socket.get());
    client.socket.reset();
    QVERIFY(client.firstTunnel.isNull());
}

void ProxyConnectionsTest::everyTunnelStaysAChildUntilTheEnd()
{
    ScriptedProxy silent;
    silent.reply.clear();
    EchoingProxy proxy;
    Client client(Stage::Asking);
    const QPointer<QTcpSocket> own = client.socket->socket();
    QCOMPARE(tunnelsOf(client.socket.get()).size(), 2);
    for (int count = 3; count < 6; ++count) {
        client.connectThrough(silent);
        QCOMPARE(tunnelsOf(client.socket.get()).size(), count);
        settle();
    }
    client.connectThrough(proxy);
    QVERIFY(client.becomesConnected());
    settle();
    QVERIFY(own.isNull()); // It gave way to the tunnel.
    QCOMPARE(tunnelsOf(client.socket.get()).size(), 5);
}

void ProxyConnectionsTest::directConnectionSilencesTheTunnel()
{
    QFETCH(Stage, stage);
    TlsServer server;
    Client client(stage);
    if (stage == Stage::Connected) {
        QTest::ignoreMessage(QtWarningMsg,
                             "QtSslSocket::connectToHost() called when not in UnconnectedState");
        client.connectDirectly(server);
        QCOMPARE(client.socket->state(), QAbstractSocket::ConnectedState);
        client.socket->close();
        client.log->emissions.clear();
    }
    client.connectDirectly(server);
    client.provokeFirstTunnel();
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->story(), DIRECT_STORY);
    QCOMPARE(client.socket->peerName(), LOOPBACK);
    QVERIFY(waitFor([&] { return server.lastSocket(); }));
    client.socket->write("directly");
    QVERIFY(waitFor([&] { return server.lastSocket()->bytesAvailable() >= 8; }));
}

void ProxyConnectionsTest::directConnectionAfterTwoTunnels()
{
    QFETCH(Stage, stage);
    TlsServer server;
    ScriptedProxy second;
    second.reply.clear();
    Client client(stage);
    client.connectThrough(second);
    QVERIFY(waitFor([&] { return !second.requests().isEmpty(); }));
    client.socket->close();
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    client.log->emissions.clear();
    client.connectDirectly(server);
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->story(), DIRECT_STORY);
}

void ProxyConnectionsTest::tunnelReplacesADirectConnection()
{
    TlsServer server;
    EchoingProxy proxy;
    Client client(Stage::Asking);
    client.connectDirectly(server);
    QVERIFY(client.becomesConnected());
    const QPointer<QTcpSocket> own = client.socket->socket();
    client.log->emissions.clear();
    client.connectThrough(proxy);
    QVERIFY(waitFor([&] { return client.log->count("connected") > 0; }));
    QCOMPARE(client.log->story(), TUNNEL_STORY);
    QVERIFY(own.isNull());
    QCOMPARE(client.socket->peerName(), TARGET);
    QVERIFY(client.exchanges("through the tunnel"));
}

void ProxyConnectionsTest::giveUpEndsWhateverIsUnderWay_data()
{
    QTest::addColumn<Stage>("stage");
    QTest::addColumn<bool>("closing");
    for (const auto& row : stages) {
        QTest::addRow("close() while %s", row.name) << row.stage << true;
        QTest::addRow("disconnectFromHost() while %s", row.name) << row.stage << false;
    }
}

void ProxyConnectionsTest::giveUpEndsWhateverIsUnderWay()
{
    QFETCH(Stage, stage);
    QFETCH(bool, closing);
    Client client(stage);
    if (closing)
        client.socket->close();
    else
        client.socket->disconnectFromHost();
    QVERIFY(waitFor([&] {
        return client.socket->state() == QAbstractSocket::UnconnectedState
               && client.firstTunnel->state() == QAbstractSocket::UnconnectedState;
    }));
    settle();
    client.log->emissions.clear();
    client.provokeFirstTunnel();
    QCOMPARE(client.log->emissions, QByteArrayList());

    EchoingProxy proxy;
    client.connectThrough(proxy);
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->story(), TUNNEL_STORY);
    QVERIFY(client.exchanges("after all"));
}

void ProxyConnectionsTest::disconnectWithTwoConnectionsEndsBoth()
{
    TlsServer server;
    ScriptedProxy second;
    second.reply.clear();
    Client client(Stage::Connected);
    client.socket->write(QByteArray(16 * 1024 * 1024, 'x')); // Keeps the first connection closing.
    QCoreApplication::sendPostedEvents(client.socket.get());
    client.connectThrough(second);
    QVERIFY(waitFor([&] { return !second.requests().isEmpty(); }));
    client.socket->disconnectFromHost();
    QVERIFY(
        waitFor([&] { return client.socket->state() == QAbstractSocket::UnconnectedState; }, 2000));
    second.connection()->write(ScriptedProxy::ACCEPTANCE);
    settle();
    QCOMPARE(client.log->count("tunnelEstablished"), 0);
    client.connectDirectly(server);
    QVERIFY(client.becomesConnected());
}

void ProxyConnectionsTest::abortDoesNothingBeforeTheHandshakeIsComplete()
{
    EchoingProxy proxy;
    Client client(Stage::Asking);
    client.connectThrough(proxy);
    client.socket->abort();
    QObject::connect(client.socket.get(), &SslProxySocket::tunnelEstablished, this,
                     [&] { client.socket->abort(); });
    QVERIFY(client.becomesConnected());
    client.socket->abort();
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.socket->socket()->state(), QAbstractSocket::UnconnectedState);
}

void ProxyConnectionsTest::connectedAgainAfterTheServerClosedStartsAfresh()
{
    EchoingProxy proxy;
    Client client(Stage::Asking);
    QList<qint64> stale;
    connect(client.socket.get(), &SslProxySocket::tunnelEstablished, this,
            [&] { stale.append(client.socket->bytesAvailable()); });
    for (int round = 0; round < 4; ++round) {
        client.connectThrough(proxy);
        QVERIFY(client.becomesConnected());
        QCOMPARE(client.log->story(), TUNNEL_STORY);
        const QByteArray text = "of round " + QByteArray::number(round);
        QVERIFY(client.exchanges(text));
        QCOMPARE(proxy.server()->received(), text);
        // Left unread, to be forgotten with the connection.
        proxy.server()->write("unread");
        QVERIFY(waitFor([&] { return client.socket->bytesAvailable() > 0; }));
        proxy.server()->hangUp();
        QVERIFY(waitFor([&] { return client.log->count("disconnected") > 0; }));
        QCOMPARE(client.socket->bytesAvailable(), qint64(6));
        client.log->emissions.clear();
    }
    QCOMPARE(stale, QList<qint64>({0, 0, 0, 0}));
}

void ProxyConnectionsTest::deletionEndsTheTunnelInSilence()
{
    QFETCH(Stage, stage);
    Client client(stage);
    const QPointer<QTcpSocket> own = client.socket->socket();
    client.socket.reset();
    QVERIFY(client.firstTunnel.isNull());
    settle();
    QVERIFY(own.isNull());
    QCOMPARE(client.log->emissions, QByteArrayList());
    QVERIFY(waitFor([&] {
        return !client.farEnd() || client.farEnd()->state() == QAbstractSocket::UnconnectedState;
    }));
}

void ProxyConnectionsTest::tunnelDeletedByTheHostLeavesAUsableSocket()
{
    QFETCH(Stage, stage);
    EchoingProxy proxy;
    Client client(stage);
    delete client.firstTunnel;
    client.log->emissions.clear(); // Qt tells of the end of a connection on destruction.
    QVERIFY(QMetaObject::invokeMethod(client.socket.get(), "proxyConnected"));
    QVERIFY(QMetaObject::invokeMethod(client.socket.get(), "proxyResponse"));
    QCOMPARE(client.log->emissions, QByteArrayList());
    client.socket->close();
    client.log->emissions.clear();
    client.connectThrough(proxy);
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->story(), TUNNEL_STORY);
    QVERIFY(client.exchanges("with another tunnel"));
}

void ProxyConnectionsTest::connectionBegunWhenTheEngineFailsIsTheOneThatCounts()
{
    EchoingProxy proxy;
    Client client(Stage::Asking);
    SslProxySocket* socket = client.socket.get();
    socket->setCiphers(QStringLiteral("no such cipher"));
    connect(socket, &QAbstractSocket::errorOccurred, this, [socket] {
        socket->setCiphers(QString());
        socket->connectToHost(QStringLiteral("other.example"), 8443);
    });
    client.connectThrough(proxy);
    QVERIFY(client.becomesConnected());
    QCOMPARE(client.log->count("errorOccurred"), 1);
    QCOMPARE(client.log->count("tunnelEstablished"), 1);
    QCOMPARE(socket->peerName(), QStringLiteral("other.example"));
    QCOMPARE(socket->peerPort(), quint16(8443));
    QVERIFY(proxy.requests().last().startsWith("CONNECT other.example:8443 "));
    QVERIFY(client.exchanges("with the other"));
}

// Servers pool their sessions under the empty key, as tunnels do.
void ProxyConnectionsTest::manySocketsShareTheEmptyKeyWithServers()
{
    constexpr int ROUNDS = 20;
    constexpr int SOCKETS = 5;
    const TlsServer identity; // For its files.
    ScriptedProxy proxy;
    connect(&proxy, &ScriptedProxy::requested, this, [&](QTcpSocket* connection) {
        auto* server = new SslSocket(SslSocket::Server, &proxy);
        server->setPathToCertificate(identity.certificatePath());
        server->setPathToPrivateKey(identity.keyPath());
        connect(server, &QIODevice::readyRead, server,
                [server] { server->write(server->readAll()); });
        connect(server, &QAbstractSocket::disconnected, server, &QObject::deleteLater);
        connection->setParent(nullptr);
        server->setSocket(connection);
    });
    for (int round = 0; round < ROUNDS; ++round) {
        std::vector<std::unique_ptr<SslProxySocket>> sockets;
        for (int i = 0; i < SOCKETS; ++i) {
            auto socket = std::make_unique<SslProxySocket>(nullptr);
            connect(socket.get(), &QAbstractSocket::connected, socket.get(),
                    [raw = socket.get()] { raw->write("hello"); });
            socket->setProxy(LOOPBACK, proxy.serverPort(), QString(), QString());
            socket->connectToHost(TARGET, 443);
            sockets.push_back(std::move(socket));
        }
        QVERIFY(waitFor([&] {
            return std::all_of(sockets.begin(), sockets.end(),
                               [](const auto& socket) { return socket->bytesAvailable() == 5; });
        }));
    }
}

// The pool hands a server the session of a tunnel whose peer was turned down.
void ProxyConnectionsTest::serverKeepsNothingOfATunnelsVerdict()
{
    constexpr int TUNNELS = 40;
    EchoingProxy proxy;
    for (int count = 0; count < TUNNELS; ++count) {
        SslProxySocket tunnel(nullptr);
        tunnel.setProxy(LOOPBACK, proxy.serverPort(), QString(), QString());
        tunnel.connectToHost(TARGET, 443);
        QVERIFY(waitFor([&] { return tunnel.state() == QAbstractSocket::ConnectedState; }));
    }
    TlsServer server;
    QList<vela::CertVerify> verdicts;
    connect(&server, &TlsServer::accepted, this, [&](SslSocket* accepted) {
        connect(accepted, &SslSocket::connectionVerificationDone, this,
                [&](vela::CertVerify verdict) { verdicts.append(verdict); });
    });
    constexpr int CLIENTS = 20;
    for (int count = 0; count < CLIENTS; ++count) {
        SslSocket client(SslSocket::Client);
        client.connectToHost(LOOPBACK, server.serverPort());
        QVERIFY(waitFor([&] { return verdicts.size() > count; }));
    }
    // Nothing is wrong with a client that has no certificate but that it is valid at no time.
    QCOMPARE(verdicts.count(vela::VerifyExpired), verdicts.size());
}

QTEST_GUILESS_MAIN(ProxyConnectionsTest)
#include "tst_proxyconnections.moc"

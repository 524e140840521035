// SPDX-License-Identifier: BSD-3-Clause
#include "EchoingProxy.h"
#include "EmissionLog.h"
#include "EventWait.h"
#include "tests/common/MessageLog.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/SslProxySocket.h>

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QNetworkProxy>
#include <QtTest/QtTest>

#include <thread>

using namespace test;
using vela::SslProxySocket;
using vela::SslSocket;

namespace {

const QString LOOPBACK = QStringLiteral("127.0.0.1");
const QString TARGET = QStringLiteral("target.example");
constexpr quint16 TARGET_PORT = 443;

//! A socket of the kind under test that has a proxy.
struct ProxiedClient : public SslProxySocket
{
    explicit ProxiedClient(const ScriptedProxy& proxy, const QString& user = QString(),
                           const QString& password = QString())
        : SslProxySocket(nullptr)
    {
        setProxy(LOOPBACK, proxy.serverPort(), user, password);
    }
};

QTcpSocket* tunnelOf(const SslProxySocket& socket)
{
    return socket.findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly).last();
}

} // namespace

//! The class itself, what it asks of a proxy, and the way from there to a connection.
class ProxySocketTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObjectListsItsMethodsInOrder();
    void trUsesTheQualifiedContext();
    void newSocketIsAClientWithAnInnerSocketOfItsOwn();
    void setProxyStoresTheDefaultType();
    void hostNameAloneDecidesOnTheProxy_data();
    void hostNameAloneDecidesOnTheProxy();
    void withoutAProxyHostItConnectsDirectly_data();
    void withoutAProxyHostItConnectsDirectly();
    void requestIsExact_data();
    void requestIsExact();
    void requestNamesAHostAddressByItsText_data();
    void requestNamesAHostAddressByItsText();
    void tunnelIsAPlainChildWithoutAProxy();
    void settingUpTheTunnelChangesNoState();
    void connectEmitsItsSignalsInOrder();
    void establishedTunnelIsTheInnerSocket();
    void targetIsReportedThroughout();
    void verdictIsAboutTheTarget_data();
    void verdictIsAboutTheTarget();
    void dataFlowsBothWays();
    void writtenWhenTheTunnelIsUpIsSentAfterTheHandshake();
    void openModeIsTheTunnels();
    void protocolIsIgnored();
    void connectFromAnotherThreadRunsOnTheSocketsOwn();
    void moveToThreadTakesTheTunnelAlong();
    void noSessionKeyIsSet();
    void secondConnectionResumesTheSession();
    void factoryMadeSocketConnectsThroughTheProxy();
};

void ProxySocketTest::metaObjectListsItsMethodsInOrder()
{
    const QMetaObject& meta = SslProxySocket::staticMetaObject;
    QCOMPARE(meta.className(), "vela::SslProxySocket");
    QCOMPARE(meta.superClass(), &SslSocket::staticMetaObject);
    struct
    {
        const char* signature;
        QMetaMethod::MethodType type;
        QMetaMethod::Access access;
    } const expected[] = {
        {"tunnelEstablished()", QMetaMethod::Signal, QMetaMethod::Public},
        {"connectToHostImplementation(QString,quint16,OpenMode)", QMetaMethod::Slot,
         QMetaMethod::Protected},
        {"proxyConnected()", QMetaMethod::Slot, QMetaMethod::Protected},
        {"proxyResponse()", QMetaMethod::Slot, QMetaMethod::Protected},
    };
    int index = meta.methodOffset();
    for (const auto& method : expected) {
        QCOMPARE(meta.indexOfMethod(QMetaObject::normalizedSignature(method.signature)), index);
        QCOMPARE(meta.method(index).methodType(), method.type);
        QCOMPARE(meta.method(index).access(), method.access);
        QCOMPARE(meta.method(index).typeName(), "void");
        ++index;
    }
    QCOMPARE(meta.methodCount(), index);
}

void ProxySocketTest::trUsesTheQualifiedContext()
{
    class Echo : public QTranslator
    {
    public:
        QString translate(const char* context, const char*, const char*, int) const override
        {
            return QString::fromLatin1(context);
        }
        bool isEmpty() const override { return false; }
    } echo;
    QCoreApplication::installTranslator(&echo);
    const QString context = SslProxySocket::tr("Out of memory");
    QCoreApplication::removeTranslator(&echo);
    QCOMPARE(context, QStringLiteral("vela::SslProxySocket"));
}

void ProxySocketTest::newSocketIsAClientWithAnInnerSocketOfItsOwn()
{
    QObject parent;
    auto* socket = new SslProxySocket(&parent);
    QCOMPARE(socket->parent(), &parent);
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket->isOpen());
    QVERIFY(socket->proxy().hostName().isEmpty());
    QCOMPARE(socket->findChildren<QTcpSocket*>().size(), 1);
    QCOMPARE(socket->socket(), tunnelOf(*socket));
    QCOMPARE(socket->socket()->metaObject()->className(), "QTcpSocket");
    // A server could not begin without a certificate.
    const EmissionLog log(socket);
    QVERIFY(!socket->sslConnect());
    QCOMPARE(log.emissions, QByteArrayList());
}

void ProxySocketTest::setProxyStoresTheDefaultType()
{
    SslProxySocket socket(nullptr);
    for (const quint16 port : {quint16(3128), quint16(8080)}) {
        socket.setProxy(QStringLiteral("proxy"), port, QStringLiteral("user"),
                        QStringLiteral("secret"));
        const QNetworkProxy proxy = socket.proxy();
        QCOMPARE(proxy.type(), QNetworkProxy::DefaultProxy);
        QCOMPARE(proxy.hostName(), QStringLiteral("proxy"));
        QCOMPARE(proxy.port(), port);
        QCOMPARE(proxy.user(), QStringLiteral("user"));
        QCOMPARE(proxy.password(), QStringLiteral("secret"));
    }
}

void ProxySocketTest::hostNameAloneDecidesOnTheProxy_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("default") << int(QNetworkProxy::DefaultProxy);
    QTest::newRow("SOCKS") << int(QNetworkProxy::Socks5Proxy);
    QTest::newRow("none") << int(QNetworkProxy::NoProxy);
    QTest::newRow("HTTP") << int(QNetworkProxy::HttpProxy);
    QTest::newRow("HTTP caching") << int(QNetworkProxy::HttpCachingProxy);
    QTest::newRow("FTP caching") << int(QNetworkProxy::FtpCachingProxy);
}

void ProxySocketTest::hostNameAloneDecidesOnTheProxy()
{
    QFETCH(int, type);
    ServingProxy proxy;
    SslProxySocket socket(nullptr);
    socket.setProxy(
        QNetworkProxy(static_cast<QNetworkProxy::ProxyType>(type), LOOPBACK, proxy.serverPort()));
    const EmissionLog log(&socket);
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QCOMPARE(log.count("tunnelEstablished"), 1);
    QCOMPARE(proxy.requests(), {"CONNECT target.example:443 HTTP/1.0\r\n"
                                "Proxy-Connection: keep-alive\r\n\r\n"});
}

void ProxySocketTest::withoutAProxyHostItConnectsDirectly_data()
{
    QTest::addColumn<bool>("setByParts");
    QTest::addColumn<QNetworkProxy>("proxy");
    QTest::newRow("never set") << false << QNetworkProxy();
    QTest::newRow("empty parts") << true << QNetworkProxy();
    QTest::newRow("all but the host") << true
                                      << QNetworkProxy(QNetworkProxy::DefaultProxy, QString(), 3128,
                                                       QStringLiteral("u"), QStringLiteral("p"));
}

void ProxySocketTest::withoutAProxyHostItConnectsDirectly()
{
    QFETCH(bool, setByParts);
    QFETCH(QNetworkProxy, proxy);
    TlsServer server;
    SslProxySocket socket(nullptr);
    if (setByParts)
        socket.setProxy(proxy.hostName(), proxy.port(), proxy.user(), proxy.password());
    const QPointer<QTcpSocket> own = socket.socket();
    const EmissionLog log(&socket);
    socket.connectToHost(LOOPBACK, server.serverPort());
    QCOMPARE(socket.state(), QAbstractSocket::ConnectingState);
    QVERIFY(socket.isOpen());
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    const QByteArrayList story = {"stateChanged:1", "stateChanged:2", "connectionVerificationDone",
                                  "stateChanged:3", "stateChanged:3", "connected"};
    QCOMPARE(log.story(), story);
    QCOMPARE(socket.socket(), own.data());
    QCOMPARE(socket.findChildren<QTcpSocket*>().size(), 1);
    QTest::ignoreMessage(QtWarningMsg,
                         "QtSslSocket::connectToHost() called when not in UnconnectedState");
    socket.connectToHost(LOOPBACK, server.serverPort());
}

void ProxySocketTest::requestIsExact_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<quint16>("port");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QByteArray>("credentials"); // Null: no such line.
    const auto add = [](const char* name, const char* host, quint16 port, const char* target) {
        QTest::newRow(name) << QString::fromUtf8(host) << port << QString() << QString()
                            << QByteArray(target) << QByteArray();
    };
    add("name", "target.example", 443, "target.example:443");
    add("name in capitals with a final dot", "Target.EXAMPLE.", 443, "Target.EXAMPLE.:443");
    add("lowest port", "target.example", 0, "target.example:0");
    add("highest port", "target.example", 65535, "target.example:65535");
    add("IPv4 literal", "192.0.2.1", 993, "192.0.2.1:993");
    add("IPv6 literal", "2001:db8::1", 443, "2001:db8::1:443");
    add("IPv6 loopback", "::1", 443, "::1:443");
    add("IPv6 literal with a zone", "fe80::1%eth0", 443, "fe80::1%eth0:443");
    add("IPv6 literal in brackets", "[2001:db8::1]", 443, "[2001:db8::1]:443");
    add("name in Latin-1", "m\u00fcnchen.example", 443, "m\xfcnchen.example:443");
    add("name beyond Latin-1", "\u4f8b\u3048.example", 443, "??.example:443");
    add("name beyond the basic plane", "\U0001f512.example", 443, "??.example:443");
    add("name with place markers", "%2%1%3", 443, "%2%1%3:443");
    add("empty name", "", 443, ":443");

    const auto authorise = [](const char* name, const char* user, const char* password,
                              const char* credentials) {
        QTest::newRow(name) << TARGET << TARGET_PORT << QString::fromUtf8(user)
                            << QString::fromUtf8(password) << QByteArray("target.example:443")
                            << QByteArray(credentials);
    };
    authorise("user and password", "u", "p", "dTpw");
    authorise("empty password", "user", "", "dXNlcjo=");
    authorise("empty user", "", "secret", nullptr);
    authorise("user with a colon", "a:b", "c", "YTpiOmM=");
    authorise("credentials in Latin-1", "m\u00fcller", "stra\u00dfe", "bfxsbGVyOnN0cmHfZQ==");
    authorise("credentials beyond Latin-1", "\u0141ukasz", "\u20ac", "P3VrYXN6Oj8=");
    authorise("credentials beyond the basic plane", "\U0001f600", "p", "Pz86cA==");
    authorise("credentials with place markers", "%1", "%2", "JTE6JTI=");
    authorise("long credentials are not broken", "user",
              "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx",
              "dXNlcjp4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4"
              "eHh4eHh4eHh4eHh4");
}

void ProxySocketTest::requestIsExact()
{
    QFETCH(QString, host);
    QFETCH(quint16, port);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QByteArray, target);
    QFETCH(QByteArray, credentials);
    ScriptedProxy proxy;
    proxy.reply.clear();
    ProxiedClient socket(proxy, user, password);
    socket.connectToHost(host, port);
    QVERIFY(waitFor([&] { return !proxy.requests().isEmpty(); }));
    QByteArray expected = "CONNECT " + target + " HTTP/1.0\r\nProxy-Connection: keep-alive\r\n";
    if (!credentials.isNull())
        expected += "Proxy-Authorization: Basic " + credentials + "\r\n";
    QCOMPARE(proxy.requests(), {expected + "\r\n"});
    settle();
    QCOMPARE(proxy.connection()->bytesAvailable(), 0);
    QCOMPARE(socket.peerName(), host);
    QCOMPARE(socket.peerPort(), port);
}

void ProxySocketTest::requestNamesAHostAddressByItsText_data()
{
    QTest::addColumn<QString>("address");
    QTest::newRow("IPv4") << QStringLiteral("192.0.2.7");
    QTest::newRow("IPv6") << QStringLiteral("2001:db8::7");
}

void ProxySocketTest::requestNamesAHostAddressByItsText()
{
    QFETCH(QString, address);
    ScriptedProxy proxy;
    proxy.reply.clear();
    ProxiedClient socket(proxy);
    socket.connectToHost(QHostAddress(address), TARGET_PORT);
    QVERIFY(waitFor([&] { return !proxy.requests().isEmpty(); }));
    QCOMPARE(proxy.requests(), {"CONNECT " + address.toLatin1()
                                + ":443 HTTP/1.0\r\nProxy-Connection: keep-alive\r\n\r\n"});
}

void ProxySocketTest::tunnelIsAPlainChildWithoutAProxy()
{
    ScriptedProxy proxy;
    proxy.reply.clear(); // Once adopted, the tunnel tells the server's port.
    ProxiedClient socket(proxy);
    QTcpSocket* own = socket.socket();
    socket.connectToHost(TARGET, TARGET_PORT);
    QTcpSocket* tunnel = tunnelOf(socket);
    QVERIFY(tunnel != own);
    QCOMPARE(socket.socket(), own);
    QCOMPARE(tunnel->metaObject()->className(), "QTcpSocket");
    QCOMPARE(tunnel->parent(), &socket);
    QCOMPARE(tunnel->proxy(), QTcpSocket().proxy());
    QVERIFY(waitFor([&] { return tunnel->state() == QAbstractSocket::ConnectedState; }));
    QCOMPARE(tunnel->peerPort(), proxy.serverPort());
}

void ProxySocketTest::settingUpTheTunnelChangesNoState()
{
    ScriptedProxy proxy;
    proxy.reply.clear();
    ProxiedClient socket(proxy);
    QTcpSocket* own = socket.socket();
    const EmissionLog log(&socket);
    socket.connectToHost(TARGET, TARGET_PORT);
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(waitFor([&] { return !proxy.requests().isEmpty(); }));
    settle();
    QCOMPARE(log.emissions, QByteArrayList());
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket.isOpen());
    QCOMPARE(socket.socket(), own);
    QVERIFY(socket.peerAddress().isNull());
}

void ProxySocketTest::connectEmitsItsSignalsInOrder()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const EmissionLog log(&socket);
    QList<QAbstractSocket::SocketState> states;
    connect(&socket, &SslProxySocket::tunnelEstablished, this,
            [&] { states.append(socket.state()); });
    connect(&socket, &SslSocket::connectionVerificationDone, this,
            [&] { states.append(socket.state()); });
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    const QByteArrayList story = {"tunnelEstablished", "connectionVerificationDone",
                                  "stateChanged:3", "stateChanged:3", "connected"};
    QCOMPARE(log.story(), story);
    QCOMPARE(states, QList<QAbstractSocket::SocketState>(
                         {QAbstractSocket::UnconnectedState, QAbstractSocket::UnconnectedState}));
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);

    proxy.server()->transport()->disconnectFromHost();
    QVERIFY(waitFor([&] { return log.count("disconnected") > 0; }));
    QCOMPARE(log.count("error"), 1);
    QCOMPARE(log.count("errorOccurred"), 1);
    const QByteArrayList end = {"stateChanged:6", "stateChanged:0", "disconnected"};
    QCOMPARE(log.story().mid(story.size() + 2), end);
}

void ProxySocketTest::establishedTunnelIsTheInnerSocket()
{
    ServingProxy proxy;
    auto socket = std::make_unique<ProxiedClient>(proxy);
    const QPointer<QTcpSocket> own = socket->socket();
    QPointer<QTcpSocket> inner;
    bool ownWasDeleted = false;
    connect(socket.get(), &SslProxySocket::tunnelEstablished, this, [&] {
        inner = socket->socket();
        ownWasDeleted = own.isNull();
    });
    const EmissionLog log(socket.get());
    socket->connectToHost(TARGET, TARGET_PORT);
    const QPointer<QTcpSocket> tunnel = tunnelOf(*socket);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QVERIFY(ownWasDeleted);
    QCOMPARE(inner, tunnel);
    QCOMPARE(tunnel->parent(), socket.get());
    QCOMPARE(socket->localPort(), tunnel->localPort());
    QCOMPARE(socket->localAddress(), tunnel->localAddress());

    // Not owned: another inner socket leaves it where it is.
    QTcpSocket other;
    other.connectToHost(LOOPBACK, proxy.serverPort());
    QVERIFY(waitFor([&] { return other.state() == QAbstractSocket::ConnectedState; }));
    socket->setSocket(&other);
    settle();
    QVERIFY(tunnel);
    QCOMPARE(tunnel->state(), QAbstractSocket::ConnectedState);
    socket->setSocket(tunnel);
    socket.reset();
    QVERIFY(tunnel.isNull());
}

void ProxySocketTest::targetIsReportedThroughout()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    QStringList reported;
    const auto report = [&] {
        reported.append(QStringLiteral("%1:%2").arg(socket.peerName()).arg(socket.peerPort()));
    };
    connect(&proxy, &ScriptedProxy::arrived, this, report);
    connect(&proxy, &ScriptedProxy::requested, this, report);
    connect(&socket, &SslProxySocket::tunnelEstablished, this, report);
    connect(&socket, &SslProxySocket::tunnelEstablished, this, [&] {
        QCOMPARE(socket.socket()->peerName(), TARGET);
        QCOMPARE(socket.socket()->peerPort(), TARGET_PORT);
        QCOMPARE(socket.peerAddress(), QHostAddress(LOOPBACK));
        QCOMPARE(socket.socket()->peerAddress(), QHostAddress(LOOPBACK));
    });
    connect(&socket, &SslProxySocket::connected, this, report);
    socket.connectToHost(TARGET, TARGET_PORT);
    report();
    QVERIFY(waitFor([&] { return socket.state() == QAbstractSocket::ConnectedState; }));
    QVERIFY(waitFor([&] { return reported.size() >= 5; }));
    reported.removeDuplicates();
    QCOMPARE(reported, {QStringLiteral("target.example:443")});
    QCOMPARE(socket.peerAddress(), QHostAddress(LOOPBACK));
}

void ProxySocketTest::verdictIsAboutTheTarget_data()
{
    QTest::addColumn<QString>("commonName");
    QTest::addColumn<bool>("matches");
    QTest::newRow("the target's certificate") << QStringLiteral("Target.example") << true;
    QTest::newRow("a certificate for the proxy") << LOOPBACK << false;
}

void ProxySocketTest::verdictIsAboutTheTarget()
{
    QFETCH(QString, commonName);
    QFETCH(bool, matches);
    const Authority authority(QStringLiteral("Authority of ") + commonName);
    ServingProxy proxy(authority.issue(commonName));
    ProxiedClient socket(proxy);
    socket.setPathToCACertFile(authority.caFile);
    QSignalSpy verdict(&socket, &SslSocket::connectionVerificationDone);
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return !verdict.isEmpty(); }));
    QCOMPARE(verdict.size(), 1);
    QCOMPARE(verdict.first().at(0).value<vela::CertVerify>(), vela::VerifyOk);
    QCOMPARE(verdict.first().at(1).toBool(), matches);
    const QString verified = QStringLiteral("The SSL certificate has been verified.");
    const QString caution = QStringLiteral(" Caution, the host name \"target.example\" does not "
                                           "match the host name in the certificate \"127.0.0.1\".");
    QCOMPARE(verdict.first().at(2).toString(), matches ? verified : verified + caution);
}

void ProxySocketTest::dataFlowsBothWays()
{
    EchoingProxy proxy;
    ProxiedClient socket(proxy);
    const QByteArray text(300000, 'x');
    QByteArray received;
    connect(&socket, &QAbstractSocket::connected, this, [&] { socket.write(text); });
    connect(&socket, &QIODevice::readyRead, this, [&] { received += socket.readAll(); });
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return received.size() >= text.size(); }));
    QCOMPARE(received, text);
    QCOMPARE(proxy.server()->received(), text);
}

void ProxySocketTest::writtenWhenTheTunnelIsUpIsSentAfterTheHandshake()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    connect(&socket, &SslProxySocket::tunnelEstablished, this,
            [&socket] { QCOMPARE(socket.write("early"), 5); });
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return proxy.server() && !proxy.server()->received().isEmpty(); }));
    QCOMPARE(proxy.server()->received(), QByteArray("early"));
}

void ProxySocketTest::openModeIsTheTunnels()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const EmissionLog log(&socket);
    const QIODevice::OpenMode mode = QIODevice::ReadWrite | QIODevice::Unbuffered;
    socket.connectToHost(TARGET, TARGET_PORT, mode);
    QVERIFY(tunnelOf(socket)->openMode() == mode);
    QVERIFY(!socket.isOpen());
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QVERIFY(socket.openMode() == mode);
}

// The proxy listens on IPv4 alone, so that IPv6 could not reach it.
void ProxySocketTest::protocolIsIgnored()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const EmissionLog log(&socket);
    socket.connectToHost(TARGET, TARGET_PORT, QIODevice::ReadWrite, QAbstractSocket::IPv6Protocol);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
}

void ProxySocketTest::connectFromAnotherThreadRunsOnTheSocketsOwn()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const EmissionLog log(&socket);
    std::thread([&] { socket.connectToHost(TARGET, TARGET_PORT); }).join();
    QCOMPARE(socket.findChildren<QTcpSocket*>().size(), 1);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QCOMPARE(proxy.requests().size(), 1);
}

void ProxySocketTest::moveToThreadTakesTheTunnelAlong()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const EmissionLog log(&socket);
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QThread thread;
    const MessageLog messages;
    socket.moveToThread(&thread);
    QCOMPARE(socket.thread(), &thread);
    QCOMPARE(socket.socket()->thread(), &thread);
    QCOMPARE(messages.messages(), QStringList());
}

void ProxySocketTest::noSessionKeyIsSet()
{
    ServingProxy proxy;
    ProxiedClient socket(proxy);
    const MessageLog messages;
    const EmissionLog log(&socket);
    socket.connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QVERIFY(messages.messages().contains(QStringLiteral("session  reused: false")));
}

// Other tests have left sessions with servers of the same name that this one does not know; each is
// offered once.
void ProxySocketTest::secondConnectionResumesTheSession()
{
    EchoingProxy proxy;
    bool resumed = false;
    for (int connection = 0; connection < 100 && !resumed; ++connection) {
        ProxiedClient socket(proxy);
        QSignalSpy verdict(&socket, &SslSocket::connectionVerificationDone);
        QByteArray echo;
        connect(&socket, &QAbstractSocket::connected, this, [&] { socket.write("hello"); });
        connect(&socket, &QIODevice::readyRead, this, [&] { echo += socket.readAll(); });
        socket.connectToHost(TARGET, TARGET_PORT);
        QVERIFY(waitFor([&] { return echo == "hello"; }));
        QCOMPARE(verdict.size(), 1);
        QCOMPARE(verdict.first().at(0).value<vela::CertVerify>(), vela::VerifySelfSigned);
        resumed = socket.isSessionReused();
        socket.disconnectFromHost();
    }
    QVERIFY(resumed);
}

void ProxySocketTest::factoryMadeSocketConnectsThroughTheProxy()
{
    ServingProxy proxy;
    const std::unique_ptr<QTcpSocket> socket(SslSocket::createSocket(
        true, LOOPBACK, proxy.serverPort(), QStringLiteral("u"), QStringLiteral("p"), nullptr));
    const EmissionLog log(socket.get());
    socket->connectToHost(TARGET, TARGET_PORT);
    QVERIFY(waitFor([&] { return log.count("connected") > 0; }));
    QCOMPARE(proxy.requests(), {"CONNECT target.example:443 HTTP/1.0\r\n"
                                "Proxy-Connection: keep-alive\r\n"
                                "Proxy-Authorization: Basic dTpw\r\n\r\n"});
}

QTEST_GUILESS_MAIN(ProxySocketTest)
#include "tst_proxysocket.moc"

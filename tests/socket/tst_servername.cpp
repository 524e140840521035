// SPDX-License-Identifier: BSD-3-Clause
// The name by which a client asks for a server, on either side.

#include "BareConnection.h"
#include "ScriptedProxy.h"

#include "cert/HostName.h"
#include "socket/TlsEngine.h"
#include "tests/common/SizedOctets.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/SslProxySocket.h>

#include <QtTest/QtTest>

using test::EnginePeer;
using test::sized;
using vela::SslProxySocket;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");
const QString LOOPBACK = QStringLiteral("127.0.0.1");

//! Connects a client to \a server and returns the name that it has sent, null if that fails.
QByteArray nameSentTo(test::BareServer& server, SslSocket& client, const QString& host = LOCALHOST)
{
    QSignalSpy connected(&client, &QAbstractSocket::connected);
    client.connectToHost(host, server.serverPort());
    if (!connected.wait() || !server.peer)
        return QByteArray();
    const char* name = SSL_get_servername(server.peer->ssl(), TLSEXT_NAMETYPE_host_name);
    return name ? QByteArray(name) : QByteArray("");
}

//! Ends the connection of \a client, so that it can make another one.
bool finish(SslSocket& client)
{
    client.disconnectFromHost();
    return QTest::qWaitFor(
        [&client] { return client.state() == QAbstractSocket::UnconnectedState; });
}

//! A client that is OpenSSL alone and asks a server of the library for any name.
struct BareClient
{
    explicit BareClient(const char* name, unsigned long options = test::atMostTls12())
        : transport(new QTcpSocket)
        , peer(EnginePeer::Client, transport, test::Identity(), options)
    {
        if (name)
            SSL_set_tlsext_host_name(peer.ssl(), const_cast<char*>(name));
    }

    //! Returns the server's socket when both have completed the handshake, otherwise null.
    SslSocket* connectTo(test::TlsServer& server)
    {
        transport->connectToHost(LOCALHOST, server.serverPort());
        const bool done = QTest::qWaitFor([&] {
            return peer.isHandshakeDone() && server.lastSocket()
                   && server.lastSocket()->state() == QAbstractSocket::ConnectedState;
        });
        return done ? server.lastSocket() : nullptr;
    }

    QTcpSocket* transport;
    EnginePeer peer;
};

QString labels(int count, int length)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list.append(QString(length, QLatin1Char('a')));
    return list.join(QLatin1Char('.'));
}

//! Returns a client's first message, with \a extension for the server's name.
QByteArray helloWith(const QByteArray& extension)
{
    const QByteArray suites("\x00\x2f\xc0\x2f", 4);
    const QByteArray extensions = QByteArray(2, '\0') + sized(extension, 2);
    const QByteArray hello = "\x03\x03" + QByteArray(32, 'r') + sized(QByteArray(), 1)
                             + sized(suites, 2) + sized(QByteArray(1, '\0'), 1)
                             + sized(extensions, 2);
    return "\x16\x03\x01" + sized("\x01" + sized(hello, 3), 2);
}

} // namespace

class ServerNameTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onlyHostNamesAreSent_data();
    void onlyHostNamesAreSent();
    void clientAsksForTheHostThatItConnectsTo();
    void addressIsNotAskedFor();
    void hostChoosesTheName_data();
    void hostChoosesTheName();
    void nameOfTheHostIsAskedForAgain();
    void nameHoldsForTheConnectionThatIsSetUp();
    void adoptedSocketAsksForItsPeer();
    void adoptedSocketAsksForTheChosenName();
    void proxiedClientAsksForItsServer();
    void sessionsDoNotCrossNames();
    void serverTellsTheNameFromTheVerdictOn();
    void serverTellsHostNamesOnly_data();
    void serverTellsHostNamesOnly();
    void serverTellsNoNameWhereNoneWasSent();
    void serverTellsTheNameOfAResumedConnection();
    void laterHandshakeDoesNotChangeTheName();
    void malformedExtensionIsNoName_data();
    void malformedExtensionIsNoName();

private:
    //! Returns what a server tells after \a hello, whether it goes on or refuses the client.
    QString nameToldBy(const QByteArray& hello);

    const test::TlsServer m_files;
};

void ServerNameTest::onlyHostNamesAreSent_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("sent");
    const auto add = [](const char* row, const QString& name, const char* sent = "") {
        QTest::newRow(row) << name << QByteArray(sent);
    };
    add("name", QStringLiteral("www.example.org"), "www.example.org");
    add("one label", LOCALHOST, "localhost");
    add("upper case", QStringLiteral("WWW.Example.ORG"), "www.example.org");
    add("dot at the end", QStringLiteral("example.org."), "example.org");
    add("international", QStringLiteral("B\u00fccher.example"), "xn--bcher-kva.example");
    add("decomposed", QStringLiteral("Bu\u0308cher.example"), "xn--bcher-kva.example");
    add("ideographic stop", QStringLiteral("b\u00fccher\u3002example"), "xn--bcher-kva.example");
    add("in ASCII already", QStringLiteral("XN--BCHER-KVA.example"), "xn--bcher-kva.example");
    add("digits", QStringLiteral("3com.1.com"), "3com.1.com");
    add("digits and more at the end", QStringLiteral("example.1a"), "example.1a");
    add("hyphen", QStringLiteral("my-host.example"), "my-host.example");
    add("hyphen at the start", QStringLiteral("-host.example"), "-host.example");
    add("hyphen at the end", QStringLiteral("host-.example"), "host-.example");
    add("underscore", QStringLiteral("my_host.example"), "my_host.example");
    const QString longest = labels(3, 63) + QLatin1Char('.') + labels(1, 61);
    QTest::newRow("253 characters") << longest << longest.toLatin1();

    add("empty", QString());
    add("dot", QStringLiteral("."));
    add("two dots at the end", QStringLiteral("example.org.."));
    add("empty label", QStringLiteral("www..example.org"));
    add("dot at the start", QStringLiteral(".example.org"));
    add("IPv4", LOOPBACK);
    add("IPv4 and a dot", QStringLiteral("127.0.0.1."));
    add("IPv4, short", QStringLiteral("127.1"));
    add("IPv4 as a number", QStringLiteral("2130706433"));
    add("IPv4 in hexadecimal digits", QStringLiteral("0x7F000001"));
    add("IPv4, last octet in hexadecimal digits", QStringLiteral("127.0.0.0x1"));
    add("IPv4, without its last digits", QStringLiteral("127.0.0.0x"));
    add("IPv4, octet too large", QStringLiteral("1.2.3.256"));
    add("IPv4 in wide digits", QStringLiteral("\uff11\uff12\uff17.0.0.\uff11"));
    add("IPv6", QStringLiteral("::1"));
    add("IPv6 in brackets", QStringLiteral("[::1]"));
    add("IPv6 with a zone", QStringLiteral("fe80::1%eth0"));
    add("64 characters in a label", labels(1, 64));
    add("254 characters", labels(3, 63) + QLatin1Char('.') + labels(1, 62));
    add("64 KiB", labels(1024, 63));
    add("64 KiB, international", QString(65536, QChar(0xfc)));
    add("blank", QStringLiteral("my host"));
    add("blank at the end", QStringLiteral("example.org "));
    add("line feed", QStringLiteral("example.org\n"));
    add("NUL", QStringLiteral("example.org\0.example.net"));
    add("NUL at the end", QStringLiteral("example.org\0"));
    add("NUL, international", QStringLiteral("b\u00fccher\0.example"));
    add("path", QStringLiteral("../../etc"));
    add("port", QStringLiteral("example.org:443"));
    add("wildcard", QStringLiteral("*.example.org"));
    add("user", QStringLiteral("me@example.org"));
    add("no letter", QStringLiteral("\u2603\ufffe.example"));
    add("half a character", QString(QChar(0xd800)));
}

void ServerNameTest::onlyHostNamesAreSent()
{
    QFETCH(QString, name);
    QTEST(vela::readHostName(name).name, "sent");
}

void ServerNameTest::clientAsksForTheHostThatItConnectsTo()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    QCOMPARE(client.serverName(), QString());
    QCOMPARE(nameSentTo(server, client, QStringLiteral("LOCALHOST")), QByteArray("localhost"));
    QCOMPARE(client.serverName(), LOCALHOST);
    QVERIFY(finish(client));
    QCOMPARE(client.serverName(), QString());
}

void ServerNameTest::addressIsNotAskedFor()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    QCOMPARE(nameSentTo(server, client, LOOPBACK), QByteArray(""));
    QCOMPARE(client.serverName(), QString());
}

void ServerNameTest::hostChoosesTheName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("another") << QStringLiteral("Other.Example.") << QByteArray("other.example");
    QTest::newRow("international")
        << QStringLiteral("B\u00fccher.example") << QByteArray("xn--bcher-kva.example");
    QTest::newRow("none") << QString() << QByteArray("");
    QTest::newRow("an address") << LOOPBACK << QByteArray("");
    QTest::newRow("no name") << QStringLiteral("no name") << QByteArray("");
}

void ServerNameTest::hostChoosesTheName()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, sent);
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    client.setServerName(name);
    QCOMPARE(client.serverName(), QString::fromLatin1(sent));
    QSignalSpy verdict(&client, &SslSocket::connectionVerificationDone);
    QCOMPARE(nameSentTo(server, client), sent);
    QCOMPARE(client.serverName(), QString::fromLatin1(sent));
    // The verdict is about the host that was connected to.
    QCOMPARE(client.peerName(), LOCALHOST);
    QCOMPARE(verdict.size(), 1);
    QVERIFY(verdict.at(0).at(1).toBool());
}

void ServerNameTest::nameOfTheHostIsAskedForAgain()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    client.setServerName(QStringLiteral("other.example"));
    client.resetServerName();
    QCOMPARE(client.serverName(), QString());
    QCOMPARE(nameSentTo(server, client), QByteArray("localhost"));
}

void ServerNameTest::nameHoldsForTheConnectionThatIsSetUp()
{
    test::BareServer server(test::makeIdentity(test::CertificateSpec()));
    SslSocket client(SslSocket::Client);
    client.setServerName(QStringLiteral("one.example"));
    QCOMPARE(nameSentTo(server, client), QByteArray("one.example"));
    client.setServerName(QStringLiteral("two.example"));
    QCOMPARE(client.serverName(), QStringLiteral("one.example"));
    QVERIFY(finish(client));
    QCOMPARE(client.serverName(), QStringLiteral("two.example"));
    QCOMPARE(nameSentTo(server, client), QByteArray("two.example"));
}

void ServerNameTest::adoptedSocketAsksForItsPeer()
{
    for (const QString& host : {LOCALHOST, LOOPBACK}) {
        test::TlsServer server;
        auto* transport = new QTcpSocket;
        transport->connectToHost(host, server.serverPort());
        QVERIFY(transport->waitForConnected());
        SslSocket client(SslSocket::Client);
        QSignalSpy connected(&client, &QAbstractSocket::connected);
        client.setSocket(transport);
        const QString expected = host == LOCALHOST ? LOCALHOST : QString();
        QCOMPARE(client.serverName(), expected);
        client.sslConnect();
        QVERIFY(connected.wait());
        QCOMPARE(server.lastSocket()->serverName(), expected);
    }
}

void ServerNameTest::adoptedSocketAsksForTheChosenName()
{
    test::TlsServer server;
    auto* transport = new QTcpSocket;
    transport->connectToHost(LOOPBACK, server.serverPort());
    QVERIFY(transport->waitForConnected());
    SslSocket client(SslSocket::Client);
    QSignalSpy connected(&client, &QAbstractSocket::connected);
    client.setServerName(QStringLiteral("chosen.example"));
    client.setSocket(transport);
    client.sslConnect();
    QVERIFY(connected.wait());
    QCOMPARE(server.lastSocket()->serverName(), QStringLiteral("chosen.example"));
}

void ServerNameTest::proxiedClientAsksForItsServer()
{
    test::ServingProxy proxy;
    SslProxySocket client;
    client.setProxy(LOCALHOST, proxy.serverPort(), QString(), QString());
    const QString target = QStringLiteral("target.example");
    for (const QString& chosen : {QString(), QStringLiteral("chosen.example")}) {
        if (!chosen.isEmpty())
            client.setServerName(chosen);
        QSignalSpy connected(&client, &QAbstractSocket::connected);
        client.connectToHost(target, 443);
        QVERIFY(connected.wait());
        const char* name = SSL_get_servername(proxy.server()->ssl(), TLSEXT_NAMETYPE_host_name);
        QCOMPARE(QString::fromLatin1(name), chosen.isEmpty() ? target : chosen);
        QCOMPARE(client.peerName(), target);
        QVERIFY(finish(client));
    }
}

void ServerNameTest::sessionsDoNotCrossNames()
{
    test::TlsServer server;
    SslSocket client(SslSocket::Client);
    connect(&server, &test::TlsServer::accepted, &server,
            [](SslSocket* accepted) { accepted->write("with the ticket"); });
    const auto resumes = [&](const QString& name) {
        QSignalSpy readyRead(&client, &QIODevice::readyRead);
        client.setServerName(name);
        client.connectToHost(LOCALHOST, server.serverPort());
        const bool came = readyRead.wait();
        const bool reused = client.isSessionReused();
        return came && finish(client) ? QVariant(reused) : QVariant();
    };
    const QString one = QStringLiteral("one.example");
    const QString two = QStringLiteral("two.example");
    QCOMPARE(resumes(one), QVariant(false)); // The process has all authorities from here on.
    while (resumes(one) != QVariant(true)) {
    }
    QCOMPARE(resumes(two), QVariant(false));
    QCOMPARE(resumes(QString()), QVariant(false));
    QCOMPARE(resumes(one), QVariant(true));
    QCOMPARE(resumes(two), QVariant(true));
}

void ServerNameTest::serverTellsTheNameFromTheVerdictOn()
{
    test::TlsServer server;
    QStringList names;
    connect(&server, &test::TlsServer::accepted, this, [&names](SslSocket* socket) {
        names.append(socket->serverName());
        connect(socket, &SslSocket::connectionVerificationDone, socket,
                [&names, socket] { names.append(socket->serverName()); });
    });
    BareClient client("asked.example");
    SslSocket* accepted = client.connectTo(server);
    QVERIFY(accepted);
    QCOMPARE(names, QStringList() << QString() << QStringLiteral("asked.example"));
    QCOMPARE(accepted->serverName(), QStringLiteral("asked.example"));
    accepted->disconnectFromHost();
    QCOMPARE(accepted->serverName(), QString());
}

QString ServerNameTest::nameToldBy(const QByteArray& hello)
{
    vela::TlsSettings settings;
    settings.pathToCertificate = m_files.certificatePath();
    settings.pathToPrivateKey = m_files.keyPath();
    vela::TlsEngine engine;
    if (!engine.begin(vela::TlsEngine::Role::Server, settings, vela::SessionOrigin()).isNull()
        || !engine.feed(hello.constData(), hello.size())) {
        return QStringLiteral("no engine");
    }
    engine.step(vela::TlsEngine::Role::Server);
    return QString::fromLatin1(engine.serverName());
}

void ServerNameTest::serverTellsHostNamesOnly_data()
{
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QString>("told");
    QTest::newRow("upper case") << QByteArray("Asked.EXAMPLE") << QStringLiteral("asked.example");
    QTest::newRow("dot at the end")
        << QByteArray("asked.example.") << QStringLiteral("asked.example");
    QTest::newRow("path") << QByteArray("../../etc/passwd") << QString();
    QTest::newRow("address") << QByteArray("127.0.0.1") << QString();
    QTest::newRow("not ASCII") << QByteArray("b\xfc\x63her.example") << QString();
    QTest::newRow("UTF-8") << QByteArray("b\xc3\xbc\x63her.example") << QString();
    QTest::newRow("control character") << QByteArray("asked\n.example") << QString();
    QTest::newRow("254 characters") << labels(4, 63).toLatin1().left(254) << QString();
    for (int octet = 1; octet < 256; ++octet) {
        const char character = static_cast<char>(octet);
        const bool allowed = QByteArray("abcdefghijklmnopqrstuvwxyz0123456789-_.")
                                 .contains(QByteArray(1, character).toLower());
        const QByteArray name = QByteArray("a") + character + "b.example";
        QTest::newRow(qPrintable(QStringLiteral("octet %1").arg(octet)))
            << name << (allowed ? QString::fromLatin1(name.toLower()) : QString());
    }
}

void ServerNameTest::serverTellsHostNamesOnly()
{
    QFETCH(QByteArray, asked);
    QTEST(nameToldBy(helloWith(sized(sized(asked, 2).prepend('\0'), 2))), "told");
}

void ServerNameTest::serverTellsNoNameWhereNoneWasSent()
{
    test::TlsServer server;
    server.configure = [](SslSocket* socket) {
        socket->setServerName(QStringLiteral("its.own.example"));
    };
    BareClient client(nullptr);
    SslSocket* accepted = client.connectTo(server);
    QVERIFY(accepted);
    QCOMPARE(accepted->serverName(), QString());
}

// The engine tells the name of the session instead.
void ServerNameTest::serverTellsTheNameOfAResumedConnection()
{
    test::TlsServer server;
    BareClient first("first.example");
    QVERIFY(first.connectTo(server));
    SSL_SESSION* session = SSL_get1_session(first.peer.ssl());
    BareClient second("second.example");
    SSL_set_session(second.peer.ssl(), session);
    SSL_SESSION_free(session);
    const SslSocket* const before = server.lastSocket();
    second.transport->connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(second.peer.isHandshakeDone() && server.lastSocket() != before);
    QVERIFY(SSL_session_reused(second.peer.ssl()));
    QTRY_COMPARE(server.lastSocket()->serverName(), QStringLiteral("second.example"));
}

void ServerNameTest::laterHandshakeDoesNotChangeTheName()
{
    if (OPENSSL_VERSION_NUMBER >= 0x30000000L)
        QSKIP("This engine's servers take no other handshake from clients.");
    test::TlsServer server;
    BareClient client("first.example");
    SslSocket* accepted = client.connectTo(server);
    QVERIFY(accepted);
    SSL_set_tlsext_host_name(client.peer.ssl(), const_cast<char*>("later.example"));
    SSL_renegotiate(client.peer.ssl());
    SSL_do_handshake(client.peer.ssl());
    client.peer.process();
    QTRY_VERIFY(!SSL_renegotiate_pending(client.peer.ssl()));
    QVERIFY(SSL_num_renegotiations(client.peer.ssl()) > 0);
    QSignalSpy readyRead(accepted, &QIODevice::readyRead);
    client.peer.write("after another handshake");
    QVERIFY(readyRead.wait());
    QCOMPARE(accepted->serverName(), QStringLiteral("first.example"));
}

void ServerNameTest::malformedExtensionIsNoName_data()
{
    QTest::addColumn<QByteArray>("extension");
    QTest::addColumn<QString>("told");
    const auto entry = [](const QByteArray& name,
                          char type = TLSEXT_NAMETYPE_host_name) -> QByteArray {
        return QByteArray(1, type) + sized(name, 2);
    };
    const auto list = [](const QByteArray& entries) { return sized(entries, 2); };
    const QByteArray asked = entry("asked.example");
    QTest::newRow("as it should be") << list(asked) << QStringLiteral("asked.example");
    QTest::newRow("nothing") << QByteArray() << QString();
    QTest::newRow("one octet") << QByteArray(1, '\0') << QString();
    QTest::newRow("empty list") << list(QByteArray()) << QString();
    QTest::newRow("empty name") << list(entry(QByteArray())) << QString();
    QTest::newRow("NUL in it") << list(entry(QByteArray("asked.example\0.net", 18))) << QString();
    QTest::newRow("NUL at the end") << list(entry(QByteArray("asked.example\0", 14))) << QString();
    QTest::newRow("another type") << list(entry("asked.example", 1)) << QString();
    QTest::newRow("two names") << list(asked + entry("other.example")) << QString();
    QTest::newRow("behind another type") << list(entry("x", 1) + asked) << QString();
    QTest::newRow("longer than the list")
        << sized(asked, 2).replace(1, 1, QByteArray(1, char(asked.size() - 1))) << QString();
    QTest::newRow("shorter than the list")
        << sized(asked, 2).replace(1, 1, QByteArray(1, char(asked.size() + 1))) << QString();
    QTest::newRow("octet behind the list") << list(asked) + '.' << QString();
    QTest::newRow("name longer than its list") << list(QByteArray("\0\0\x0e"
                                                                  "asked.example",
                                                                  16))
                                               << QString();
    QTest::newRow("name shorter than its list") << list(QByteArray("\0\0\x0c"
                                                                   "asked.example",
                                                                   16))
                                                << QString();
    for (int size = 1; size < list(asked).size(); ++size) {
        QTest::newRow(qPrintable(QStringLiteral("cut at %1").arg(size)))
            << list(asked).left(size) << QString();
    }
}

// Read before the engine has judged the extension.
void ServerNameTest::malformedExtensionIsNoName()
{
    QFETCH(QByteArray, extension);
    QTEST(nameToldBy(helloWith(extension)), "told");
}

QTEST_MAIN(ServerNameTest)
#include "tst_servername.moc"

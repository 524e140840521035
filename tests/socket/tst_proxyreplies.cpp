// SPDX-License-Identifier: BSD-3-Clause
#include "EmissionLog.h"
#include "EventWait.h"
#include "ScriptedProxy.h"

#include "tests/common/Wine.h"

#include <Ferrule/SslProxySocket.h>

#include <QtTest/QtTest>

using namespace test;
using vela::SslProxySocket;
using vela::SslSocket;

namespace {

const QString LOOPBACK = QStringLiteral("127.0.0.1");
const QString TARGET = QStringLiteral("target.example");

//! A socket that has asked \a proxy for a tunnel, and what it told its host since.
class Client
{
public:
    explicit Client(const ScriptedProxy& proxy)
        : Client(proxy.serverPort())
    {
    }

    explicit Client(quint16 proxyPort, const QString& proxyHost = LOOPBACK)
        : socket(nullptr)
        , log(&socket)
    {
        QObject::connect(&socket, &QAbstractSocket::errorOccurred, &socket,
                         [this] { errorTexts.append(socket.errorString()); });
        QObject::connect(&socket, &QAbstractSocket::errorOccurred, &socket,
                         [this](QAbstractSocket::SocketError error) { errors.append(error); });
        socket.setProxy(proxyHost, proxyPort, QString(), QString());
        socket.connectToHost(TARGET, 443);
    }

    bool hasErrors(int count) const
    {
        return waitFor([&] { return errors.size() >= count; });
    }

    //! Waits for the end of a handshake, well or not.
    bool finishesHandshake() const
    {
        return waitFor(
            [&] { return log.count("connected") > 0 || log.count("errorOccurred") > 0; });
    }

    //! A step of the handshake fails; reading from the engine then fails, too, and is reported.
    bool failsHandshake() const
    {
        const bool failed = hasErrors(1);
        settle();
        return failed && errors.count(QAbstractSocket::UnknownSocketError) == errors.size()
               && errorTexts.first().startsWith(QStringLiteral("SSL error: "))
               && log.count("connectionVerificationDone") + log.count("connected") == 0;
    }

    SslProxySocket socket;
    EmissionLog log;
    QList<QAbstractSocket::SocketError> errors;
    QStringList errorTexts;
};

using Errors = QList<QAbstractSocket::SocketError>;

void hangUp(QTcpSocket* connection)
{
    connection->disconnectFromHost();
}

} // namespace

//! What a proxy may answer, and what it may do instead.
class ProxyRepliesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statusLineIsNotParsed_data();
    void statusLineIsNotParsed();
    void refusalIsTheErrorText_data();
    void refusalIsTheErrorText();
    void refusalLeavesTheTunnelWaiting();
    void refusalInPiecesIsReportedPieceByPiece();
    void replyMayBeSplitAnywhere_data();
    void replyMayBeSplitAnywhere();
    void restOfTheReplyIsDiscarded_data();
    void restOfTheReplyIsDiscarded();
    void laterBytesOfTheReplyFailTheHandshake();
    void silentProxyIsWaitedFor();
    void nothingToReadIsNoReply();
    void proxyThatEndsTheConnectionIsATransportError_data();
    void proxyThatEndsTheConnectionIsATransportError();
    void transportErrorKeepsTheTextOfTheRefusal();
    void proxyThatCannotBeReachedIsATransportError_data();
    void proxyThatCannotBeReachedIsATransportError();
    void proxyThatAcceptsAndClosesEndsTheConnection_data();
    void proxyThatAcceptsAndClosesEndsTheConnection();
    void garbageFromTheTargetFailsTheHandshake();
    void failedSetUpOfTheEngineIsReported();
};

void ProxyRepliesTest::statusLineIsNotParsed_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("accepted");
    const auto add = [](const char* reply, bool accepted) {
        QTest::newRow(reply) << QByteArray(reply) + "\r\n\r\n" << accepted;
    };
    add("HTTP/1.0 200 Connection established", true);
    add("HTTP/1.1 200 OK", true);
    add("HTTP/1.1 200", true);
    add("HTTP/2 200", true);
    add("HTTP/9.9 200 from the future", true);
    add("http/1.0 200 ok", true);
    add("ICY 200 OK", true);
    add("200", true);
    add("no HTTP at all, but 200", true);
    add("HTTP/1.0 2000", true);
    add("HTTP/1.1 100 Continue", false);
    add("HTTP/1.1 101 Switching Protocols", false);
    add("HTTP/1.1 201 Created", false);
    add("HTTP/1.1 204 No Content", false);
    add("HTTP/1.1 20 0", false);
    add("HTTP/1.0 301 Moved Permanently", false);
    add("HTTP/1.0 302 Found", false);
    add("HTTP/1.0 400 Bad Request", false);
    add("HTTP/1.0 403 Forbidden", false);
    add("HTTP/1.0 404 Not Found", false);
    add("HTTP/1.0 405 Method Not Allowed", false);
    add("HTTP/1.1 407 Proxy Authentication Required", false);
    add("HTTP/1.0 500 Internal Server Error", false);
    add("HTTP/1.0 501 Not Implemented", false);
    add("HTTP/1.0 502 Bad Gateway", false);
    add("HTTP/1.0 503 Service Unavailable", false);
    add("HTTP/1.0 504 Gateway Timeout", false);
    add("", false);
    QTest::newRow("200 in a header")
        << QByteArray("HTTP/1.0 403 Forbidden\r\nContent-Length: 1200\r\n\r\n") << true;
    QTest::newRow("200 in a body")
        << QByteArray("HTTP/1.0 503 Busy\r\n\r\n<p>Try again in 200 seconds.</p>") << true;
    QTest::newRow("200 right at the end") << QByteArray("HTTP/1.0 200") << true;
    QTest::newRow("200 after a zero byte") << QByteArray("\0"
                                                         "200",
                                                         4)
                                           << true;
    QTest::newRow("2 0 0 apart") << QByteArray("HTTP/1.0 403 2\r\n0\r\n0\r\n\r\n") << false;
}

void ProxyRepliesTest::statusLineIsNotParsed()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, accepted);
    ServingProxy proxy;
    proxy.reply = reply;
    Client client(proxy);
    if (accepted) {
        QVERIFY(waitFor([&] { return client.log.count("connected") > 0; }));
        QCOMPARE(client.log.count("tunnelEstablished"), 1);
        QCOMPARE(client.errors, Errors());
    } else {
        QVERIFY(client.hasErrors(1));
        settle();
        QCOMPARE(client.log.count("tunnelEstablished"), 0);
        QCOMPARE(client.errors, {QAbstractSocket::ConnectionRefusedError});
        QCOMPARE(client.errorTexts, {QString::fromLatin1(reply)});
    }
}

void ProxyRepliesTest::refusalIsTheErrorText_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("text");
    const QByteArray authentication("HTTP/1.1 407 Proxy Authentication Required\r\n"
                                    "Proxy-Authenticate: Basic realm=\"here\"\r\n"
                                    "Content-Length: 15\r\n\r\n"
                                    "<p>Who are you?");
    QTest::newRow("the whole of it") << authentication << QString::fromLatin1(authentication);
    QTest::newRow("no line end") << QByteArray("no") << QStringLiteral("no");
    QTest::newRow("one byte") << QByteArray("x") << QStringLiteral("x");
    QTest::newRow("UTF-8") << QByteArray("HTTP/1.0 403 Zugriff verw\u00e4hrt\r\n\r\n")
                           << QStringLiteral("HTTP/1.0 403 Zugriff verw\u00e4hrt\r\n\r\n");
    QTest::newRow("not UTF-8") << QByteArray("HTTP/1.0 403 verw\xe4hrt\r\n\r\n")
                               << QStringLiteral("HTTP/1.0 403 verw\ufffdhrt\r\n\r\n");
    // As the conversion of a QByteArray to a QString has it.
    QTest::newRow("up to a zero byte")
        << QByteArray("before\0after", 12) << QStringLiteral("before");
    QTest::newRow("place markers") << QByteArray("%1 %n %%") << QStringLiteral("%1 %n %%");
}

void ProxyRepliesTest::refusalIsTheErrorText()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, text);
    ServingProxy proxy;
    proxy.reply = reply;
    Client client(proxy);
    QVERIFY(client.hasErrors(1));
    settle();
    QCOMPARE(client.log.count("error"), 1);
    QCOMPARE(client.log.count("errorOccurred"), 1);
    QCOMPARE(client.log.emissions.size(), 2);
    QCOMPARE(client.errors, {QAbstractSocket::ConnectionRefusedError});
    QCOMPARE(client.socket.error(), QAbstractSocket::ConnectionRefusedError);
    // Set before the signal comes, and left as it is.
    QCOMPARE(client.errorTexts, {text});
    QCOMPARE(client.socket.errorString(), text);
    QCOMPARE(client.socket.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!client.socket.isOpen());
}

void ProxyRepliesTest::refusalLeavesTheTunnelWaiting()
{
    ScriptedProxy proxy;
    proxy.reply = "HTTP/1.0 503 first\r\n\r\n";
    Client client(proxy);
    QVERIFY(client.hasErrors(1));
    settle();
    QCOMPARE(proxy.connection()->state(), QAbstractSocket::ConnectedState);
    proxy.connection()->write("HTTP/1.0 503 second\r\n\r\n");
    QVERIFY(client.hasErrors(2));
    const QStringList texts = {QStringLiteral("HTTP/1.0 503 first\r\n\r\n"),
                               QStringLiteral("HTTP/1.0 503 second\r\n\r\n")};
    QCOMPARE(client.errorTexts, texts);

    proxy.connection()->write(ScriptedProxy::ACCEPTANCE);
    const EnginePeer server(EnginePeer::Server, proxy.connection(), makeIdentity({}));
    QVERIFY(waitFor([&] { return client.log.count("connected") > 0; }));
    QCOMPARE(client.errors.size(), 2);
    QCOMPARE(client.log.count("tunnelEstablished"), 1);
    QCOMPARE(proxy.requests().size(), 1);
}

void ProxyRepliesTest::refusalInPiecesIsReportedPieceByPiece()
{
    ScriptedProxy proxy;
    proxy.reply = "HTTP/1.0 403 Forbidden\r\n\r\n" + QByteArray(500000, 'x');
    Client client(proxy);
    QVERIFY(
        waitFor([&] { return client.errorTexts.join(QString()).size() >= proxy.reply.size(); }));
    QCOMPARE(client.errorTexts.join(QString()), QString::fromLatin1(proxy.reply));
    QCOMPARE(client.errors.count(QAbstractSocket::ConnectionRefusedError), client.errors.size());
    QCOMPARE(client.socket.errorString(), client.errorTexts.last());
}

void ProxyRepliesTest::replyMayBeSplitAnywhere_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    const QByteArray reply("HTTP/1.1 200 Connection established\r\nVia: 1.1 proxy\r\n\r\n");
    for (int length = 1; length < reply.size(); ++length) {
        QTest::addRow("%d bytes before, %d after", length, reply.size() - length)
            << reply.left(length) << reply.mid(length);
    }
}

void ProxyRepliesTest::replyMayBeSplitAnywhere()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    ScriptedProxy proxy;
    proxy.reply = first;
    Client client(proxy);
    // The server's part begins only after the whole of the reply, as it would in a tunnel.
    std::unique_ptr<EnginePeer> server;
    const auto continueReply = [&] {
        proxy.connection()->write(second);
        proxy.connection()->flush();
        server =
            std::make_unique<EnginePeer>(EnginePeer::Server, proxy.connection(), makeIdentity({}));
    };
    QVERIFY(waitFor([&] {
        return client.log.count("tunnelEstablished") + client.log.count("errorOccurred") > 0;
    }));
    if (first.contains("200")) {
        QCOMPARE(client.errors, Errors());
        continueReply();
        QVERIFY(client.failsHandshake());
    } else {
        QCOMPARE(client.errors, {QAbstractSocket::ConnectionRefusedError});
        QCOMPARE(client.errorTexts, {QString::fromLatin1(first)});
        continueReply();
        if (second.contains("200")) {
            QVERIFY(waitFor([&] { return client.log.count("connected") > 0; }));
            QCOMPARE(client.errors.size(), 1);
        } else {
            QVERIFY(client.hasErrors(2));
            QCOMPARE(client.errors.last(), QAbstractSocket::ConnectionRefusedError);
            QCOMPARE(client.errorTexts.last(), QString::fromLatin1(second));
            QCOMPARE(client.log.count("tunnelEstablished"), 0);
        }
    }
}

void ProxyRepliesTest::restOfTheReplyIsDiscarded_data()
{
    QTest::addColumn<QByteArray>("rest");
    QTest::newRow("header lines") << QByteArray("Via: 1.1 proxy\r\nX: y\r\n\r\n");
    QTest::newRow("a body") << QByteArray("Content-Length: 5\r\n\r\nhello");
    QTest::newRow("half a header") << QByteArray("Via: 1.1 pr");
    QTest::newRow("a fatal TLS alert") << QByteArray("\r\n\x15\x03\x03\x00\x02\x02\x28", 9);
    QTest::newRow("a record of application data")
        << QByteArray("\r\n\x17\x03\x03\x00\x05hello", 12);
}

void ProxyRepliesTest::restOfTheReplyIsDiscarded()
{
    QFETCH(QByteArray, rest);
    ServingProxy proxy;
    proxy.reply = "HTTP/1.0 200 OK\r\n" + rest;
    Client client(proxy);
    QVERIFY(client.finishesHandshake());
    QCOMPARE(client.log.count("connected"), 1);
    QCOMPARE(client.errors, Errors());
    QCOMPARE(client.socket.bytesAvailable(), 0);
    QVERIFY(waitFor([&] { return proxy.server()->isHandshakeDone(); }));
    proxy.server()->write("the first data");
    QVERIFY(waitFor([&] { return client.socket.bytesAvailable() > 0; }));
    QCOMPARE(client.socket.readAll(), QByteArray("the first data"));
}

void ProxyRepliesTest::laterBytesOfTheReplyFailTheHandshake()
{
    ScriptedProxy proxy;
    proxy.reply = "HTTP/1.0 200 OK\r\n";
    Client client(proxy);
    QVERIFY(waitFor([&] { return client.log.count("tunnelEstablished") > 0; }));
    proxy.connection()->write("Proxy-Agent: split\r\n\r\n");
    QVERIFY(client.failsHandshake());
}

void ProxyRepliesTest::silentProxyIsWaitedFor()
{
    ScriptedProxy proxy;
    proxy.reply.clear();
    Client client(proxy);
    QVERIFY(waitFor([&] { return !proxy.requests().isEmpty(); }));
    settle();
    QCOMPARE(client.log.emissions, QByteArrayList());
    proxy.connection()->write(ScriptedProxy::ACCEPTANCE);
    const EnginePeer server(EnginePeer::Server, proxy.connection(), makeIdentity({}));
    QVERIFY(waitFor([&] { return client.log.count("connected") > 0; }));
}

void ProxyRepliesTest::nothingToReadIsNoReply()
{
    ScriptedProxy proxy;
    proxy.reply.clear();
    Client client(proxy);
    QVERIFY(waitFor([&] { return !proxy.requests().isEmpty(); }));
    QVERIFY(QMetaObject::invokeMethod(&client.socket, "proxyResponse"));
    QCOMPARE(client.log.emissions, QByteArrayList());
}

void ProxyRepliesTest::proxyThatEndsTheConnectionIsATransportError_data()
{
    QTest::addColumn<bool>("beforeTheRequest");
    QTest::addColumn<bool>("resets");
    QTest::newRow("closes at once") << true << false;
    QTest::newRow("closes after the request") << false << false;
    QTest::newRow("resets the connection") << true << true;
}

void ProxyRepliesTest::proxyThatEndsTheConnectionIsATransportError()
{
    QFETCH(bool, beforeTheRequest);
    QFETCH(bool, resets);
    ScriptedProxy proxy;
    proxy.reply.clear();
    if (resets) {
        // Closing with bytes left unread is what resets a connection.
        connect(&proxy, &ScriptedProxy::arrived, this, [](QTcpSocket* connection) {
            connection->setReadBufferSize(1);
            connect(connection, &QIODevice::readyRead, connection, &QAbstractSocket::abort);
        });
    } else {
        connect(&proxy, beforeTheRequest ? &ScriptedProxy::arrived : &ScriptedProxy::requested,
                this, hangUp);
    }
    Client client(proxy);
    const QString text = client.socket.errorString();
    auto* tunnel = client.socket.findChildren<QTcpSocket*>().last();
    QVERIFY(waitFor([&] {
        noticeEnd(tunnel);
        return !client.errors.isEmpty();
    }));
    settle();
    QCOMPARE(client.errors, {QAbstractSocket::RemoteHostClosedError});
    QCOMPARE(client.log.emissions.size(), 2);
    QCOMPARE(client.log.count("error"), 1);
    QCOMPARE(client.log.count("errorOccurred"), 1);
    QCOMPARE(client.socket.error(), QAbstractSocket::RemoteHostClosedError);
    QCOMPARE(client.socket.errorString(), text);
    QCOMPARE(client.socket.state(), QAbstractSocket::UnconnectedState);
}

void ProxyRepliesTest::transportErrorKeepsTheTextOfTheRefusal()
{
    ScriptedProxy proxy;
    proxy.reply = "HTTP/1.0 407 Proxy Authentication Required\r\n\r\n";
    connect(&proxy, &ScriptedProxy::requested, this, hangUp);
    Client client(proxy);
    QVERIFY(client.hasErrors(2));
    settle();
    QCOMPARE(client.errors, Errors({QAbstractSocket::ConnectionRefusedError,
                                    QAbstractSocket::RemoteHostClosedError}));
    QCOMPARE(client.socket.errorString(), QString::fromLatin1(proxy.reply));
    QCOMPARE(client.log.emissions.size(), 4);
}

void ProxyRepliesTest::proxyThatCannotBeReachedIsATransportError_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QAbstractSocket::SocketError>("error");
    QTest::newRow("nobody listens") << LOOPBACK << QAbstractSocket::ConnectionRefusedError;
    QTest::newRow("no valid name") << QStringLiteral("..") << QAbstractSocket::HostNotFoundError;
}

void ProxyRepliesTest::proxyThatCannotBeReachedIsATransportError()
{
    QFETCH(QString, host);
    QFETCH(QAbstractSocket::SocketError, error);
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();
    Client client(port, host);
    const QString text = SslProxySocket(nullptr).errorString();
    QVERIFY(client.hasErrors(1));
    settle();
    QCOMPARE(client.errors, {error});
    QCOMPARE(client.log.emissions.size(), 2);
    QCOMPARE(client.log.count("error"), 1);
    QCOMPARE(client.log.count("errorOccurred"), 1);
    QCOMPARE(client.socket.errorString(), text);
    QCOMPARE(client.socket.error(), error);
    QCOMPARE(client.socket.state(), QAbstractSocket::UnconnectedState);
}

void ProxyRepliesTest::proxyThatAcceptsAndClosesEndsTheConnection_data()
{
    QTest::addColumn<bool>("aborting");
    QTest::newRow("closes") << false;
    QTest::newRow("aborts once the tunnel is up") << true;
}

void ProxyRepliesTest::proxyThatAcceptsAndClosesEndsTheConnection()
{
    QFETCH(bool, aborting);
    ScriptedProxy proxy;
    Client client(proxy);
    if (aborting) {
        connect(&client.socket, &SslProxySocket::tunnelEstablished, this,
                [&] { proxy.connection()->abort(); });
    } else {
        connect(&proxy, &ScriptedProxy::requested, this, hangUp);
    }
    QVERIFY(waitFor([&] { return client.log.count("disconnected") > 0; }));
    settle();
    QByteArrayList story = client.log.story();
    story.removeAll("error");
    const QByteArrayList expected = {"tunnelEstablished", "errorOccurred", "stateChanged:6",
                                     "stateChanged:0", "disconnected"};
    QCOMPARE(story, expected);
    QCOMPARE(client.log.count("error"), 1);
    QCOMPARE(client.errors, {QAbstractSocket::RemoteHostClosedError});
    // The error is the inner socket's now, and so is the text.
    QCOMPARE(client.errorTexts, {client.socket.socket()->errorString()});
    QCOMPARE(client.socket.state(), QAbstractSocket::UnconnectedState);
}

void ProxyRepliesTest::garbageFromTheTargetFailsTheHandshake()
{
    ScriptedProxy proxy;
    Client client(proxy);
    QVERIFY(waitFor([&] { return client.log.count("tunnelEstablished") > 0; }));
    QVERIFY(waitFor([&] { return proxy.connection()->bytesAvailable() > 0; }));
    proxy.connection()->write(QByteArray(64, '?'));
    QVERIFY(client.failsHandshake());
}

// The adoption and the handshake both set up the engine, as neither finds one.
void ProxyRepliesTest::failedSetUpOfTheEngineIsReported()
{
    ScriptedProxy proxy;
    Client client(proxy);
    client.socket.setCiphers(QStringLiteral("no such cipher"));
    QVERIFY(waitFor([&] { return client.log.count("tunnelEstablished") > 0; }));
    settle();
    QCOMPARE(client.errors,
             Errors({QAbstractSocket::UnknownSocketError, QAbstractSocket::UnknownSocketError}));
    for (const QString& text : client.errorTexts)
        QVERIFY(text.startsWith(QStringLiteral("Invalid or empty cipher list, ")));
    QCOMPARE(client.socket.peerName(), TARGET);
    QCOMPARE(client.log.count("connected"), 0);
}

QTEST_GUILESS_MAIN(ProxyRepliesTest)
#include "tst_proxyreplies.moc"

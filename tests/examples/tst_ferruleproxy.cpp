// SPDX-License-Identifier: BSD-3-Clause
// ferrule-proxy: its command line, its answers, its lines and its end.

#include "tests/examples/Program.h"
#include "tests/examples/ProxyPeers.h"

#include <QtTest/QtTest>

#include <csignal>

using namespace test;

namespace {

QByteArray authorization(const QByteArray& credentials)
{
    return "Proxy-Authorization: Basic " + credentials.toBase64() + "\r\n";
}

} // namespace

class tst_FerruleProxy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void helpNamesEveryOptionAndStatus();
    void wrongCommandLine_data();
    void wrongCommandLine();
    void portInUse();
    void portZeroPrintsThePort();
    void answers_data();
    void answers();
    void authorization_data();
    void authorization();
    void requestInSingleBytes();
    void requestThatDoesNotEnd();
    void silentClientIsDropped();
    void endsOnSignal_data();
    void endsOnSignal();
};

void tst_FerruleProxy::helpNamesEveryOptionAndStatus()
{
    Program proxy(QStringLiteral(PROXY_PROGRAM), {QStringLiteral("--help")});
    proxy.start();
    QCOMPARE(proxy.finish(), 0);
    for (const QString& option :
         words("--host --port --user --password --timeout --help --version"))
        QVERIFY2(proxy.output().contains(option.toLatin1()), qPrintable(option));
    for (int status = 0; status <= 2; ++status)
        QVERIFY(proxy.output().contains("\n  " + QByteArray::number(status) + "  "));

    Program version(QStringLiteral(PROXY_PROGRAM), {QStringLiteral("--version")});
    version.start();
    QCOMPARE(version.finish(), 0);
    QVERIFY(version.output().startsWith("ferrule-proxy ") && isOneLine(version.output()));
}

void tst_FerruleProxy::wrongCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("argument") << words("here");
    QTest::newRow("unknown option") << words("--frobnicate");
    QTest::newRow("host name") << words("--host example");
    QTest::newRow("port word") << words("--port http");
    QTest::newRow("port too large") << words("--port 65536");
    QTest::newRow("timeout word") << words("--timeout soon");
    QTest::newRow("password alone") << words("--password secret");
    QTest::newRow("empty user") << QStringList{QStringLiteral("--user=")};
    QTest::newRow("colon in the user") << words("--user a:b");
    QTest::newRow("beyond Latin-1")
        << words("--user a --password") + QStringList(QString(QChar(0x20AC)));
}

void tst_FerruleProxy::wrongCommandLine()
{
    QFETCH(QStringList, arguments);
    Program proxy(QStringLiteral(PROXY_PROGRAM), arguments);
    proxy.start();
    QCOMPARE(proxy.finish(), 1);
    QVERIFY2(isOneLine(proxy.errors()), proxy.errors().constData());
    QCOMPARE(proxy.output(), QByteArray());
}

void tst_FerruleProxy::portInUse()
{
    QTcpServer occupant;
    QVERIFY(occupant.listen(QHostAddress::LocalHost));
    Program proxy(QStringLiteral(PROXY_PROGRAM),
                  {QStringLiteral("--port"), QString::number(occupant.serverPort())});
    proxy.start();
    QCOMPARE(proxy.finish(), 2);
    QVERIFY2(isOneLine(proxy.errors()), proxy.errors().constData());
}

void tst_FerruleProxy::portZeroPrintsThePort()
{
    ProxyProgram proxy;
    QVERIFY(proxy.port() > 0);
    QCOMPARE(proxy.output(), "listening on 127.0.0.1:" + QByteArray::number(proxy.port()) + '\n');
    QCOMPARE(RawClient(proxy.port()).state(), QAbstractSocket::ConnectedState);
}

void tst_FerruleProxy::answers_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("line");
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const auto row = [](const char* name, const QByteArray& request, const char* answer,
                        const QByteArray& line) {
        QTest::newRow(name) << request << QByteArray(answer) << line;
    };
    const QByteArray malformed = " 400 up 0 down 0: not a CONNECT to a host and port\n";
    const QByteArray other = " - 405 up 0 down 0: not a CONNECT to a host and port\n";
    row("closed port", connectRequest(server.serverPort()), "HTTP/1.0 502 Bad Gateway\r\n\r\n",
        " 127.0.0.1:" + QByteArray::number(server.serverPort())
            + " 502 up 0 down 0: Connection refused\n");
    row("unknown host", "CONNECT no..host:443 HTTP/1.1\r\nHost: no..host\r\n\r\n",
        "HTTP/1.0 502 Bad Gateway\r\n\r\n", " no..host:443 502 up 0 down 0: Host not found\n");
    row("GET", "GET http://localhost/200 HTTP/1.0\r\n\r\n",
        "HTTP/1.0 405 Method Not Allowed\r\nAllow: CONNECT\r\n\r\n", other);
    row("POST with a body", "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\n12345",
        "HTTP/1.0 405 Method Not Allowed\r\nAllow: CONNECT\r\n\r\n", other);
    row("no port", "CONNECT localhost HTTP/1.0\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n",
        malformed);
    row("port 0", "CONNECT localhost:0 HTTP/1.0\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n",
        malformed);
    row("no host", "CONNECT :443 HTTP/1.0\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n", malformed);
    row("no version", "CONNECT localhost:443\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n",
        malformed);
    row("version 2", "CONNECT localhost:443 HTTP/2\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n",
        malformed);
    row("empty line", "\r\n\r\n", "HTTP/1.0 400 Bad Request\r\n\r\n", malformed);
    row("TLS", QByteArray("\x16\x03\x01\x02\x00\r\n\r\n", 9), "HTTP/1.0 400 Bad Request\r\n\r\n",
        malformed);
}

void tst_FerruleProxy::answers()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, line);
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.write(request);
    QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.received, answer);
    QVERIFY2(proxy.waitForOutput(line), proxy.output().constData());
    QCOMPARE(proxy.errors(), QByteArray());
}

void tst_FerruleProxy::authorization_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<bool>("isAccepted");
    const QStringList options = words("--user user --password secret");
    const QByteArray right = ::authorization("user:secret");
    QTest::newRow("none") << options << QByteArray() << false;
    QTest::newRow("right") << options << right << true;
    QTest::newRow("right, lower case")
        << options << right.toLower().replace(right.toLower().mid(27), right.mid(27)) << true;
    QTest::newRow("behind other fields")
        << options << "Host: localhost\r\nProxy-Connection: keep-alive\r\n" + right << true;
    QTest::newRow("other password") << options << ::authorization("user:Secret") << false;
    QTest::newRow("other user") << options << ::authorization("root:secret") << false;
    QTest::newRow("no password") << options << ::authorization("user:") << false;
    QTest::newRow("not encoded") << options
                                 << QByteArray("Proxy-Authorization: Basic user:secret\r\n")
                                 << false;
    QTest::newRow("other scheme") << options << QByteArray(right).replace("Basic", "Bearer")
                                  << false;
    QTest::newRow("for the server") << options << right.mid(6) << false;
    QTest::newRow("empty password") << words("--user user") << ::authorization("user:") << true;
    QTest::newRow("Latin-1") << QStringList{QStringLiteral("--user"), QString(QChar(0xFC))}
                             << ::authorization("\xFC:") << true;
    QTest::newRow("without being asked") << QStringList() << right << true;
}

void tst_FerruleProxy::authorization()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, fields);
    QFETCH(bool, isAccepted);
    EchoServer server;
    ProxyProgram proxy(options);
    RawClient client(proxy.port());
    client.write(connectRequest(server.serverPort(), fields));
    if (isAccepted) {
        QTRY_COMPARE(client.received, ESTABLISHED);
    } else {
        QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(client.received, QByteArray("HTTP/1.0 407 Proxy Authentication Required\r\n"
                                             "Proxy-Authenticate: Basic realm=\"ferrule-proxy\""
                                             "\r\n\r\n"));
        QVERIFY(!server.hasPendingConnections());
    }
}

void tst_FerruleProxy::requestInSingleBytes()
{
    EchoServer server;
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    const QByteArray request = connectRequest(server.serverPort());
    for (const char byte : request) {
        client.write(&byte, 1);
        client.flush();
        QCoreApplication::processEvents();
    }
    QTRY_COMPARE(client.received, ESTABLISHED);
}

void tst_FerruleProxy::requestThatDoesNotEnd()
{
    ProxyProgram proxy;
    RawClient client(proxy.port());
    client.write("CONNECT localhost:443 HTTP/1.0\r\nX: " + QByteArray(1024 * 1024, 'x'));
    QTRY_COMPARE(client.received,
                 QByteArray("HTTP/1.0 431 Request Header Fields Too Large\r\n\r\n"));
    client.disconnectFromHost();
    QVERIFY(proxy.waitForOutput(" - 431 up 0 down 0: the request is too long\n"));
}

void tst_FerruleProxy::silentClientIsDropped()
{
    ProxyProgram proxy(words("--timeout 0.2"));
    RawClient client(proxy.port());
    client.write("CONNECT localhost:443 HTTP/1.0\r\n");
    QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.received, QByteArray("HTTP/1.0 408 Request Timeout\r\n\r\n"));
    QVERIFY(proxy.waitForOutput(" - 408 up 0 down 0: no request in time\n"));
}

void tst_FerruleProxy::endsOnSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void tst_FerruleProxy::endsOnSignal()
{
    QFETCH(int, signal);
    EchoServer server;
    ProxyProgram proxy;
    RawClient waiting(proxy.port());
    RawClient connected(proxy.port());
    connected.write(connectRequest(server.serverPort()) + "12345");
    QTRY_COMPARE(connected.received, ESTABLISHED + "12345");
    QCOMPARE(::kill(static_cast<pid_t>(proxy.processId()), signal), 0);
    QCOMPARE(proxy.finish(), 0);
    QCOMPARE(proxy.errors(), QByteArray());
    QCOMPARE(proxy.output().count(" - - up 0 down 0: the server was stopped\n"), 1);
    QCOMPARE(proxy.output().count(" 200 up 5 down 5: the server was stopped\n"), 1);
}

QTEST_GUILESS_MAIN(tst_FerruleProxy)

#include "tst_ferruleproxy.moc"

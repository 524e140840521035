// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client: connections through an HTTP proxy.

#include "tests/examples/Program.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

using namespace test;

namespace {

/*! A proxy that gives every request the same answer, and then closes if told so. */
class FixedAnswer : public QTcpServer
{
public:
    explicit FixedAnswer(const QByteArray& answer, bool closes = false)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, answer, closes] {
            QTcpSocket* client = nextPendingConnection();
            connect(client, &QIODevice::readyRead, client, [this, client, answer, closes] {
                request += client->readAll();
                client->write(answer);
                if (closes)
                    client->disconnectFromHost();
            });
        });
    }

    QByteArray request;
};

QStringList through(quint16 port, const char* credentials = "")
{
    return {QStringLiteral("--proxy"),
            QString::fromUtf8(credentials) + QStringLiteral("127.0.0.1:%1").arg(port)};
}

} // namespace

class tst_FerruleClientProxy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrongOption_data();
    void wrongOption();
    void dataAndReportComeThroughTheTunnel();
    void credentialsArePercentDecoded_data();
    void credentialsArePercentDecoded();
    void refusalIsShownByItsFirstLine_data();
    void refusalIsShownByItsFirstLine();
    void proxyThatIsNotThere_data();
    void proxyThatIsNotThere();
    void proxyClosesWithoutAnAnswer();
    void proxyIsSilent();
    void answerThatOnlyLooksLikeSuccess();
    void ipv6AddressGoesToTheProxyInBrackets();
    void ipv6ProxyAndPeer();

private:
    void expectFailure(ClientProgram& client, int status, const QByteArray& text);

    Authority m_authority;
};

void tst_FerruleClientProxy::expectFailure(ClientProgram& client, int status,
                                           const QByteArray& text)
{
    client.start();
    QCOMPARE(client.finishInput(), status);
    QVERIFY2(client.errors().contains(text), client.errors().constData());
    QVERIFY2(isOneLine(client.errors()), client.errors().constData());
    QCOMPARE(client.output(), QByteArray());
}

void tst_FerruleClientProxy::wrongOption_data()
{
    const QByteArray form = "--proxy is not [USER[:PASSWORD]@]HOST:PORT";
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QString() << form;
    QTest::newRow("no port") << QStringLiteral("proxy") << form;
    QTest::newRow("port 0") << QStringLiteral("proxy:0") << form;
    QTest::newRow("port too large") << QStringLiteral("proxy:65536") << form;
    QTest::newRow("URL") << QStringLiteral("http://proxy:3128") << form;
    QTest::newRow("IPv6 without brackets") << QStringLiteral("::1:3128") << form;
    QTest::newRow("credentials alone") << QStringLiteral("user:secret") << form;
    QTest::newRow("nothing after the @") << QStringLiteral("user:secret@") << form;
    QTest::newRow("no port after the @") << QStringLiteral("user:secret@proxy") << form;
    QTest::newRow("no user") << QStringLiteral("@proxy:1") << QByteArray("no user before it");
    QTest::newRow("password alone")
        << QStringLiteral(":secret@proxy:1") << QByteArray("no user before it");
    QTest::newRow("stray percent sign")
        << QStringLiteral("user:secret%@proxy:1") << QByteArray("two hexadecimal digits");
    QTest::newRow("no hexadecimal digits")
        << QStringLiteral("user%4g:secret@proxy:1") << QByteArray("two hexadecimal digits");
    QTest::newRow("colon in the user")
        << QStringLiteral("us%3Aer:secret@proxy:1") << QByteArray("contains a colon");
    QTest::newRow("beyond Latin-1")
        << QStringLiteral("user:secret%E2%82%AC@proxy:1") << QByteArray("Latin-1");
    QTest::newRow("not UTF-8") << QStringLiteral("user:secret%E9@proxy:1") << QByteArray("Latin-1");
}

void tst_FerruleClientProxy::wrongOption()
{
    QFETCH(QString, value);
    QFETCH(QByteArray, text);
    ClientProgram client(1, {QStringLiteral("--proxy=") + value});
    expectFailure(client, 1, text);
    QVERIFY2(!client.errors().contains("secret"), "the password is shown");
}

void tst_FerruleClientProxy::dataAndReportComeThroughTheTunnel()
{
    ServerProgram server(m_authority);
    ProxyProgram proxy;
    ClientProgram client(server.port(),
                         through(proxy.port())
                             + words("--repeat 2 --close-after-input 0.2 --require-ok "
                                     "--require-host-name --ca-file")
                             + QStringList(m_authority.caFile));
    client.start();
    client.write("12345");
    QCOMPARE(client.finishInput(), 0);
    QCOMPARE(client.output(), QByteArray("12345"));
    const QByteArray row =
        "\nproxy        tunnel established by 127.0.0.1:" + QByteArray::number(proxy.port()) + '\n';
    QCOMPARE(client.errors().count(row), 2);
    QCOMPARE(client.errors().count("\nsession      reused\n"), 1);
    QVERIFY(client.errors().contains("\nsubject      CN=127.0.0.1\n"));

    QVERIFY(server.waitForOutput("in 5 out 5: closed by the client\n"));
    QCOMPARE(proxy.stop(), 0);
    const QByteArray target = " 127.0.0.1:" + QByteArray::number(server.port()) + " 200 up ";
    QCOMPARE(proxy.output().count(target), 2);
}

void tst_FerruleClientProxy::credentialsArePercentDecoded_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("encoded");
    const auto text = [](const char* utf8) { return QString::fromUtf8(utf8); };
    QTest::newRow("plain") << text("user") << text("secret") << QByteArray("user:secret@");
    QTest::newRow("no password") << text("user") << QString() << QByteArray("user@");
    QTest::newRow("empty password") << text("user") << QString() << QByteArray("user:@");
    QTest::newRow("colon in the password")
        << text("user") << text("a:b:c") << QByteArray("user:a:b%3Ac@");
    QTest::newRow("at") << text("u@s") << text("p@w") << QByteArray("u%40s:p@w@");
    QTest::newRow("percent") << text("100%") << text("%25") << QByteArray("100%25:%2525@");
    QTest::newRow("plus") << text("a+b") << text("c+d") << QByteArray("a+b:c%2Bd@");
    QTest::newRow("Latin-1") << text("M\xC3\xBCller") << text("\xC3\xA9t\xC3\xA9")
                             << QByteArray("M%C3%BCller:%c3%a9t%c3%a9@");
}

void tst_FerruleClientProxy::credentialsArePercentDecoded()
{
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QByteArray, encoded);
    FixedAnswer proxy("HTTP/1.0 403 Forbidden\r\n\r\n");
    ClientProgram client(443, through(proxy.serverPort(), encoded.constData()));
    expectFailure(client, 3, "the proxy refuses: HTTP/1.0 403 Forbidden");
    const QByteArray credentials = (user + QLatin1Char(':') + password).toLatin1().toBase64();
    QVERIFY2(proxy.request.contains("\r\nProxy-Authorization: Basic " + credentials + "\r\n"),
             proxy.request.constData());
}

void tst_FerruleClientProxy::refusalIsShownByItsFirstLine_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("status and page")
        << QByteArray("HTTP/1.1 503 Service Unavailable\r\nVia: p\r\n\r\n<p>\r\n")
        << QByteArray("the proxy refuses: HTTP/1.1 503 Service Unavailable\n");
    QTest::newRow("line feeds alone") << QByteArray("HTTP/1.1 403 No\n\nno\n")
                                      << QByteArray("the proxy refuses: HTTP/1.1 403 No\n");
    QTest::newRow("no HTTP") << QByteArray("SSH-2.0-sshd")
                             << QByteArray("the proxy refuses: SSH-2.0-sshd\n");
    QTest::newRow("control characters") << QByteArray("HTTP/1.1 403 \x1B[31mNo\r\n\r\n")
                                        << QByteArray("HTTP/1.1 403 \\x1b[31mNo\n");
    QTest::newRow("long") << "HTTP/1.1 403 " + QByteArray(5000, 'x') + "\r\n\r\n"
                          << "HTTP/1.1 403 " + QByteArray(187, 'x') + '\n';
}

void tst_FerruleClientProxy::refusalIsShownByItsFirstLine()
{
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, shown);
    FixedAnswer proxy(answer, true);
    ClientProgram client(443, through(proxy.serverPort()));
    expectFailure(client, 3, shown);
    const QByteArray start = "ferrule-client: 127.0.0.1:443 through 127.0.0.1:"
                             + QByteArray::number(proxy.serverPort()) + ": the proxy refuses: ";
    QVERIFY2(client.errors().startsWith(start), client.errors().constData());
}

void tst_FerruleClientProxy::proxyThatIsNotThere_data()
{
    QTest::addColumn<QString>("proxy");
    QTest::addColumn<QByteArray>("text");
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    QTest::newRow("closed port") << QStringLiteral("127.0.0.1:%1").arg(server.serverPort())
                                 << QByteArray("the proxy cannot be reached: connection refused");
    // Not a name at all, so that nobody on the network is asked.
    QTest::newRow("unknown host") << QStringLiteral("no..host:1")
                                  << QByteArray("the proxy cannot be reached: host not found");
}

void tst_FerruleClientProxy::proxyThatIsNotThere()
{
    QFETCH(QString, proxy);
    QFETCH(QByteArray, text);
    ClientProgram client(443, {QStringLiteral("--proxy"), proxy});
    expectFailure(client, 3, text);
}

void tst_FerruleClientProxy::proxyClosesWithoutAnAnswer()
{
    FixedAnswer proxy(QByteArray(), true);
    ClientProgram client(443, through(proxy.serverPort()));
    expectFailure(client, 3, "the proxy closed the connection without an answer");
}

void tst_FerruleClientProxy::proxyIsSilent()
{
    FixedAnswer proxy(QByteArray{});
    ClientProgram client(443, through(proxy.serverPort()) + words("--timeout 0.3"));
    expectFailure(client, 5, "no connection within 0.3 seconds");
}

void tst_FerruleClientProxy::answerThatOnlyLooksLikeSuccess()
{
    FixedAnswer proxy("HTTP/1.1 403 Forbidden\r\nContent-Length: 1200\r\n\r\n", true);
    ClientProgram client(443, through(proxy.serverPort()));
    expectFailure(client, 4, "the peer closed the connection in the handshake");
}

void tst_FerruleClientProxy::ipv6AddressGoesToTheProxyInBrackets()
{
    FixedAnswer proxy("HTTP/1.0 403 Forbidden\r\n\r\n");
    ClientProgram client(443, through(proxy.serverPort()), QStringLiteral("[2001:db8::1]"));
    expectFailure(client, 3, "ferrule-client: [2001:db8::1]:443 through 127.0.0.1:");
    QVERIFY2(proxy.request.startsWith("CONNECT [2001:db8::1]:443 HTTP/1.0\r\n"),
             proxy.request.constData());
}

void tst_FerruleClientProxy::ipv6ProxyAndPeer()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHostIPv6))
        QSKIP("no IPv6 on this machine");
    ServerProgram server(m_authority, {}, QStringLiteral("::1"));
    ProxyProgram proxy(words("--host ::1"));
    const QString address = QStringLiteral("[::1]:%1").arg(proxy.port());
    ClientProgram client(server.port(),
                         words("--close-after-input 0 --proxy") + QStringList(address),
                         QStringLiteral("[::1]"));
    client.start();
    QCOMPARE(client.finishInput(), 0);
    QVERIFY2(client.errors().contains("tunnel established by " + address.toLatin1()),
             client.errors().constData());
    QVERIFY(proxy.waitForOutput(" [::1]:" + QByteArray::number(server.port()) + " 200 up "));
}

QTEST_GUILESS_MAIN(tst_FerruleClientProxy)

#include "tst_ferruleclientproxy.moc"

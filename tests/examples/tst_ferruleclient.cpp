// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client: its command line, and how it fails.

#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <openssl/opensslv.h>

using namespace test;

namespace {

constexpr bool ENGINE_HAS_TLS13 = OPENSSL_VERSION_NUMBER >= 0x10101000L;

int connectOnce(ClientProgram& client)
{
    client.start();
    return client.finishInput();
}

} // namespace

class tst_FerruleClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void helpNamesEveryOptionAndStatus();
    void versionIsPrinted();
    void wrongCommandLine_data();
    void wrongCommandLine();
    void unusableSetting_data();
    void unusableSetting();
    void unknownHost();
    void closedPort();
    void peerSpeaksPlainHttp();
    void peerClosesInTheHandshake();
    void peerIsSilent();
    void noCommonCipher();
    void missingCertificateEndsTheConnection();

private:
    void expectFailure(ClientProgram& client, int status, const QByteArray& text);

    Authority m_authority;
    PemDirectory m_directory;
};

void tst_FerruleClient::expectFailure(ClientProgram& client, int status, const QByteArray& text)
{
    QCOMPARE(connectOnce(client), status);
    QVERIFY2(client.errors().contains(text), client.errors().constData());
    QVERIFY2(isOneLine(client.errors()), client.errors().constData());
    QCOMPARE(client.output(), QByteArray());
}

void tst_FerruleClient::helpNamesEveryOptionAndStatus()
{
    Program client(QStringLiteral(CLIENT_PROGRAM), {QStringLiteral("--help")});
    client.start();
    QCOMPARE(client.finish(), 0);
    for (const QString& option :
         words("--ca-file --ca-dir --cert --key --ciphers --store --proxy --repeat --timeout "
               "--close-after-input --require-ok --require-host-name "
               "--quiet --verbose --help --version HOST:PORT"))
        QVERIFY2(client.output().contains(option.toLatin1()), qPrintable(option));
    for (int status = 0; status <= 9; ++status)
        QVERIFY(client.output().contains("\n  " + QByteArray::number(status) + "  "));
    QCOMPARE(client.errors(), QByteArray());
}

void tst_FerruleClient::versionIsPrinted()
{
    Program client(QStringLiteral(CLIENT_PROGRAM), {QStringLiteral("--version")});
    client.start();
    QCOMPARE(client.finish(), 0);
    QVERIFY(QRegularExpression(QStringLiteral("^ferrule-client \\d+\\.\\d+\\.\\d+\n$"))
                .match(QString::fromLatin1(client.output()))
                .hasMatch());
}

void tst_FerruleClient::wrongCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no peer") << QStringList();
    QTest::newRow("two peers") << words("a:1 b:2");
    QTest::newRow("no port") << words("localhost");
    QTest::newRow("empty port") << words("localhost:");
    QTest::newRow("port 0") << words("localhost:0");
    QTest::newRow("port too large") << words("localhost:65536");
    QTest::newRow("port not a number") << words("localhost:https");
    QTest::newRow("no host") << words(":443");
    QTest::newRow("empty brackets") << words("[]:443");
    QTest::newRow("IPv6 without brackets") << words("::1:443");
    QTest::newRow("unknown option") << words("--frobnicate localhost:1");
    QTest::newRow("missing value") << words("localhost:1 --ca-file");
    QTest::newRow("empty CA file")
        << QStringList{QStringLiteral("--ca-file="), QStringLiteral("a:1")};
    QTest::newRow("empty ciphers")
        << QStringList{QStringLiteral("--ciphers="), QStringLiteral("a:1")};
    QTest::newRow("certificate alone") << words("--cert x.pem localhost:1");
    QTest::newRow("key alone") << words("--key x.pem localhost:1");
    QTest::newRow("server name with a blank") << QStringList{
        QStringLiteral("--server-name"), QStringLiteral("a b"), QStringLiteral("localhost:1")};
    QTest::newRow("server name is an address") << words("--server-name 127.0.0.1 localhost:1");
    QTest::newRow("empty server name")
        << QStringList{QStringLiteral("--server-name="), QStringLiteral("localhost:1")};
    QTest::newRow("server name and none")
        << words("--server-name a.example --no-server-name localhost:1");
    QTest::newRow("unknown store") << words("--store generic localhost:1");
    QTest::newRow("empty store") << QStringList{QStringLiteral("--store="), QStringLiteral("a:1")};
    QTest::newRow("repeat 0") << words("--repeat 0 localhost:1");
    QTest::newRow("repeat word") << words("--repeat often localhost:1");
    QTest::newRow("timeout word") << words("--timeout soon localhost:1");
    QTest::newRow("negative timeout") << words("--timeout=-1 localhost:1");
    QTest::newRow("timeout nan") << words("--timeout nan localhost:1");
    QTest::newRow("close-after-input word") << words("--close-after-input x localhost:1");
}

void tst_FerruleClient::wrongCommandLine()
{
    QFETCH(QStringList, arguments);
    Program client(QStringLiteral(CLIENT_PROGRAM), arguments);
    client.start();
    QCOMPARE(client.finish(), 1);
    QVERIFY2(isOneLine(client.errors()), client.errors().constData());
    QVERIFY(client.errors().startsWith("ferrule-client: "));
    QCOMPARE(client.output(), QByteArray());
}

void tst_FerruleClient::unusableSetting_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("text");
    const Identity one = m_authority.issue(QStringLiteral("one"));
    const Identity two = m_authority.issue(QStringLiteral("two"));
    const QString certificate = m_directory.writeCertificate(QStringLiteral("one.pem"), one);
    const QString key = m_directory.writeKey(QStringLiteral("one.key"), one);
    const QString otherKey = m_directory.writeKey(QStringLiteral("two.key"), two);
    const QString garbage = m_directory.write(QStringLiteral("garbage.pem"), "not a PEM file\n");
    const QString missing = m_directory.path() + QStringLiteral("/missing");
    const auto identity = [](const QString& cert, const QString& keyFile) {
        return QStringList{QStringLiteral("--cert"), cert, QStringLiteral("--key"), keyFile};
    };
    const QByteArray noCa = "Failed to load the list of trusted CAs: error:";
    const QByteArray noCert = "Error loading certificate, error:";
    const QByteArray noKey = "Error loading private key, error:";

    QTest::newRow("missing CA file") << QStringList{QStringLiteral("--ca-file"), missing} << noCa;
    QTest::newRow("garbage CA file") << QStringList{QStringLiteral("--ca-file"), garbage} << noCa;
    QTest::newRow("missing CA directory")
        << QStringList{QStringLiteral("--ca-dir"), missing} << QByteArray("not a directory");
    QTest::newRow("missing certificate") << identity(missing, key) << noCert;
    QTest::newRow("garbage certificate") << identity(garbage, key) << noCert;
    QTest::newRow("missing key") << identity(certificate, missing) << noKey;
    QTest::newRow("garbage key") << identity(certificate, garbage) << noKey;
    QTest::newRow("other key") << identity(certificate, otherKey) << noKey;
    QTest::newRow("nonsense ciphers")
        << words("--ciphers no-such-cipher") << QByteArray("Invalid or empty cipher list, error:");
}

void tst_FerruleClient::unusableSetting()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, text);
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    ClientProgram client(server.serverPort(), options);
    expectFailure(client, 2, text);
    QVERIFY2(!server.hasPendingConnections(), "it connected although it could not go on");
}

void tst_FerruleClient::unknownHost()
{
    // Not a name at all, so that nobody on the network is asked.
    ClientProgram client(443, {}, QStringLiteral("no..host"));
    expectFailure(client, 3, "no..host:443: ");
}

void tst_FerruleClient::closedPort()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const quint16 port = server.serverPort();
    server.close();
    ClientProgram client(port, {});
    expectFailure(client, 3, "Connection refused");
}

void tst_FerruleClient::peerSpeaksPlainHttp()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    connect(&server, &QTcpServer::newConnection, &server, [&] {
        server.nextPendingConnection()->write("HTTP/1.0 400 Bad Request\r\n\r\nNo, thanks.\r\n");
    });
    ClientProgram client(server.serverPort(), {});
    expectFailure(client, 4, "SSL error: error:");
}

void tst_FerruleClient::peerClosesInTheHandshake()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    connect(&server, &QTcpServer::newConnection, &server, [&] {
        QTcpSocket* connection = server.nextPendingConnection();
        connect(connection, &QIODevice::readyRead, connection, [connection] {
            connection->readAll();
            connection->disconnectFromHost();
        });
    });
    ClientProgram client(server.serverPort(), {});
    expectFailure(client, 4, "closed the connection in the handshake");
}

void tst_FerruleClient::peerIsSilent()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    ClientProgram client(server.serverPort(), words("--timeout 0.3"));
    expectFailure(client, 5, "no connection within 0.3 seconds");
}

void tst_FerruleClient::noCommonCipher()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    OpenSslServer server(m_authority, words("-tls1_2 -cipher ECDHE-ECDSA-AES128-GCM-SHA256"));
    ClientProgram client(server.port(), words("--ciphers ECDHE-ECDSA-AES256-GCM-SHA384"));
    expectFailure(client, 4, "handshake failure");
}

void tst_FerruleClient::missingCertificateEndsTheConnection()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    OpenSslServer server(m_authority, words("-Verify 1 -verify_return_error -CAfile")
                                          + QStringList(m_authority.caFile));
    ClientProgram client(server.port(), words("--quiet"));
    // Since TLS 1.3 a client has finished the handshake before the server judges it.
    if (ENGINE_HAS_TLS13)
        expectFailure(client, 8, "certificate required");
    else
        expectFailure(client, 4, "SSL error: error:");
}

QTEST_GUILESS_MAIN(tst_FerruleClient)

#include "tst_ferruleclient.moc"

// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client: its command line, its report and its exit statuses.

#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <QtCore/QCryptographicHash>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <openssl/opensslv.h>

using namespace test;

namespace {

constexpr bool ENGINE_HAS_TLS13 = OPENSSL_VERSION_NUMBER >= 0x10101000L;

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

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
    void reportTellsWhatTheCertificateSays_data();
    void reportTellsWhatTheCertificateSays();
    void controlCharactersOfThePeerAreShownAsText();
    void quietReportsNothing();
    void verboseShowsTheSessionNotes();
    void verdictDecides_data();
    void verdictDecides();
    void authorityFromDirectory();
    void repeatResumes_data();
    void repeatResumes();
    void cipherListIsObeyed();
    void certificateIsOfferedToAServerThatAsks_data();
    void certificateIsOfferedToAServerThatAsks();
    void missingCertificateEndsTheConnection();
    void ipv6Address();

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
    for (const QString& option : words("--ca-file --ca-dir --cert --key --ciphers --repeat --timeout "
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
    QTest::newRow("empty CA file") << QStringList{QStringLiteral("--ca-file="), QStringLiteral("a:1")};
    QTest::newRow("empty ciphers") << QStringList{QStringLiteral("--ciphers="), QStringLiteral("a:1")};
    QTest::newRow("certificate alone") << words("--cert x.pem localhost:1");
    QTest::newRow("key alone") << words("--key x.pem localhost:1");
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
    QTest::newRow("nonsense ciphers") << words("--ciphers no-such-cipher")
                                      << QByteArray("Invalid or empty cipher list, error:");
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

void tst_FerruleClient::reportTellsWhatTheCertificateSays_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QByteArray>("notAfter");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("UTC") << QByteArray("UTC") << QByteArray("491231235958Z")
                         << QByteArray("2049-12-31T23:59:58Z");
    QTest::newRow("Berlin") << QByteArray("Europe/Berlin") << QByteArray("490630235958Z")
                            << QByteArray("2049-06-30T23:59:58Z");
    QTest::newRow("Los Angeles") << QByteArray("America/Los_Angeles") << QByteArray("490630235958Z")
                                 << QByteArray("2049-06-30T23:59:58Z");
    QTest::newRow("after 2049") << QByteArray("UTC") << QByteArray("20600101000000Z")
                                << QByteArray("2050 or later");
}

void tst_FerruleClient::reportTellsWhatTheCertificateSays()
{
    QFETCH(QByteArray, zone);
    QFETCH(QByteArray, notAfter);
    QFETCH(QByteArray, shown);
    CertificateSpec spec;
    spec.subject = {{"O", "Example Org"}, {"CN", "127.0.0.1"}};
    spec.serialHex = "0BADCAFE0123456789";
    spec.notBeforeText = "250102030405Z";
    spec.notAfterText = notAfter;
    const Identity identity = makeIdentity(spec, &m_authority.root);
    ServerProgram server(identity, {});
    ClientProgram client(server.port(), {QStringLiteral("--ca-file"), m_authority.caFile,
                                         QStringLiteral("--close-after-input"), QStringLiteral("0")});
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TZ"), QString::fromLatin1(zone));
    client.setProcessEnvironment(environment);
    QCOMPARE(connectOnce(client), 0);

    const auto fingerprint = [&](QCryptographicHash::Algorithm algorithm) {
        return QCryptographicHash::hash(identity.der(), algorithm).toHex(':').toUpper();
    };
    const QList<QByteArray> lines = {
        "connection   1 of 1",
        "host name    agrees",
        "session      new",
        "subject      CN=127.0.0.1,O=Example Org",
        "issuer       CN=Test Authority",
        "serial       0B:AD:CA:FE:01:23:45:67:89",
        "SHA-1        " + fingerprint(QCryptographicHash::Sha1),
        "MD5          " + fingerprint(QCryptographicHash::Md5),
        "valid from   2025-01-02T03:04:05Z",
        "valid until  " + shown,
    };
    const QList<QByteArray> report = client.errors().split('\n');
    for (const QByteArray& line : lines)
        QVERIFY2(report.contains(line), QByteArray(line + "\nis not in\n" + client.errors()).constData());
    QVERIFY(QRegularExpression(QStringLiteral("\ncipher       [A-Z0-9_-]+, [A-Za-z0-9./]+, (128|256) "
                                              "bits\n             \\S+ .*Mac=\\S+\n"))
                .match(QString::fromLatin1(client.errors()))
                .hasMatch());
}

void tst_FerruleClient::controlCharactersOfThePeerAreShownAsText()
{
    CertificateSpec spec;
    spec.subject = {{"O", "x\nverdict      OK"}, {"CN", "127.0.0.1"}};
    ServerProgram server(makeIdentity(spec), {});
    ClientProgram client(server.port(), words("--close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY(client.errors().contains("\nverdict      self-signed\n"));
    QVERIFY2(!client.errors().contains("\nverdict      OK\n"), client.errors().constData());
    QVERIFY(client.errors().contains("x\\x0Averdict"));
}

void tst_FerruleClient::quietReportsNothing()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QCOMPARE(client.errors(), QByteArray());
}

void tst_FerruleClient::verboseShowsTheSessionNotes()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --verbose --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY2(client.errors().contains("reused: false"), client.errors().constData());
}

void tst_FerruleClient::verdictDecides_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("trusted");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("verdict");
    const QString address = QStringLiteral("127.0.0.1");
    const QString name = QStringLiteral("localhost");
    QTest::newRow("OK") << address << true << words("--require-ok") << 0 << QByteArray("OK");
    QTest::newRow("OK, host name required")
        << address << true << words("--require-ok --require-host-name") << 0 << QByteArray("OK");
    QTest::newRow("other host, OK required")
        << name << true << words("--require-ok") << 0 << QByteArray("OK");
    QTest::newRow("other host, host name required")
        << name << true << words("--require-host-name") << 7 << QByteArray("OK");
    QTest::newRow("unknown authority, nothing required")
        << address << false << QStringList() << 0 << QByteArray("failed");
    QTest::newRow("unknown authority, OK required")
        << address << false << words("--require-ok") << 6 << QByteArray("failed");
    QTest::newRow("unknown authority, host name required")
        << address << false << words("--require-host-name") << 0 << QByteArray("failed");
    QTest::newRow("unknown authority, other host, both required")
        << name << false << words("--require-ok --require-host-name") << 6 << QByteArray("failed");
}

void tst_FerruleClient::verdictDecides()
{
    QFETCH(QString, host);
    QFETCH(bool, trusted);
    QFETCH(QStringList, options);
    QFETCH(int, status);
    QFETCH(QByteArray, verdict);
    ServerProgram server(m_authority);
    if (trusted)
        options << QStringLiteral("--ca-file") << m_authority.caFile;
    options << words("--close-after-input 0.2");
    ClientProgram client(server.port(), options, host);
    client.start();
    client.write("secret");
    QCOMPARE(client.finishInput(), status);
    QVERIFY(client.errors().contains("verdict      " + verdict + '\n'));
    QVERIFY(server.waitForOutput(status == 0 ? " in 6 out 6: " : " in 0 out 0: "));
}

void tst_FerruleClient::authorityFromDirectory()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    PemDirectory authorities;
    authorities.writeCertificate(QStringLiteral("ca.pem"), m_authority.root);
    runOpenSsl({QStringLiteral("rehash"), authorities.path()});
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), QStringList{QStringLiteral("--ca-dir"), authorities.path()}
                                            + words("--require-ok --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY(client.errors().contains("verdict      OK\n"));
}

void tst_FerruleClient::repeatResumes_data()
{
    QTest::addColumn<QStringList>("serverOptions");
    QTest::addColumn<int>("reused");
    QTest::newRow("TLS 1.2 ticket") << words("-tls1_2") << 2;
    // Nobody says goodbye to the server, which then forgets the session unless it is told not to.
    QTest::newRow("TLS 1.2 session identifier")
        << words("-tls1_2 -no_ticket -ignore_unexpected_eof") << 2;
    QTest::newRow("newest version") << QStringList() << 2;
    QTest::newRow("TLS 1.3 without tickets") << words("-num_tickets 0") << (ENGINE_HAS_TLS13 ? 0 : 2);
}

void tst_FerruleClient::repeatResumes()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QStringList, serverOptions);
    QFETCH(int, reused);
    OpenSslServer server(m_authority, serverOptions);
    ClientProgram client(server.port(), QStringList{QStringLiteral("--ca-file"), m_authority.caFile}
                                            + words("--repeat 3 --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY(client.errors().contains("connection   3 of 3\n"));
    QCOMPARE(client.errors().count("session      reused\n"), reused);
    QCOMPARE(client.errors().count("session      new\n"), 3 - reused);
    QCOMPARE(client.errors().count("verdict      OK\n"), 3);
}

void tst_FerruleClient::cipherListIsObeyed()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    OpenSslServer server(m_authority, words("-tls1_2"));
    ClientProgram client(server.port(), words("--ciphers ECDHE-ECDSA-AES128-GCM-SHA256 "
                                              "--close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY2(client.errors().contains("cipher       ECDHE-ECDSA-AES128-GCM-SHA256, "),
             client.errors().constData());
    QVERIFY(client.errors().contains(", 128 bits\n"));
}

void tst_FerruleClient::certificateIsOfferedToAServerThatAsks_data()
{
    QTest::addColumn<QStringList>("serverOptions");
    QTest::newRow("TLS 1.2") << words("-tls1_2");
    QTest::newRow("newest version") << QStringList();
}

void tst_FerruleClient::certificateIsOfferedToAServerThatAsks()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QStringList, serverOptions);
    const Identity identity = m_authority.issue(QStringLiteral("the client"));
    OpenSslServer server(m_authority, serverOptions + words("-Verify 1 -verify_return_error -CAfile")
                                          + QStringList(m_authority.caFile));
    ClientProgram client(
        server.port(),
        QStringList{QStringLiteral("--cert"),
                    m_directory.writeCertificate(QStringLiteral("client.pem"), identity),
                    QStringLiteral("--key"),
                    m_directory.writeKey(QStringLiteral("client.key"), identity),
                    QStringLiteral("--close-after-input"), QStringLiteral("0.2")});
    client.start();
    client.write("hello\n");
    QCOMPARE(client.finishInput(), 0);
    QVERIFY2(server.waitForOutput("hello\n"), server.output().constData());
    QVERIFY2(server.output().contains("the client"), server.output().constData());
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

void tst_FerruleClient::ipv6Address()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHostIPv6))
        QSKIP("no IPv6 on this machine");
    ServerProgram server(m_authority, {}, QStringLiteral("::1"));
    QVERIFY2(server.output().startsWith("listening on [::1]:"), server.output().constData());
    ClientProgram client(server.port(), words("--quiet --close-after-input 0"),
                         QStringLiteral("[::1]"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY(server.waitForOutput("[::1]:"));
}

QTEST_GUILESS_MAIN(tst_FerruleClient)

#include "tst_ferruleclient.moc"

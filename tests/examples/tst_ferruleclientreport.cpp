// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client: what it reports, and how the options decide over connections.

#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <QtCore/QCryptographicHash>
#include <QtNetwork/QTcpServer>
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

class tst_FerruleClientReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reportTellsWhatTheCertificateSays_data();
    void reportTellsWhatTheCertificateSays();
    void serverIsAskedByName_data();
    void serverIsAskedByName();
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
    void ipv6Address();
    void serverWithoutACertificateIsNotCalledExpired();

private:
    Authority m_authority;
    PemDirectory m_directory;
};

void tst_FerruleClientReport::reportTellsWhatTheCertificateSays_data()
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

void tst_FerruleClientReport::reportTellsWhatTheCertificateSays()
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
    ClientProgram client(server.port(),
                         {QStringLiteral("--ca-file"), m_authority.caFile,
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
        "subject      CN=127.0.0.1",
        "             O=Example Org",
        "issuer       CN=Test Authority",
        "serial       0B:AD:CA:FE:01:23:45:67:89",
        "SHA-1        " + fingerprint(QCryptographicHash::Sha1),
        "MD5          " + fingerprint(QCryptographicHash::Md5),
        "valid from   2025-01-02T03:04:05Z",
        "valid until  " + shown,
    };
    const QList<QByteArray> report = client.errors().split('\n');
    for (const QByteArray& line : lines)
        QVERIFY2(report.contains(line),
                 QByteArray(line + "\nis not in\n" + client.errors()).constData());
    QVERIFY(
        QRegularExpression(QStringLiteral("\ncipher       [A-Z0-9_-]+, [A-Za-z0-9./]+, (128|256) "
                                          "bits\n             \\S+ .*Mac=\\S+\n"))
            .match(QString::fromLatin1(client.errors()))
            .hasMatch());
}

void tst_FerruleClientReport::serverIsAskedByName_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("name");
    const QString name = QStringLiteral("localhost");
    const QString address = QStringLiteral("127.0.0.1");
    QTest::newRow("host") << name << QStringList() << QByteArray("localhost");
    QTest::newRow("address") << address << QStringList() << QByteArray();
    QTest::newRow("another") << address << words("--server-name WWW.example")
                             << QByteArray("www.example");
    QTest::newRow("none") << name << words("--no-server-name") << QByteArray();
}

void tst_FerruleClientReport::serverIsAskedByName()
{
    QFETCH(QString, host);
    QFETCH(QStringList, options);
    QFETCH(QByteArray, name);
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--close-after-input 0") + options, host);
    client.start();
    QCOMPARE(client.finishInput(), 0);
    const QByteArray row = "asked for    " + (name.isEmpty() ? "no name" : name) + '\n';
    QVERIFY2(client.errors().contains(row), client.errors().constData());
    QVERIFY(server.waitForOutput(": closed by the client"));
    const QByteArray line = server.output().trimmed().split('\n').last();
    const QByteArray told = name.isEmpty() ? QByteArray(" ") : " for " + name + ' ';
    QVERIFY2(QRegularExpression(QStringLiteral("^127\\.0\\.0\\.1:\\d+%1[A-Z0-9_-]+ new in ")
                                    .arg(QString::fromLatin1(told)))
                 .match(QString::fromLatin1(line))
                 .hasMatch(),
             line.constData());
}

void tst_FerruleClientReport::controlCharactersOfThePeerAreShownAsText()
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

void tst_FerruleClientReport::quietReportsNothing()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QCOMPARE(client.errors(), QByteArray());
}

void tst_FerruleClientReport::verboseShowsTheSessionNotes()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --verbose --close-after-input 0"));
    QCOMPARE(connectOnce(client), 0);
    QVERIFY2(client.errors().contains("reused: false"), client.errors().constData());
}

void tst_FerruleClientReport::verdictDecides_data()
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

void tst_FerruleClientReport::verdictDecides()
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

void tst_FerruleClientReport::authorityFromDirectory()
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

void tst_FerruleClientReport::repeatResumes_data()
{
    QTest::addColumn<QStringList>("serverOptions");
    QTest::addColumn<int>("reused");
    QTest::newRow("TLS 1.2 ticket") << words("-tls1_2") << 2;
    // Nobody says goodbye to the server, which then forgets the session unless it is told not to.
    QTest::newRow("TLS 1.2 session identifier")
        << words("-tls1_2 -no_ticket -ignore_unexpected_eof") << 2;
    QTest::newRow("newest version") << QStringList() << 2;
    QTest::newRow("TLS 1.3 without tickets")
        << words("-num_tickets 0") << (ENGINE_HAS_TLS13 ? 0 : 2);
}

void tst_FerruleClientReport::repeatResumes()
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

void tst_FerruleClientReport::cipherListIsObeyed()
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

void tst_FerruleClientReport::certificateIsOfferedToAServerThatAsks_data()
{
    QTest::addColumn<QStringList>("serverOptions");
    QTest::newRow("TLS 1.2") << words("-tls1_2");
    QTest::newRow("newest version") << QStringList();
}

void tst_FerruleClientReport::certificateIsOfferedToAServerThatAsks()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QStringList, serverOptions);
    const Identity identity = m_authority.issue(QStringLiteral("the client"));
    OpenSslServer server(m_authority, serverOptions
                                          + words("-Verify 1 -verify_return_error -CAfile")
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

void tst_FerruleClientReport::ipv6Address()
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

void tst_FerruleClientReport::serverWithoutACertificateIsNotCalledExpired()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    const QString anonymous = QStringLiteral("ADH-AES128-SHA256");
    const QString unsafe = QStringLiteral(":@SECLEVEL=0");
    OpenSslServer server(m_authority, words("-tls1_2 -cipher") + QStringList(anonymous + unsafe));
    ClientProgram client(server.port(), {QStringLiteral("--ciphers"),
                                         ENGINE_HAS_TLS13 ? anonymous + unsafe : anonymous,
                                         QStringLiteral("--require-ok")});
    QCOMPARE(connectOnce(client), 6);
    QVERIFY2(client.errors().contains("\ndescription  the peer has shown no certificate\n"),
             client.errors().constData());
    QVERIFY2(!client.errors().contains("expired on"), client.errors().constData());
}

QTEST_GUILESS_MAIN(tst_FerruleClientReport)

#include "tst_ferruleclientreport.moc"

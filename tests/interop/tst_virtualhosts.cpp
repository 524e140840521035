// SPDX-License-Identifier: BSD-3-Clause
// Servers that answer for several names, and clients that ask for one, among today's programs.

#include "tests/common/PeerProcess.h"
#include "tests/interop/TlsPeers.h"

#include <Ferrule/SslCertificate.h>

using test::PeerProcess;
using test::TestClient;
using test::TestServer;
using test::TlsVersion;

namespace {

const QString ONE = QStringLiteral("one.example");
const QString TWO = QStringLiteral("two.example");

// Who asks for another name, or for none, is turned away in the handshake.
const char CONFIGURATION[] = R"(
daemon off;
master_process off;
pid @DIRECTORY@/nginx.pid;
error_log stderr warn;
events { worker_connections 64; }
http {
    access_log off;
    client_body_temp_path @DIRECTORY@/body;
    proxy_temp_path @DIRECTORY@/proxy;
    fastcgi_temp_path @DIRECTORY@/fastcgi;
    uwsgi_temp_path @DIRECTORY@/uwsgi;
    scgi_temp_path @DIRECTORY@/scgi;
    ssl_protocols @PROTOCOL@;
    ssl_ciphers @CIPHERS@;
    ssl_session_cache shared:sessions:1m;
    server { listen 127.0.0.1:@PORT@ ssl default_server; ssl_reject_handshake on; }
    @HOSTS@
}
)";

const char HOST[] = R"(
    server {
        listen 127.0.0.1:@PORT@ ssl;
        server_name @NAME@;
        ssl_certificate @DIRECTORY@/@NAME@.pem;
        ssl_certificate_key @DIRECTORY@/@NAME@.key;
        location / { return 200 "this is @NAME@"; }
    }
)";

QString commonNameOf(const vela::SslSocket& socket)
{
    return vela::SslCertificate(socket.x509peerCertificate(), true).subjectCommonName();
}

void addServerRows()
{
    QTest::addColumn<TlsVersion>("version");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    for (const TlsVersion& version : test::sharedVersions()) {
        const auto add = [&version](const QString& name, const QString& shown) {
            QTest::newRow(qPrintable(QStringLiteral("TLS %1, %2").arg(version.name, name)))
                << version << name << shown;
        };
        add(ONE, ONE);
        add(TWO, TWO);
        add(QStringLiteral("TWO.Example."), TWO);
    }
}

void addClientRows()
{
    QTest::addColumn<TlsVersion>("version");
    for (const TlsVersion& version : test::sharedVersions())
        QTest::newRow(qPrintable(QStringLiteral("TLS %1").arg(version.name))) << version;
}

} // namespace

class tst_VirtualHosts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void nginxAnswersForEachName_data() { addServerRows(); }
    void nginxAnswersForEachName();
    void nginxAnswersForTheHostThatIsConnectedTo();
    void nginxTurnsOthersAway_data();
    void nginxTurnsOthersAway();
    void opensslAnswersForEachName_data() { addServerRows(); }
    void opensslAnswersForEachName();
    void gnutlsAnswersForEachName_data() { addServerRows(); }
    void gnutlsAnswersForEachName();
    void curlAsks_data() { addClientRows(); }
    void curlAsks();
    void opensslAsks_data() { addClientRows(); }
    void opensslAsks();
    void gnutlsAsks_data() { addClientRows(); }
    void gnutlsAsks();

private:
    QString file(const QString& name) const;
    QStringList writeConfiguration(const TlsVersion& version, quint16 port) const;
    bool startNginx(PeerProcess* server, const TlsVersion& version) const;
    void expectAnswer(PeerProcess* server) const;
    void expectQuestion(const QString& program,
                        const std::function<QStringList(quint16 port)>& arguments) const;

    test::PeerFiles m_files;
};

void tst_VirtualHosts::initTestCase()
{
    REQUIRE_PEER("nginx");
    REQUIRE_PEER("openssl");
    REQUIRE_PEER("gnutls-serv");
    REQUIRE_PEER("gnutls-cli");
    REQUIRE_PEER("curl");
    for (const QString& name : {ONE, TWO, QStringLiteral("localhost")}) {
        const test::Identity identity = m_files.authority.issue(name);
        m_files.directory.writeCertificate(name + QStringLiteral(".pem"), identity);
        m_files.directory.writeKey(name + QStringLiteral(".key"), identity);
    }
}

QString tst_VirtualHosts::file(const QString& name) const
{
    return m_files.directory.path() + QLatin1Char('/') + name;
}

QStringList tst_VirtualHosts::writeConfiguration(const TlsVersion& version, quint16 port) const
{
    QByteArray hosts;
    for (const QString& name : {ONE, TWO, QStringLiteral("localhost")})
        hosts += QByteArray(HOST).replace("@NAME@", name.toLatin1());
    const QByteArray configuration =
        QByteArray(CONFIGURATION)
            .replace("@HOSTS@", hosts)
            .replace("@DIRECTORY@", QFile::encodeName(m_files.directory.path()))
            .replace("@PORT@", QByteArray::number(port))
            .replace("@PROTOCOL@", version.opensslName.toLatin1())
            .replace("@CIPHERS@", version.peerCiphers().toLatin1());
    const QString name = m_files.directory.write(QStringLiteral("nginx.conf"), configuration);
    return {QStringLiteral("-p"),     m_files.directory.path(), QStringLiteral("-e"),
            QStringLiteral("stderr"), QStringLiteral("-c"),     name};
}

bool tst_VirtualHosts::startNginx(PeerProcess* server, const TlsVersion& version) const
{
    return server->runServer([&](quint16 port) { return writeConfiguration(version, port); });
}

//! Asks \a server by the name of the row, and looks whose certificate it shows.
void tst_VirtualHosts::expectAnswer(PeerProcess* server) const
{
    QFETCH(TlsVersion, version);
    QFETCH(QString, name);
    QFETCH(QString, shown);
    TestClient client(m_files, version);
    client.setServerName(name);
    QVERIFY2(client.connectTo(server->port()), server->log().constData());
    QCOMPARE(client.verdict, vela::VerifyOk);
    QCOMPARE(commonNameOf(client), shown);
    QCOMPARE(client.serverName(), shown);
    QVERIFY(client.closeConnection());
}

void tst_VirtualHosts::nginxAnswersForEachName()
{
    QFETCH(TlsVersion, version);
    QFETCH(QString, name);
    QFETCH(QString, shown);
    PeerProcess server(QStringLiteral("nginx"));
    QVERIFY(startNginx(&server, version));
    TestClient client(m_files, version);
    client.setServerName(name);
    QVERIFY2(client.connectTo(server.port()), server.log().constData());
    QCOMPARE(commonNameOf(client), shown);
    client.write("GET / HTTP/1.0\r\nHost: " + shown.toLatin1() + "\r\n\r\n");
    QByteArray header;
    QVERIFY(test::readHeader(&client, &header));
    QVERIFY2(header.startsWith("HTTP/1.1 200 "), header.constData());
}

void tst_VirtualHosts::nginxAnswersForTheHostThatIsConnectedTo()
{
    const TlsVersion version = test::sharedVersions().front();
    PeerProcess server(QStringLiteral("nginx"));
    QVERIFY(startNginx(&server, version));
    TestClient client(m_files, version);
    QVERIFY2(client.connectTo(server.port()), server.log().constData());
    QCOMPARE(client.verdict, vela::VerifyOk);
    QVERIFY(client.hostNameMatched);
}

void tst_VirtualHosts::nginxTurnsOthersAway_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("unknown name") << QStringLiteral("three.example");
    QTest::newRow("no name") << QString();
}

void tst_VirtualHosts::nginxTurnsOthersAway()
{
    QFETCH(QString, name);
    const TlsVersion version = test::sharedVersions().front();
    PeerProcess server(QStringLiteral("nginx"));
    QVERIFY(startNginx(&server, version));
    TestClient client(m_files, version);
    client.setServerName(name);
    QSignalSpy failed(&client, &QAbstractSocket::errorOccurred);
    client.connectToHost(QStringLiteral("localhost"), server.port());
    QVERIFY(failed.wait(test::CONNECT_TIMEOUT_MS));
    QVERIFY2(client.errorString().contains(QStringLiteral("unrecognized name")),
             qPrintable(client.errorString()));
    QCOMPARE(client.verdict, vela::VerifyUnknown);
}

void tst_VirtualHosts::opensslAnswersForEachName()
{
    QFETCH(TlsVersion, version);
    PeerProcess server(QStringLiteral("openssl"));
    QVERIFY(server.runServer([&](quint16 port) {
        return QStringList{QStringLiteral("s_server"),
                           QStringLiteral("-accept"),
                           QStringLiteral("127.0.0.1:%1").arg(port),
                           QStringLiteral("-quiet"),
                           QStringLiteral("-cert"),
                           file(ONE + QStringLiteral(".pem")),
                           QStringLiteral("-key"),
                           file(ONE + QStringLiteral(".key")),
                           QStringLiteral("-servername"),
                           TWO,
                           QStringLiteral("-cert2"),
                           file(TWO + QStringLiteral(".pem")),
                           QStringLiteral("-key2"),
                           file(TWO + QStringLiteral(".key"))}
               + version.opensslOptions();
    }));
    expectAnswer(&server);
}

void tst_VirtualHosts::gnutlsAnswersForEachName()
{
    QFETCH(TlsVersion, version);
    PeerProcess server(QStringLiteral("gnutls-serv"));
    QVERIFY(server.runServer([&](quint16 port) {
        QStringList arguments{QStringLiteral("--echo"), QStringLiteral("--port"),
                              QString::number(port), QStringLiteral("--priority"),
                              version.gnutlsPriority()};
        for (const QString& name : {ONE, TWO}) {
            arguments << QStringLiteral("--x509certfile") << file(name + QStringLiteral(".pem"))
                      << QStringLiteral("--x509keyfile") << file(name + QStringLiteral(".key"));
        }
        return arguments;
    }));
    expectAnswer(&server);
}

//! Has \a program connect to a server of the library, and looks which name that tells.
void tst_VirtualHosts::expectQuestion(
    const QString& program, const std::function<QStringList(quint16 port)>& arguments) const
{
    QFETCH(TlsVersion, version);
    TestServer server(m_files, version);
    PeerProcess client(program);
    QVERIFY(client.run(arguments(server.serverPort())));
    const vela::SslSocket* const peer = server.awaitPeer();
    QVERIFY2(peer, client.log().constData());
    QCOMPARE(peer->serverName(), TWO);
}

void tst_VirtualHosts::curlAsks()
{
    QFETCH(TlsVersion, version);
    expectQuestion(QStringLiteral("curl"), [&](quint16 port) {
        return QStringList{QStringLiteral("--disable"),
                           QStringLiteral("--silent"),
                           QStringLiteral("--insecure"),
                           QStringLiteral("--noproxy"),
                           QStringLiteral("*"),
                           QStringLiteral("--max-time"),
                           QStringLiteral("30"),
                           QStringLiteral("--resolve"),
                           QStringLiteral("%1:%2:127.0.0.1").arg(TWO).arg(port),
                           QStringLiteral("--tlsv") + version.name,
                           QStringLiteral("--tls-max"),
                           version.name,
                           QStringLiteral("--ciphers"),
                           version.peerCiphers(),
                           QStringLiteral("https://%1:%2/").arg(TWO).arg(port)};
    });
}

void tst_VirtualHosts::opensslAsks()
{
    QFETCH(TlsVersion, version);
    expectQuestion(QStringLiteral("openssl"), [&](quint16 port) {
        return QStringList{QStringLiteral("s_client"),
                           QStringLiteral("-connect"),
                           QStringLiteral("127.0.0.1:%1").arg(port),
                           QStringLiteral("-quiet"),
                           QStringLiteral("-servername"),
                           TWO}
               + version.opensslOptions();
    });
}

void tst_VirtualHosts::gnutlsAsks()
{
    QFETCH(TlsVersion, version);
    expectQuestion(QStringLiteral("gnutls-cli"), [&](quint16 port) {
        return QStringList{QStringLiteral("--port"),
                           QString::number(port),
                           QStringLiteral("--insecure"),
                           QStringLiteral("--sni-hostname"),
                           TWO,
                           QStringLiteral("--priority"),
                           version.gnutlsPriority(),
                           QStringLiteral("127.0.0.1")};
    });
}

QTEST_GUILESS_MAIN(tst_VirtualHosts)
#include "tst_virtualhosts.moc"

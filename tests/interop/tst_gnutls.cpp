// SPDX-License-Identifier: BSD-3-Clause
// The library against the server and the client program of GnuTLS.

#include "tests/common/PeerProcess.h"
#include "tests/interop/Exchange.h"
#include "tests/interop/TlsPeers.h"

using test::Exchange;
using test::Payload;
using test::PeerProcess;
using test::TestClient;
using test::TestServer;
using test::TlsVersion;

namespace {

const QByteArray RESUMED = QByteArrayLiteral("*** This is a resumed session");

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

//! Returns how often the programs report a connection with the protocol \a version.
int reportsOf(const QByteArray& output, const TlsVersion& version)
{
    return output.count("- Description: (TLS" + version.name.toLatin1() + "-X.509)");
}

} // namespace

class tst_GnuTls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void clientExchangesDataWithServerProgram_data() { test::addVersionRows(); }
    void clientExchangesDataWithServerProgram();
    void clientResumesSessionOfServerProgram_data() { test::addResumptionRows(); }
    void clientResumesSessionOfServerProgram();
    void serverExchangesDataWithClientProgram_data() { test::addVersionRows(); }
    void serverExchangesDataWithClientProgram();
    void serverResumesSessionOfClientProgram_data() { test::addResumptionRows(); }
    void serverResumesSessionOfClientProgram();

private:
    bool startServer(PeerProcess* server, const TlsVersion& version,
                     const QStringList& options = QStringList()) const;
    QByteArray finish(PeerProcess* server) const;
    QStringList clientArguments(const TlsVersion& version, quint16 port) const;

    test::PeerFiles m_files;
    QString m_log = m_files.directory.path() + QStringLiteral("/gnutls-cli.log");
};

void tst_GnuTls::initTestCase()
{
    REQUIRE_PEER("gnutls-serv");
    REQUIRE_PEER("gnutls-cli");
}

bool tst_GnuTls::startServer(PeerProcess* server, const TlsVersion& version,
                             const QStringList& options) const
{
    // It writes every line that it echoes there, twice.
    server->setStandardErrorFile(QProcess::nullDevice());
    return server->runServer([&](quint16 port) {
        return QStringList{QStringLiteral("--echo"),
                           QStringLiteral("--port"),
                           QString::number(port),
                           QStringLiteral("--x509certfile"),
                           m_files.certificate,
                           QStringLiteral("--x509keyfile"),
                           m_files.key,
                           QStringLiteral("--priority"),
                           version.gnutlsPriority()}
               + options;
    });
}

//! Ends the server in a way that lets it write its report, which is returned.
QByteArray tst_GnuTls::finish(PeerProcess* server) const
{
    server->terminate();
    server->waitForFinished();
    return server->readAllStandardOutput();
}

QStringList tst_GnuTls::clientArguments(const TlsVersion& version, quint16 port) const
{
    // Without a log file its report would be mixed with the data.
    return {QStringLiteral("--logfile"),    m_log,
            QStringLiteral("--port"),       QString::number(port),
            QStringLiteral("--x509cafile"), m_files.authority.caFile,
            QStringLiteral("--priority"),   version.gnutlsPriority(),
            QStringLiteral("localhost")};
}

void tst_GnuTls::clientExchangesDataWithServerProgram()
{
    QFETCH(TlsVersion, version);
    PeerProcess server(QStringLiteral("gnutls-serv"));
    QVERIFY(startServer(&server, version));
    TestClient client(m_files, version);
    QVERIFY(client.connectTo(server.port()));
    QCOMPARE(client.verdict, vela::VerifyOk);
    QVERIFY(client.hostNameMatched);

    // It sends back what it gets, line by line.
    const Payload payload(1, Payload::Lines);
    Exchange exchange;
    exchange.send(QStringLiteral("client to server"), &client, payload);
    exchange.receive(QStringLiteral("client from server"), &client, payload);
    QCOMPARE(exchange.run(), QString());
    QVERIFY(client.closeConnection());
    QCOMPARE(reportsOf(finish(&server), version), 1);
}

void tst_GnuTls::clientResumesSessionOfServerProgram()
{
    QFETCH(TlsVersion, version);
    QFETCH(bool, tickets);
    PeerProcess server(QStringLiteral("gnutls-serv"));
    QVERIFY(startServer(&server, version,
                        tickets ? QStringList() : QStringList{QStringLiteral("--noticket")}));
    TestClient client(m_files, version);
    for (const bool resuming : {false, true}) {
        QVERIFY(client.connectTo(server.port()));
        QCOMPARE(client.verdict, vela::VerifyOk);
        QCOMPARE(client.isSessionReused(), resuming);
        QSignalSpy ready(&client, &QIODevice::readyRead);
        client.write("echo\n");
        QVERIFY(!ready.isEmpty() || ready.wait(test::CONNECT_TIMEOUT_MS));
        QCOMPARE(client.readAll(), QByteArrayLiteral("echo\n"));
        QVERIFY(client.closeConnection());
    }
    const QByteArray report = finish(&server);
    QCOMPARE(report.count(RESUMED), 1);
    QCOMPARE(reportsOf(report, version), 2);
}

void tst_GnuTls::serverExchangesDataWithClientProgram()
{
    QFETCH(TlsVersion, version);
    TestServer server(m_files, version);
    PeerProcess client(QStringLiteral("gnutls-cli"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(BUFFERED_OUTPUT));
    client.setProcessEnvironment(environment);
    QVERIFY(client.run(clientArguments(version, server.serverPort())));
    vela::SslSocket* peer = server.awaitPeer();
    QVERIFY2(peer, contentOf(m_log).constData());

    Exchange exchange;
    exchange.send(QStringLiteral("server to client"), peer, Payload(1));
    exchange.receive(QStringLiteral("client from server"), &client, Payload(1));
    exchange.send(QStringLiteral("client to server"), &client, Payload(2));
    exchange.receive(QStringLiteral("server from client"), peer, Payload(2));
    QCOMPARE(exchange.run(), QString());

    QSignalSpy disconnected(peer, &QAbstractSocket::disconnected);
    client.closeWriteChannel();
    QVERIFY(disconnected.wait(test::CONNECT_TIMEOUT_MS));
    QVERIFY2(client.waitForSuccess(), contentOf(m_log).constData());
    const QByteArray report = contentOf(m_log);
    QCOMPARE(reportsOf(report, version), 1);
    QVERIFY2(report.contains("- Status: The certificate is trusted."), report.constData());
}

void tst_GnuTls::serverResumesSessionOfClientProgram()
{
    QFETCH(TlsVersion, version);
    QFETCH(bool, tickets);
    TestServer server(m_files, version);
    PeerProcess client(QStringLiteral("gnutls-cli"));
    QStringList arguments{QStringLiteral("--resume"), QStringLiteral("--waitresumption")};
    if (!tickets)
        arguments << QStringLiteral("--noticket");
    QVERIFY(client.run(arguments + clientArguments(version, server.serverPort())));
    for (const bool resuming : {false, true}) {
        vela::SslSocket* peer = server.awaitPeer();
        QVERIFY2(peer, contentOf(m_log).constData());
        QCOMPARE(peer->isSessionReused(), resuming);
    }
    // Sent and received back, to be sure that the program has written its report.
    server.lastSocket()->write("That is all.\n");
    QCOMPARE(client.readUntil("\n"), QByteArrayLiteral("That is all.\n"));
    client.closeWriteChannel();
    QVERIFY2(client.waitForSuccess(), contentOf(m_log).constData());
    const QByteArray report = contentOf(m_log);
    QCOMPARE(report.count(RESUMED), 1);
    QCOMPARE(reportsOf(report, version), 2);
}

QTEST_GUILESS_MAIN(tst_GnuTls)
#include "tst_gnutls.moc"

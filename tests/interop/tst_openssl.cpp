// SPDX-License-Identifier: BSD-3-Clause
// The library against the distribution's openssl program.

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

//! Returns true if the program's report of a connection names \a version as its protocol.
bool reports(const QByteArray& report, const TlsVersion& version)
{
    const QByteArray name = version.opensslName.toLatin1();
    // Before TLS 1.3 the line with the cipher names the version that introduced the cipher.
    return version.name == QLatin1String("1.3") ? report.contains(", " + name + ", Cipher is ")
                                                : report.contains("Protocol  : " + name + '\n');
}

} // namespace

class tst_OpenSsl : public QObject
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
    QStringList serverArguments(const TlsVersion& version, quint16 port) const;
    QStringList clientArguments(const TlsVersion& version, quint16 port) const;

    test::PeerFiles m_files;
};

void tst_OpenSsl::initTestCase()
{
    REQUIRE_PEER("openssl");
}

QStringList tst_OpenSsl::serverArguments(const TlsVersion& version, quint16 port) const
{
    return QStringList{QStringLiteral("s_server"),
                       QStringLiteral("-accept"),
                       QStringLiteral("127.0.0.1:%1").arg(port),
                       QStringLiteral("-cert"),
                       m_files.certificate,
                       QStringLiteral("-key"),
                       m_files.key}
           + version.opensslOptions();
}

QStringList tst_OpenSsl::clientArguments(const TlsVersion& version, quint16 port) const
{
    return QStringList{QStringLiteral("s_client"),
                       QStringLiteral("-connect"),
                       QStringLiteral("127.0.0.1:%1").arg(port),
                       QStringLiteral("-CAfile"),
                       m_files.authority.caFile,
                       QStringLiteral("-verify_return_error"),
                       QStringLiteral("-verify_hostname"),
                       QStringLiteral("localhost")}
           + version.opensslOptions();
}

void tst_OpenSsl::clientExchangesDataWithServerProgram()
{
    QFETCH(TlsVersion, version);
    PeerProcess server(QStringLiteral("openssl"));
    // Quiet, or it would take some letters for commands.
    QVERIFY(server.runServer(
        [&](quint16 port) { return serverArguments(version, port) << QStringLiteral("-quiet"); }));
    TestClient client(m_files, version);
    QVERIFY(client.connectTo(server.port()));
    QCOMPARE(client.verdict, vela::VerifyOk);
    QVERIFY(client.hostNameMatched);

    Exchange exchange;
    exchange.send(QStringLiteral("client to server"), &client, Payload(1));
    exchange.receive(QStringLiteral("server from client"), &server, Payload(1));
    exchange.send(QStringLiteral("server to client"), &server, Payload(2));
    exchange.receive(QStringLiteral("client from server"), &client, Payload(2));
    QCOMPARE(exchange.run(), QString());
    QVERIFY(client.closeConnection());
}

void tst_OpenSsl::clientResumesSessionOfServerProgram()
{
    QFETCH(TlsVersion, version);
    QFETCH(bool, tickets);
    PeerProcess server(QStringLiteral("openssl"));
    // Its status page tells what it thinks of the connection.
    QVERIFY(server.runServer([&](quint16 port) {
        QStringList arguments = serverArguments(version, port) << QStringLiteral("-www");
        return tickets ? arguments : arguments << QStringLiteral("-no_ticket");
    }));
    TestClient client(m_files, version);
    for (const QByteArray& expected : {QByteArrayLiteral("New, "), QByteArrayLiteral("Reused, ")}) {
        QSignalSpy disconnected(&client, &QAbstractSocket::disconnected);
        QVERIFY(client.connectTo(server.port()));
        QCOMPARE(client.verdict, vela::VerifyOk);
        QCOMPARE(client.isSessionReused(), expected == "Reused, ");
        client.write("GET / HTTP/1.0\r\n\r\n");
        QVERIFY(disconnected.wait(test::CONNECT_TIMEOUT_MS));
        const QByteArray page = client.readAll();
        QVERIFY2(page.contains(expected), page.constData());
        QVERIFY2(reports(page, version), page.constData());
    }
}

void tst_OpenSsl::serverExchangesDataWithClientProgram()
{
    QFETCH(TlsVersion, version);
    TestServer server(m_files, version);
    PeerProcess client(QStringLiteral("openssl"));
    QVERIFY(client.run(clientArguments(version, server.serverPort())
                       << QStringLiteral("-quiet") << QStringLiteral("-brief")));
    vela::SslSocket* peer = server.awaitPeer();
    QVERIFY2(peer, client.log().constData());

    Exchange exchange;
    exchange.send(QStringLiteral("server to client"), peer, Payload(1));
    exchange.receive(QStringLiteral("client from server"), &client, Payload(1));
    exchange.send(QStringLiteral("client to server"), &client, Payload(2));
    exchange.receive(QStringLiteral("server from client"), peer, Payload(2));
    QCOMPARE(exchange.run(), QString());

    peer->disconnectFromHost();
    QVERIFY2(client.waitForFinished(), client.log().constData());
    const QByteArray expected = "Protocol version: " + version.opensslName.toLatin1() + '\n';
    QVERIFY2(client.log().contains(expected), client.log().constData());
    QVERIFY2(client.log().contains("Verification: OK"), client.log().constData());
}

void tst_OpenSsl::serverResumesSessionOfClientProgram()
{
    QFETCH(TlsVersion, version);
    QFETCH(bool, tickets);
    TestServer server(m_files, version);
    const test::PemDirectory directory;
    const QString sessionFile = directory.path() + QStringLiteral("/session.pem");
    for (const bool resuming : {false, true}) {
        PeerProcess client(QStringLiteral("openssl"));
        QStringList arguments = clientArguments(version, server.serverPort());
        if (!tickets)
            arguments << QStringLiteral("-no_ticket");
        arguments << (resuming ? QStringLiteral("-sess_in") : QStringLiteral("-sess_out"))
                  << sessionFile;
        QVERIFY(client.run(arguments));
        vela::SslSocket* peer = server.awaitPeer();
        QVERIFY2(peer, client.log().constData());
        QCOMPARE(peer->isSessionReused(), resuming);

        // Sent after the tickets of TLS 1.3: who has this, has those.
        peer->write("That is all.\n");
        const QByteArray output = client.readUntil("That is all.\n");
        QVERIFY2(output.contains(resuming ? "Reused, " : "New, "), output.constData());
        QVERIFY2(reports(output, version), output.constData());
        client.closeWriteChannel();
        QVERIFY2(client.waitForSuccess(), client.log().constData());
    }
}

QTEST_GUILESS_MAIN(tst_OpenSsl)
#include "tst_openssl.moc"

// SPDX-License-Identifier: BSD-3-Clause
// The library's server against curl: files up and down.

#include "tests/common/PeerProcess.h"
#include "tests/interop/Exchange.h"
#include "tests/interop/TlsPeers.h"

using test::Exchange;
using test::Payload;
using test::PeerProcess;
using test::TestServer;
using test::TlsVersion;

class tst_Curl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void serverTakesUploadAndSendsDownload_data() { test::addVersionRows(); }
    void serverTakesUploadAndSendsDownload();
    void serverResumesSession_data() { test::addVersionRows(); }
    void serverResumesSession();

private:
    QStringList arguments(const TlsVersion& version) const;
    static QString url(const TestServer& server);
    static QByteArray report(const TlsVersion& version);

    test::PeerFiles m_files;
    QString m_upload = m_files.directory.path() + QStringLiteral("/upload.bin");
};

void tst_Curl::initTestCase()
{
    REQUIRE_PEER("curl");
    QVERIFY(Payload(1).save(m_upload));
}

QStringList tst_Curl::arguments(const TlsVersion& version) const
{
    return {QStringLiteral("--disable"),
            QStringLiteral("--silent"),
            QStringLiteral("--show-error"),
            QStringLiteral("--verbose"),
            QStringLiteral("--ipv4"),
            QStringLiteral("--http1.1"),
            QStringLiteral("--noproxy"),
            QStringLiteral("*"),
            QStringLiteral("--max-time"),
            QStringLiteral("120"),
            QStringLiteral("--cacert"),
            m_files.authority.caFile,
            QStringLiteral("--tlsv") + version.name,
            QStringLiteral("--tls-max"),
            version.name,
            QStringLiteral("--ciphers"),
            version.peerCiphers()};
}

QString tst_Curl::url(const TestServer& server)
{
    return QStringLiteral("https://localhost:%1/").arg(server.serverPort());
}

//! Returns what curl writes about a connection with \a version.
QByteArray tst_Curl::report(const TlsVersion& version)
{
    return "SSL connection using " + version.opensslName.toLatin1() + " / ";
}

void tst_Curl::serverTakesUploadAndSendsDownload()
{
    QFETCH(TlsVersion, version);
    TestServer server(m_files, version);
    PeerProcess client(QStringLiteral("curl"));
    QVERIFY(client.run(arguments(version)
                       << QStringLiteral("--header") << QStringLiteral("Expect:")
                       << QStringLiteral("--upload-file") << m_upload << url(server)));
    vela::SslSocket* peer = server.awaitPeer();
    QVERIFY2(peer, client.log().constData());

    QByteArray header;
    QVERIFY2(test::readHeader(peer, &header), client.log().constData());
    QVERIFY2(header.startsWith("PUT "), header.constData());
    Exchange upload;
    upload.receive(QStringLiteral("upload"), peer, Payload(1));
    QCOMPARE(upload.run(), QString());

    peer->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(test::PAYLOAD_SIZE)
                + "\r\n\r\n");
    Exchange download;
    download.send(QStringLiteral("download"), peer, Payload(2));
    download.receive(QStringLiteral("standard output"), &client, Payload(2));
    QCOMPARE(download.run(), QString());
    QVERIFY2(client.waitForSuccess(), client.log().constData());
    QVERIFY2(client.log().contains(report(version)), client.log().constData());
    QVERIFY2(client.log().contains("SSL certificate verify ok."), client.log().constData());
}

void tst_Curl::serverResumesSession()
{
    QFETCH(TlsVersion, version);
    TestServer server(m_files, version);
    PeerProcess client(QStringLiteral("curl"));
    QVERIFY(client.run(arguments(version) << url(server) << url(server)));
    for (const bool resuming : {false, true}) {
        vela::SslSocket* peer = server.awaitPeer();
        QVERIFY2(peer, client.log().constData());
        QCOMPARE(peer->isSessionReused(), resuming);
        QByteArray header;
        QVERIFY2(test::readHeader(peer, &header), client.log().constData());
        peer->write("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 3\r\n\r\nOK\n");
    }
    QVERIFY2(client.waitForSuccess(), client.log().constData());
    QCOMPARE(client.readAllStandardOutput(), QByteArrayLiteral("OK\nOK\n"));
    QCOMPARE(client.log().count("SSL re-using session ID"), 1);
    QCOMPARE(client.log().count(report(version)), 2);
}

QTEST_GUILESS_MAIN(tst_Curl)
#include "tst_curl.moc"

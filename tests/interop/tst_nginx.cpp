// SPDX-License-Identifier: BSD-3-Clause
// The library's client against nginx: files up and down.

#include "tests/common/PeerProcess.h"
#include "tests/interop/Exchange.h"
#include "tests/interop/TlsPeers.h"

using test::Exchange;
using test::Payload;
using test::PeerProcess;
using test::TestClient;
using test::TlsVersion;

namespace {

// In one process that its parent can end, and with all of its files in one directory.
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
    server {
        listen 127.0.0.1:@PORT@ ssl;
        ssl_certificate @CERTIFICATE@;
        ssl_certificate_key @KEY@;
        ssl_protocols @PROTOCOL@;
        ssl_ciphers @CIPHERS@;
        ssl_session_tickets @TICKETS@;
        ssl_session_cache shared:sessions:1m;
        root @DIRECTORY@;
        client_max_body_size 0;
        dav_methods PUT;
        add_header X-Protocol "$ssl_protocol";
        add_header X-Resumed "$ssl_session_reused";
    }
}
)";

} // namespace

class tst_Nginx : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void clientUploadsAndDownloads_data() { test::addVersionRows(); }
    void clientUploadsAndDownloads();
    void clientResumesSession_data() { test::addResumptionRows(); }
    void clientResumesSession();

private:
    bool startServer(PeerProcess* server, const TlsVersion& version, bool tickets = true);
    QString writeConfiguration(const TlsVersion& version, bool tickets, quint16 port);
    QString file(const char* name) const;

    test::PeerFiles m_files;
};

void tst_Nginx::initTestCase()
{
    REQUIRE_PEER("nginx");
    m_files.directory.write(QStringLiteral("small.txt"), "small\n");
    QVERIFY(Payload(1).save(file("download.bin")));
}

QString tst_Nginx::file(const char* name) const
{
    return m_files.directory.path() + QLatin1Char('/') + QLatin1String(name);
}

QString tst_Nginx::writeConfiguration(const TlsVersion& version, bool tickets, quint16 port)
{
    const QList<QPair<const char*, QString>> values{
        {"@DIRECTORY@", m_files.directory.path()},
        {"@PORT@", QString::number(port)},
        {"@CERTIFICATE@", m_files.certificate},
        {"@KEY@", m_files.key},
        {"@PROTOCOL@", version.opensslName},
        {"@CIPHERS@", version.peerCiphers()},
        {"@TICKETS@", tickets ? QStringLiteral("on") : QStringLiteral("off")},
    };
    QByteArray configuration = CONFIGURATION;
    for (const auto& value : values)
        configuration.replace(value.first, QFile::encodeName(value.second));
    return m_files.directory.write(QStringLiteral("nginx.conf"), configuration);
}

bool tst_Nginx::startServer(PeerProcess* server, const TlsVersion& version, bool tickets)
{
    return server->runServer([&](quint16 port) {
        return QStringList{QStringLiteral("-p"), m_files.directory.path(),
                           QStringLiteral("-e"), QStringLiteral("stderr"),
                           QStringLiteral("-c"), writeConfiguration(version, tickets, port)};
    });
}

void tst_Nginx::clientUploadsAndDownloads()
{
    QFETCH(TlsVersion, version);
    PeerProcess server(QStringLiteral("nginx"));
    QVERIFY(startServer(&server, version));
    TestClient client(m_files, version);
    QVERIFY(client.connectTo(server.port()));
    QCOMPARE(client.verdict, vela::VerifyOk);
    QVERIFY(client.hostNameMatched);

    QByteArray header;
    client.write("PUT /upload.bin HTTP/1.1\r\nHost: localhost\r\nContent-Length: "
                 + QByteArray::number(test::PAYLOAD_SIZE) + "\r\n\r\n");
    Exchange upload;
    upload.send(QStringLiteral("upload"), &client, Payload(2));
    QCOMPARE(upload.run(), QString());
    QVERIFY2(test::readHeader(&client, &header), server.log().constData());
    QVERIFY2(header.startsWith("HTTP/1.1 201 "), header.constData());
    QCOMPARE(test::digestOfFile(file("upload.bin")), Payload(2).digest());
    QVERIFY(QFile::remove(file("upload.bin")));

    client.write("GET /download.bin HTTP/1.1\r\nHost: localhost\r\n\r\n");
    QVERIFY2(test::readHeader(&client, &header), server.log().constData());
    QVERIFY2(header.startsWith("HTTP/1.1 200 "), header.constData());
    const QByteArray protocol = "X-Protocol: " + version.opensslName.toLatin1() + "\r\n";
    QVERIFY2(header.contains(protocol), header.constData());
    Exchange download;
    download.receive(QStringLiteral("download"), &client, Payload(1));
    QCOMPARE(download.run(), QString());
    QVERIFY(client.closeConnection());
}

void tst_Nginx::clientResumesSession()
{
    QFETCH(TlsVersion, version);
    QFETCH(bool, tickets);
    PeerProcess server(QStringLiteral("nginx"));
    QVERIFY(startServer(&server, version, tickets));
    TestClient client(m_files, version);
    for (const bool resuming : {false, true}) {
        QVERIFY(client.connectTo(server.port()));
        QCOMPARE(client.verdict, vela::VerifyOk);
        QCOMPARE(client.isSessionReused(), resuming);
        QByteArray header;
        client.write("GET /small.txt HTTP/1.1\r\nHost: localhost\r\n\r\n");
        QVERIFY2(test::readHeader(&client, &header), server.log().constData());
        QVERIFY2(header.contains(resuming ? "X-Resumed: r\r\n" : "X-Resumed: .\r\n"),
                 header.constData());
        const QByteArray protocol = "X-Protocol: " + version.opensslName.toLatin1() + "\r\n";
        QVERIFY2(header.contains(protocol), header.constData());
        QVERIFY(client.closeConnection());
    }
}

QTEST_GUILESS_MAIN(tst_Nginx)
#include "tst_nginx.moc"

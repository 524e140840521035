// SPDX-License-Identifier: BSD-3-Clause
// What a host is told about files and cipher lists that TLS cannot use.

#include "tests/common/FreshPort.h"
#include "tests/interop/EngineOracle.h"
#include "tests/interop/ErrorLog.h"
#include "tests/interop/TlsPeers.h"

#include <QtNetwork/QTcpServer>

using test::ErrorLog;
using vela::SslSocket;

namespace {

const QStringList CLIENT_FAILURE{QStringLiteral("state HostLookup"),
                                 QStringLiteral("state Connecting"), QStringLiteral("error -1")};

} // namespace

class tst_BadSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void cipherListIsRefused_data();
    void cipherListIsRefused();
    void authoritiesAreNotLoaded_data();
    void authoritiesAreNotLoaded();
    void serverNeedsIdentity_data();
    void serverNeedsIdentity();
    void identityIsNotLoaded_data();
    void identityIsNotLoaded();

private:
    QString failureOfClient(SslSocket* client);
    QString failureOfServer(const QString& certificate, const QString& key);
    QString path(const char* name) const;

    test::PemDirectory m_directory;
};

void tst_BadSettings::init()
{
    const test::Identity ec = test::makeIdentity(test::CertificateSpec());
    test::CertificateSpec rsaSpec;
    rsaSpec.keyType = test::KeyType::Rsa2048;
    const test::Identity rsa = test::makeIdentity(rsaSpec);
    m_directory.writeCertificate(QStringLiteral("certificate.pem"), ec);
    m_directory.writeKey(QStringLiteral("key.pem"), ec);
    m_directory.writeKey(QStringLiteral("rsa-key.pem"), rsa);
    m_directory.writeKey(QStringLiteral("other-key.pem"),
                         test::makeIdentity(test::CertificateSpec()));
    m_directory.write(QStringLiteral("empty.pem"), QByteArray());
    m_directory.write(QStringLiteral("nonsense.pem"),
                      "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
    m_directory.write(QStringLiteral("truncated.pem"), ec.certificatePem().left(100));
}

//! Whatever went wrong, the process still makes connections.
void tst_BadSettings::cleanup()
{
    test::TlsServer server;
    SslSocket client(SslSocket::Client);
    client.setCiphers(QStringLiteral("DEFAULT"));
    QSignalSpy connected(&client, &QAbstractSocket::connected);
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    QVERIFY2(connected.wait(test::CONNECT_TIMEOUT_MS), qPrintable(client.errorString()));
    QTRY_COMPARE(server.lastSocket()->state(), QAbstractSocket::ConnectedState);
}

QString tst_BadSettings::path(const char* name) const
{
    return *name ? m_directory.path() + QLatin1Char('/') + QLatin1String(name) : QString();
}

//! Connects \a client to a server that keeps silent; returns the text of the one error.
QString tst_BadSettings::failureOfClient(SslSocket* client)
{
    QTcpServer server;
    test::listenOnFreshPort(&server);
    ErrorLog log(client);
    client->connectToHost(QStringLiteral("127.0.0.1"), server.serverPort());
    if (!log.waitForErrors(1))
        return QStringLiteral("no error");
    const bool asExpected = log.signalled == CLIENT_FAILURE && log.olderErrors() == 1;
    client->abort();
    return asExpected ? log.texts.first() : log.signalled.join(QStringLiteral(", "));
}

//! Lets a server with these files adopt a connection; returns the text of the one error.
QString tst_BadSettings::failureOfServer(const QString& certificate, const QString& key)
{
    test::TlsServer server;
    std::unique_ptr<ErrorLog> log;
    server.configure = [&](SslSocket* socket) {
        socket->setPathToCertificate(certificate);
        socket->setPathToPrivateKey(key);
        log.reset(new ErrorLog(socket));
    };
    QTcpSocket client;
    client.connectToHost(QHostAddress(QHostAddress::LocalHost), server.serverPort());
    if (!QTest::qWaitFor([&] { return log != nullptr; }) || !log->waitForErrors(1))
        return QStringLiteral("no error");
    const bool asExpected =
        log->signalled == QStringList{QStringLiteral("error -1")} && log->olderErrors() == 1;
    return asExpected ? log->texts.first() : log->signalled.join(QStringLiteral(", "));
}

void tst_BadSettings::cipherListIsRefused_data()
{
    QTest::addColumn<QString>("ciphers");
    QTest::newRow("nonsense") << QStringLiteral("NO-SUCH-CIPHER");
    QTest::newRow("not even a name") << QStringLiteral("\u00e9!?");
    QTest::newRow("separators") << QStringLiteral(" : ");
    QTest::newRow("nothing left") << QStringLiteral("ALL:!ALL");
}

void tst_BadSettings::cipherListIsRefused()
{
    QFETCH(QString, ciphers);
    SslSocket client(SslSocket::Client);
    client.setCiphers(ciphers);
    QCOMPARE(failureOfClient(&client), QStringLiteral("Invalid or empty cipher list, ")
                                           + test::cipherListError(ciphers.toLatin1()));
}

void tst_BadSettings::authoritiesAreNotLoaded_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("missing") << path("missing.pem");
    QTest::newRow("empty") << path("empty.pem");
    QTest::newRow("nonsense") << path("nonsense.pem");
    QTest::newRow("truncated") << path("truncated.pem");
    QTest::newRow("directory") << m_directory.path();
}

void tst_BadSettings::authoritiesAreNotLoaded()
{
    QFETCH(QString, file);
    SslSocket client(SslSocket::Client);
    client.setPathToCACertFile(file);
    QCOMPARE(failureOfClient(&client), QStringLiteral("Failed to load the list of trusted CAs: ")
                                           + test::authoritiesError(file));
}

void tst_BadSettings::serverNeedsIdentity_data()
{
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("error");
    const QString noCertificate =
        QStringLiteral("QtSslSocket: Certificate required in server mode");
    QTest::newRow("neither") << QString() << QString() << noCertificate;
    QTest::newRow("key only") << QString() << path("key.pem") << noCertificate;
    // Said before any file is opened.
    QTest::newRow("certificate only") << path("missing.pem") << QString()
                                      << QStringLiteral("Private key required in server mode");
}

void tst_BadSettings::serverNeedsIdentity()
{
    QFETCH(QString, certificate);
    QFETCH(QString, key);
    QFETCH(QString, error);
    QCOMPARE(failureOfServer(certificate, key), error);
}

void tst_BadSettings::identityIsNotLoaded_data()
{
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("error");
    const QString badCertificate = QStringLiteral("Error loading certificate, ");
    const QString badKey = QStringLiteral("Error loading private key, ");
    const auto row = [this](const char* name, const char* certificate, const char* key,
                            const QString& error) {
        QTest::newRow(name) << path(certificate) << path(key) << error;
    };
    row("certificate missing", "missing.pem", "key.pem", badCertificate);
    row("certificate empty", "empty.pem", "key.pem", badCertificate);
    row("certificate nonsense", "nonsense.pem", "key.pem", badCertificate);
    row("certificate truncated", "truncated.pem", "key.pem", badCertificate);
    row("certificate is a key", "key.pem", "key.pem", badCertificate);
    row("certificate is a directory", ".", "key.pem", badCertificate);
    row("both missing", "missing.pem", "missing.pem", badCertificate);
    row("key missing", "certificate.pem", "missing.pem", badKey);
    row("key empty", "certificate.pem", "empty.pem", badKey);
    row("key is a certificate", "certificate.pem", "certificate.pem", badKey);
    row("key of another certificate", "certificate.pem", "other-key.pem", badKey);
    // OpenSSL keeps a key of another kind beside the certificate and finds out by comparing them.
    row("key of another kind", "certificate.pem", "rsa-key.pem",
        QStringLiteral("Private key does not certify public key, "));
}

void tst_BadSettings::identityIsNotLoaded()
{
    QFETCH(QString, certificate);
    QFETCH(QString, key);
    QFETCH(QString, error);
    QCOMPARE(failureOfServer(certificate, key), error + test::identityError(certificate, key));
}

QTEST_GUILESS_MAIN(tst_BadSettings)
#include "tst_badsettings.moc"

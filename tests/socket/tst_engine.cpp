// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/ClientHello.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <functional>

using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");

//! What OpenSSL itself puts first into its error queue when \a operation fails on a fresh context.
QString firstError(const std::function<void(SSL_CTX*)>& operation)
{
    SSL_CTX* context = SSL_CTX_new(SSLv23_method());
    ERR_clear_error();
    operation(context);
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    ERR_clear_error();
    SSL_CTX_free(context);
    return QString::fromLatin1(text);
}

//! A socket's failure to set up TLS, as a host sees it.
struct Failure
{
    explicit Failure(SslSocket& socket)
        : occurred(&socket, &QAbstractSocket::errorOccurred)
        , error(&socket, SIGNAL(error(QAbstractSocket::SocketError)))
                , verdict(&socket, &SslSocket::connectionVerificationDone)
    {
        result = socket.sslAccept();
        text = socket.errorString();
    }

    bool isReportedOnce() const
    {
        return !result && occurred.size() == 1 && error.size() == 1 && verdict.isEmpty()
               && occurred.first().first().value<QAbstractSocket::SocketError>()
                      == QAbstractSocket::UnknownSocketError;
    }

    QSignalSpy occurred;
    QSignalSpy error;
    QSignalSpy verdict;
    bool result = true;
    QString text;
};

//! The suites, apart from those that TLS 1.3 always offers, in the hello of a new client.
QList<quint16> offeredSuites(const QString& ciphers)
{
    test::HelloCollector collector;
    SslSocket socket(SslSocket::Client);
    socket.setCiphers(ciphers);
    socket.connectToHost(LOCALHOST, collector.serverPort());
    return collector.waitForHellos(1) ? collector.hellos().first().suites : QList<quint16>();
}

constexpr quint16 AES128_SHA = 0x002F;
constexpr quint16 AES256_SHA = 0x0035;

} // namespace

class EngineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void settingsAreStoredAsTheyAre();
    void serverWithoutCertificateFails();
    void serverWithoutKeyFailsBeforeAnyFileIsOpened();
    void nonsenseCipherListFails();
    void nonsenseCipherListLeavesTheOneInForce();
    void wrongCertificateFileFails_data();
    void wrongCertificateFileFails();
    void wrongKeyFileFails_data();
    void wrongKeyFileFails();
    void wrongCertificateAndKeyReportTheCertificate();
    void keyOfAnotherCertificateFails();
    void keyOfAnotherKindFails();
    void wrongAuthoritiesFail_data();
    void wrongAuthoritiesFail();
    void authoritiesAreLoadedFromADirectory();
    void filesMayHaveAnyName();
    void changedAuthoritiesAreLoadedAgain();
    void clientIgnoresCertificateAndKey();
    void failureLeavesNothingBehind();
    void failedServerReportsThatItCannotTakeData();
    void staleErrorsDoNotReachTheText();
    void cipherListStaysForLaterSockets();
    void cipherListAppliesFromTheNextSetUp();
    void sessionsOfAKeyAreOfferedToOneSocketEach();
    void sessionsAreNotOfferedToAnotherPort();
    void statisticsHaveSevenLines();
    void statisticsCountConnections();
    void securityLevelOfAListIsInForceAfterConnections();

private:
    SslSocket* makeServer();

    std::unique_ptr<test::PemDirectory> m_directory;
    test::Identity m_identity;
    QString m_certificate;
    QString m_key;
    std::unique_ptr<SslSocket> m_socket;
};

void EngineTest::initTestCase()
{
    m_directory = std::make_unique<test::PemDirectory>();
    m_identity = test::makeIdentity(test::CertificateSpec());
    m_certificate = m_directory->writeCertificate(QStringLiteral("certificate.pem"), m_identity);
    m_key = m_directory->writeKey(QStringLiteral("key.pem"), m_identity);
}

void EngineTest::cleanup()
{
    // The context is the whole process's: undo what a test has set on it.
    makeServer()->setCiphers(QStringLiteral("DEFAULT"));
    m_socket->sslAccept();
    m_socket.reset();
    ERR_clear_error();
}

SslSocket* EngineTest::makeServer()
{
    m_socket = std::make_unique<SslSocket>(SslSocket::Server);
    m_socket->setPathToCertificate(m_certificate);
    m_socket->setPathToPrivateKey(m_key);
    return m_socket.get();
}

void EngineTest::settingsAreStoredAsTheyAre()
{
    SslSocket socket(SslSocket::Client);
    QVERIFY(socket.ciphers().isEmpty());
    QVERIFY(socket.pathToCertificate().isEmpty());
    QVERIFY(socket.pathToPrivateKey().isEmpty());
    QVERIFY(socket.pathToCACertFile().isEmpty());
    QVERIFY(socket.pathToCACertDir().isEmpty());
    socket.setCiphers(QStringLiteral("no such cipher"));
    socket.setPathToCertificate(QStringLiteral("a"));
    socket.setPathToPrivateKey(QStringLiteral("b"));
    socket.setPathToCACertFile(QStringLiteral("c"));
    socket.setPathToCACertDir(QStringLiteral("d"));
    QCOMPARE(socket.ciphers(), QStringLiteral("no such cipher"));
    QCOMPARE(socket.pathToCertificate(), QStringLiteral("a"));
    QCOMPARE(socket.pathToPrivateKey(), QStringLiteral("b"));
    QCOMPARE(socket.pathToCACertFile(), QStringLiteral("c"));
    QCOMPARE(socket.pathToCACertDir(), QStringLiteral("d"));
    QVERIFY(socket.errorString() == SslSocket(SslSocket::Client).errorString());
}

void EngineTest::serverWithoutCertificateFails()
{
    makeServer()->setPathToCertificate(QString());
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text, QStringLiteral("QtSslSocket: Certificate required in server mode"));
    m_socket->setPathToPrivateKey(QString());
    QCOMPARE(Failure(*m_socket).text,
             QStringLiteral("QtSslSocket: Certificate required in server mode"));
}

void EngineTest::serverWithoutKeyFailsBeforeAnyFileIsOpened()
{
    makeServer()->setPathToPrivateKey(QString());
    m_socket->setPathToCertificate(QStringLiteral("/does/not/exist.pem"));
    m_socket->setPathToCACertFile(QStringLiteral("/does/not/exist.pem"));
    m_socket->setCiphers(QStringLiteral("no such cipher"));
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text, QStringLiteral("Private key required in server mode"));
}

void EngineTest::nonsenseCipherListFails()
{
    makeServer()->setCiphers(QStringLiteral("no such cipher"));
    m_socket->setPathToCertificate(QStringLiteral("/does/not/exist.pem"));
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text,
             QStringLiteral("Invalid or empty cipher list, ") + firstError([](SSL_CTX* context) {
                 SSL_CTX_set_cipher_list(context, "no such cipher");
             }));
}

// The context is shared: a typing error of one socket must not take the ciphers from all others.
void EngineTest::nonsenseCipherListLeavesTheOneInForce()
{
    SslSocket first(SslSocket::Client);
    first.setCiphers(QStringLiteral("AES128-SHA"));
    QSignalSpy error(&first, &QAbstractSocket::errorOccurred);
    first.sslConnect();
    QVERIFY(error.isEmpty());
    SslSocket nonsense(SslSocket::Client);
    nonsense.setCiphers(QStringLiteral("no such cipher"));
    QVERIFY(Failure(nonsense).isReportedOnce());
    QCOMPARE(offeredSuites(QString()), {AES128_SHA});
}

void EngineTest::wrongCertificateFileFails_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("missing") << m_directory->path() + QStringLiteral("/missing.pem");
    QTest::newRow("a directory") << m_directory->path();
    QTest::newRow("empty") << m_directory->write(QStringLiteral("empty.pem"), QByteArray());
    QTest::newRow("garbage") << m_directory->write(QStringLiteral("garbage.pem"), "no PEM at all");
    QTest::newRow("damaged") << m_directory->write(QStringLiteral("damaged.pem"),
                                                   m_identity.certificatePem().replace('A', '#'));
    QTest::newRow("the key") << m_key;
    QTest::newRow("DER") << m_directory->write(QStringLiteral("certificate.der"), m_identity.der());
}

void EngineTest::wrongCertificateFileFails()
{
    QFETCH(QString, path);
    makeServer()->setPathToCertificate(path);
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text,
             QStringLiteral("Error loading certificate, ") + firstError([path](SSL_CTX* context) {
                 SSL_CTX_use_certificate_file(context, QFile::encodeName(path).constData(),
                                              SSL_FILETYPE_PEM);
             }));
}

void EngineTest::wrongKeyFileFails_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("missing") << m_directory->path() + QStringLiteral("/missing.pem");
    QTest::newRow("empty") << m_directory->write(QStringLiteral("emptykey.pem"), QByteArray());
    QTest::newRow("garbage") << m_directory->write(QStringLiteral("badkey.pem"), "no PEM at all");
    QTest::newRow("the certificate") << m_certificate;
}

void EngineTest::wrongKeyFileFails()
{
    QFETCH(QString, path);
    makeServer()->setPathToPrivateKey(path);
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text,
             QStringLiteral("Error loading private key, ") + firstError([path](SSL_CTX* context) {
                 SSL_CTX_use_PrivateKey_file(context, QFile::encodeName(path).constData(),
                                             SSL_FILETYPE_PEM);
             }));
}

void EngineTest::wrongCertificateAndKeyReportTheCertificate()
{
    const QString certificate = m_directory->path() + QStringLiteral("/missing.pem");
    makeServer()->setPathToCertificate(certificate);
    m_socket->setPathToPrivateKey(m_directory->write(QStringLiteral("nokey.pem"), "nothing"));
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text,
             QStringLiteral("Error loading certificate, ") + firstError([&](SSL_CTX* context) {
                 SSL_CTX_use_certificate_file(context, QFile::encodeName(certificate).constData(),
                                              SSL_FILETYPE_PEM);
             }));
}

// OpenSSL notices a key of the same kind that does not fit while it loads the key.
void EngineTest::keyOfAnotherCertificateFails()
{
    const test::Identity other = test::makeIdentity(test::CertificateSpec());
    makeServer()->setPathToPrivateKey(m_directory->writeKey(QStringLiteral("otherkey.pem"), other));
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QVERIFY2(failure.text.startsWith(QStringLiteral("Error loading private key, error:")),
             qPrintable(failure.text));
    QVERIFY2(failure.text.endsWith(QStringLiteral("key values mismatch")),
             qPrintable(failure.text));
}

// A key of another kind is taken for that of another certificate until the final check.
void EngineTest::keyOfAnotherKindFails()
{
    test::CertificateSpec spec;
    spec.keyType = test::KeyType::Rsa2048;
    const test::Identity other = test::makeIdentity(spec);
    makeServer()->setPathToPrivateKey(m_directory->writeKey(QStringLiteral("rsakey.pem"), other));
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QVERIFY2(
        failure.text.startsWith(QStringLiteral("Private key does not certify public key, error:")),
        qPrintable(failure.text));
    QVERIFY2(failure.text.endsWith(QStringLiteral("no certificate assigned")),
             qPrintable(failure.text));
}

void EngineTest::wrongAuthoritiesFail_data()
{
    QTest::addColumn<bool>("server");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("directory");
    const QString missing = m_directory->path() + QStringLiteral("/missing.pem");
    const QString garbage = m_directory->write(QStringLiteral("badca.pem"), "no PEM at all");
    QTest::newRow("client, missing file") << false << missing << QString();
    QTest::newRow("client, garbage") << false << garbage << QString();
    QTest::newRow("server, missing file") << true << missing << QString();
    QTest::newRow("client, missing file, good directory")
        << false << missing << m_directory->path();
}

void EngineTest::wrongAuthoritiesFail()
{
    QFETCH(bool, server);
    QFETCH(QString, file);
    QFETCH(QString, directory);
    if (server)
        makeServer();
    else
        m_socket = std::make_unique<SslSocket>(SslSocket::Client);
    m_socket->setPathToCACertFile(file);
    m_socket->setPathToCACertDir(directory);
    const Failure failure(*m_socket);
    QVERIFY(failure.isReportedOnce());
    QCOMPARE(failure.text, QStringLiteral("Failed to load the list of trusted CAs: ")
                               + firstError([file](SSL_CTX* context) {
                                     SSL_CTX_load_verify_locations(
                                         context, QFile::encodeName(file).constData(), nullptr);
                                 }));
}

void EngineTest::authoritiesAreLoadedFromADirectory()
{
    const test::Authority authority(QStringLiteral("Authority in a directory"));
    const test::PemDirectory hashed;
    const unsigned long hash = X509_subject_name_hash(authority.root.x509());
    hashed.write(QStringLiteral("%1.0").arg(hash, 8, 16, QLatin1Char('0')),
                 authority.root.certificatePem());
    test::TlsServer server(authority.issue());

    SslSocket socket(SslSocket::Client);
    socket.setPathToCACertDir(hashed.path());
    QSignalSpy verdict(&socket, &SslSocket::connectionVerificationDone);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(verdict.wait());
    QCOMPARE(verdict.first().first().value<vela::CertVerify>(), vela::VerifyOk);
}

void EngineTest::filesMayHaveAnyName()
{
    // Greek, Cyrillic and Chinese: no code page of Windows has them all.
    const QString name = QString::fromUtf8("\xCE\xBA \xD0\xBA \xE8\xAD\x89");
    const test::Authority authority(QStringLiteral("Authority in a file with such a name"));
    const QString file =
        m_directory->writeCertificate(name + QStringLiteral(".ca"), authority.root);
    QVERIFY2(QFile::exists(file), "the locale of this test has no such characters");
    test::TlsServer server(authority.issue());
    SslSocket client(SslSocket::Client);
    client.setPathToCACertFile(file);
    QSignalSpy verdict(&client, &SslSocket::connectionVerificationDone);
    client.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(verdict.wait());
    QCOMPARE(verdict.first().first().value<vela::CertVerify>(), vela::VerifyOk);

    makeServer()->setPathToCertificate(m_directory->writeCertificate(name, m_identity));
    m_socket->setPathToPrivateKey(m_directory->writeKey(name + QStringLiteral(".key"), m_identity));
    const Failure none(*m_socket);
    QVERIFY2(none.occurred.isEmpty(), qPrintable(none.text));
}

// An unchanged file is not read again; a changed one has to be.
void EngineTest::changedAuthoritiesAreLoadedAgain()
{
    const test::PemDirectory directory;
    QString path;
    for (const QString& name : {QStringLiteral("First of two"), QStringLiteral("The second")}) {
        const test::Authority authority(name);
        path = directory.path() + QStringLiteral("/changing.pem");
        QFile::remove(path);
        directory.write(QStringLiteral("changing.pem"), authority.root.certificatePem());
        test::TlsServer server(authority.issue());
        for (int round = 0; round < 2; ++round) {
            SslSocket socket(SslSocket::Client);
            socket.setPathToCACertFile(path);
            QSignalSpy verdict(&socket, &SslSocket::connectionVerificationDone);
            socket.connectToHost(LOCALHOST, server.serverPort());
            QVERIFY(verdict.wait());
            QCOMPARE(verdict.first().first().value<vela::CertVerify>(), vela::VerifyOk);
        }
    }
    QVERIFY(QFile::remove(path));
    SslSocket socket(SslSocket::Client);
    socket.setPathToCACertFile(path);
    QVERIFY(Failure(socket).isReportedOnce());
}

void EngineTest::clientIgnoresCertificateAndKey()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    socket.setPathToCertificate(QStringLiteral("/does/not/exist.pem"));
    socket.setPathToPrivateKey(QStringLiteral("/does/not/exist.pem"));
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
}

// The same socket succeeds once its settings are right; a memory checker sees what is left over.
void EngineTest::failureLeavesNothingBehind()
{
    makeServer()->setPathToPrivateKey(QString());
    QVERIFY(Failure(*m_socket).isReportedOnce());
    m_socket->setPathToPrivateKey(m_key);
    const Failure waiting(*m_socket);
    QVERIFY(!waiting.result);
    QVERIFY(waiting.occurred.isEmpty());
}

void EngineTest::failedServerReportsThatItCannotTakeData()
{
    test::TlsServer server;
    QStringList errors;
    server.configure = [&errors](SslSocket* socket) {
        socket->setPathToPrivateKey(QString());
        connect(socket, &QAbstractSocket::errorOccurred, socket,
                [&errors, socket] { errors.append(socket->errorString()); });
    };
    SslSocket socket(SslSocket::Client);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QTRY_COMPARE(errors.size(), 2);
    const QStringList expected = {QStringLiteral("Private key required in server mode"),
                                  QStringLiteral("Failed to write protocol data to BIO")};
    QCOMPARE(errors, expected);
}

void EngineTest::staleErrorsDoNotReachTheText()
{
    SSL_CTX* context = SSL_CTX_new(SSLv23_method());
    SSL_CTX_set_cipher_list(context, "stale");
    SSL_CTX_free(context);
    QVERIFY(ERR_peek_error() != 0);

    const QString path = m_directory->path() + QStringLiteral("/missing.pem");
    makeServer()->setPathToCertificate(path);
    const QString text = Failure(*m_socket).text;
    QCOMPARE(text,
             QStringLiteral("Error loading certificate, ") + firstError([path](SSL_CTX* fresh) {
                 SSL_CTX_use_certificate_file(fresh, QFile::encodeName(path).constData(),
                                              SSL_FILETYPE_PEM);
             }));
}

void EngineTest::cipherListStaysForLaterSockets()
{
    QVERIFY(offeredSuites(QString()).size() > 2);
    QCOMPARE(offeredSuites(QStringLiteral("AES128-SHA")), {AES128_SHA});
    QCOMPARE(offeredSuites(QString()), {AES128_SHA});
    QCOMPARE(offeredSuites(QStringLiteral("AES256-SHA")), {AES256_SHA});
    QCOMPARE(offeredSuites(QString()), {AES256_SHA});
}

void EngineTest::cipherListAppliesFromTheNextSetUp()
{
    test::HelloCollector collector;
    SslSocket socket(SslSocket::Client);
    socket.connectToHost(LOCALHOST, collector.serverPort());
    QVERIFY(collector.waitForHellos(1));
    QVERIFY(collector.hellos().first().suites.size() > 2);
    socket.setCiphers(QStringLiteral("AES128-SHA"));
    socket.disconnectFromHost();
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    socket.connectToHost(LOCALHOST, collector.serverPort());
    QVERIFY(collector.waitForHellos(2));
    QCOMPARE(collector.hellos().last().suites, {AES128_SHA});
}

void EngineTest::sessionsOfAKeyAreOfferedToOneSocketEach()
{
    quint16 port = 0;
    {
        test::TlsServer server;
        connect(&server, &test::TlsServer::accepted, &server,
                [](SslSocket* accepted) { accepted->write("tickets have arrived when this has"); });
        port = server.serverPort();
        SslSocket socket(SslSocket::Client);
        QSignalSpy readyRead(&socket, &QIODevice::readyRead);
        socket.connectToHost(LOCALHOST, port);
        QVERIFY(readyRead.wait());
        socket.disconnectFromHost();
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    }
    // A server that never answers, at the same place, so that all clients are under way at once.
    test::HelloCollector collector(port);
    std::vector<std::unique_ptr<SslSocket>> sockets;
    for (int i = 0; i < 5; ++i) {
        sockets.push_back(std::make_unique<SslSocket>(SslSocket::Client));
        sockets.back()->connectToHost(LOCALHOST, port);
    }
    QVERIFY(collector.waitForHellos(5));
    QList<QByteArray> offered;
    for (const test::ClientHello& hello : collector.hellos()) {
        if (!hello.session.isEmpty())
            offered.append(hello.session);
    }
    // OpenSSL leaves two sessions with TLS 1.3 and one with earlier versions.
    QCOMPARE(offered.size(), OPENSSL_VERSION_NUMBER < 0x10101000L ? 1 : 2);
    for (int i = 1; i < offered.size(); ++i)
        QVERIFY(offered.at(i) != offered.first());
}

void EngineTest::sessionsAreNotOfferedToAnotherPort()
{
    {
        test::TlsServer server;
        SslSocket socket(SslSocket::Client);
        QSignalSpy connected(&socket, &QAbstractSocket::connected);
        socket.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(connected.wait());
        socket.disconnectFromHost();
    }
    test::HelloCollector collector;
    SslSocket socket(SslSocket::Client);
    socket.connectToHost(LOCALHOST, collector.serverPort());
    QVERIFY(collector.waitForHellos(1));
    QVERIFY(collector.hellos().first().session.isEmpty());
}

void EngineTest::statisticsHaveSevenLines()
{
    const QRegularExpression form(
        QStringLiteral("\\AOpenSSL Session Statistics\n==========================\n\n"
                       "       total: (\\d+) \nin handshake: (\\d+) \n   connected: (\\d+) \n"
                       "renegotiated: (\\d+) \n  cache hits: (\\d+) \ncache misses: (\\d+) \n"
                       "  cache full: (\\d+) \n\\z"));
    const QString statistics = SslSocket::printStatistics();
    QVERIFY2(form.match(statistics).hasMatch(), qPrintable(statistics));
}

void EngineTest::statisticsCountConnections()
{
    const auto figure = [](const char* label) {
        const QRegularExpression line(QLatin1String(label) + QStringLiteral(": (\\d+) \n"));
        return line.match(SslSocket::printStatistics()).captured(1).toInt();
    };
    const int started = figure("in handshake");
    const int completed = figure("connected");
    const int hits = figure("cache hits");
    test::TlsServer server;
    connect(&server, &test::TlsServer::accepted, &server,
            [](SslSocket* accepted) { accepted->write("complete on both sides"); });
    for (int round = 1; round <= 2; ++round) {
        SslSocket socket(SslSocket::Client);
        QSignalSpy readyRead(&socket, &QIODevice::readyRead);
        socket.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(readyRead.wait());
        QCOMPARE(figure("in handshake"), started + round);
        QCOMPARE(figure("connected"), completed + round);
        // The second connection resumes; both of its ends count.
        QCOMPARE(figure("cache hits"), hits + (round == 2 ? 2 : 0));
        socket.disconnectFromHost();
    }
}

// Newer engines judge the key when the certificate is loaded, by the level of the context. The last
// test here, for the level stays in force.
void EngineTest::securityLevelOfAListIsInForceAfterConnections()
{
    makeServer();
    QVERIFY(Failure(*m_socket).occurred.isEmpty());

    test::CertificateSpec spec;
    spec.keyType = test::KeyType::Rsa512;
    const test::Identity weak = test::makeIdentity(spec);
    makeServer()->setPathToCertificate(
        m_directory->writeCertificate(QStringLiteral("weak.pem"), weak));
    m_socket->setPathToPrivateKey(m_directory->writeKey(QStringLiteral("weak.key"), weak));
    m_socket->setCiphers(OPENSSL_VERSION_NUMBER < 0x10100000L
                             ? QStringLiteral("DEFAULT")
                             : QStringLiteral("DEFAULT:@SECLEVEL=0"));
    const Failure none(*m_socket);
    QVERIFY2(none.occurred.isEmpty(), qPrintable(none.text));
}

QTEST_GUILESS_MAIN(EngineTest)
#include "tst_engine.moc"

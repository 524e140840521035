// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslCompat.h"
#include "tests/common/EnginePeer.h"
#include "tests/common/SignalLog.h"
#include "tests/common/TlsServer.h"

#include <Ferrule/SslCertificate.h>

#include <QtTest/QtTest>

#include <openssl/x509.h>

using vela::CertVerify;
using vela::SslSocket;

namespace {

const QString LOCALHOST = QStringLiteral("localhost");
const QString VERIFIED = QStringLiteral("The SSL certificate has been verified.");

QStringList debugLines;

void collectDebugLines(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtDebugMsg)
        debugLines.append(text);
}

struct Verdict
{
    CertVerify result;
    bool hostNameMatched;
    QString description;
};

Verdict verdictOf(const QSignalSpy& spy)
{
    return {spy.first().at(0).value<CertVerify>(), spy.first().at(1).toBool(),
            spy.first().at(2).toString()};
}

//! A client and a server that are connected to each other.
struct Connection
{
    explicit Connection(const test::Identity& identity, const QString& host = LOCALHOST,
                        const QString& caFile = QString())
        : server(identity)
        , client(SslSocket::Client)
        , verdict(&client, &SslSocket::connectionVerificationDone)
        , connected(&client, &QAbstractSocket::connected)
    {
        client.setPathToCACertFile(caFile);
        client.connectToHost(host, server.serverPort());
        connected.wait();
    }

    test::TlsServer server;
    SslSocket client;
    QSignalSpy verdict;
    QSignalSpy connected;
};

// OpenSSL 3 allows versions before TLS 1.2 on its lowest security level only.
const char* ciphersForOldVersions()
{
    return OPENSSL_VERSION_NUMBER < 0x10100000L ? "DEFAULT" : "DEFAULT:@SECLEVEL=0";
}

unsigned long noTls13()
{
#ifdef SSL_OP_NO_TLSv1_3
    return SSL_OP_NO_TLSv1_3;
#else
    return 0;
#endif
}

} // namespace

// The engine's verdict on the chain, where a test wants a certain one.
static long pretendedVerifyResult = -1;
extern "C" long __real_SSL_get_verify_result(const SSL* ssl);
extern "C" long __wrap_SSL_get_verify_result(const SSL* ssl);
extern "C" long __wrap_SSL_get_verify_result(const SSL* ssl)
{
    return pretendedVerifyResult >= 0 ? pretendedVerifyResult : __real_SSL_get_verify_result(ssl);
}

class HandshakeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void queriesWithoutAHandshakeAnswerNothing();
    void selfSignedServerConnectsAllTheSame();
    void trustedServerIsOk();
    void hostNameMatchesInAnyCase();
    void anotherHostNameGetsACaution();
    void addressMatchesOnlyACommonNameThatSpellsIt();
    void unknownAuthorityFails();
    void chainThatIsExpiredFails();
    void chainThatIsNotYetValidFails();
    void resumedSessionThatHasExpiredIsExpired();
    void clientWithoutCertificateHasNoIdentity();
    void everyVerifyCodeHasItsText_data();
    void everyVerifyCodeHasItsText();
    void verdictComesOncePerHandshake();
    void leavingInTheVerdictEndsTheHandshake();
    void stepAfterTheHandshakeChangesNothing();
    void firstStepOfAServerOpensTheDevice();
    void cipherQueriesTellTheNegotiatedCipher();
    void certificatesAreDescribed();
    void certificateHandlesAreThoseOfTheConnection();
    void chainBeginsWithTheServersCertificate();
    void sessionIsResumedOnTheSecondConnection();
    void debugLogTellsOfSessions();
    void serverAfterAServerStillNegotiates();

private:
    std::unique_ptr<test::Authority> m_authority;
};

void HandshakeTest::initTestCase()
{
    m_authority = std::make_unique<test::Authority>();
}

void HandshakeTest::cleanup()
{
    pretendedVerifyResult = -1;
}

void HandshakeTest::queriesWithoutAHandshakeAnswerNothing()
{
    const SslSocket socket(SslSocket::Client);
    QCOMPARE(socket.getCipherName(), QString());
    QCOMPARE(socket.getCipherVersion(), QString());
    QCOMPARE(socket.getCipherDescription(), QString());
    QCOMPARE(socket.getCipherBits(), 0);
    QCOMPARE(socket.peerCertificate(), QString());
    QCOMPARE(socket.localCertificate(), QString());
    QVERIFY(!socket.x509peerCertificate());
    QVERIFY(!socket.x509localCertificate());
    QVERIFY(socket.x509peerCertificateChain().isEmpty());
    QVERIFY(!socket.isSessionReused());
}

void HandshakeTest::selfSignedServerConnectsAllTheSame()
{
    Connection connection(test::makeIdentity(test::CertificateSpec()));
    QCOMPARE(connection.connected.size(), 1);
    QCOMPARE(connection.client.state(), QAbstractSocket::ConnectedState);
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifySelfSigned);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, QStringLiteral("Self-signed certificate"));
}

void HandshakeTest::trustedServerIsOk()
{
    Connection connection(m_authority->issue(), LOCALHOST, m_authority->caFile);
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifyOk);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, VERIFIED);
}

void HandshakeTest::hostNameMatchesInAnyCase()
{
    Connection connection(m_authority->issue(QStringLiteral("LocalHOST")), LOCALHOST,
                          m_authority->caFile);
    const Verdict verdict = verdictOf(connection.verdict);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, VERIFIED);
}

void HandshakeTest::anotherHostNameGetsACaution()
{
    Connection connection(m_authority->issue(QStringLiteral("elsewhere.example")), LOCALHOST,
                          m_authority->caFile);
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifyOk);
    QVERIFY(!verdict.hostNameMatched);
    QCOMPARE(verdict.description,
             VERIFIED
                 + QStringLiteral(" Caution, the host name \"localhost\" does not match the host "
                                  "name in the certificate \"elsewhere.example\"."));
    QCOMPARE(connection.connected.size(), 1);
}

void HandshakeTest::addressMatchesOnlyACommonNameThatSpellsIt()
{
    const QString address = QStringLiteral("127.0.0.1");
    Connection other(m_authority->issue(), address, m_authority->caFile);
    QVERIFY(!verdictOf(other.verdict).hostNameMatched);
    Connection same(m_authority->issue(address), address, m_authority->caFile);
    QVERIFY(verdictOf(same.verdict).hostNameMatched);
}

void HandshakeTest::unknownAuthorityFails()
{
    const test::Authority unknown(QStringLiteral("Unknown Authority"));
    Connection connection(unknown.issue());
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifyFailed);
    QCOMPARE(verdict.description, QStringLiteral("Unable to get local issuer certificate"));
    QCOMPARE(connection.connected.size(), 1);
}

void HandshakeTest::chainThatIsExpiredFails()
{
    test::CertificateSpec spec;
    spec.notBeforeOffset = -3 * 86400;
    spec.notAfterOffset = -86400;
    Connection connection(test::makeIdentity(spec, &m_authority->root), LOCALHOST,
                          m_authority->caFile);
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifyFailed);
    QCOMPARE(verdict.description, QStringLiteral("The certificate has expired"));
}

void HandshakeTest::chainThatIsNotYetValidFails()
{
    test::CertificateSpec spec;
    spec.notBeforeOffset = 86400;
    Connection connection(test::makeIdentity(spec, &m_authority->root), LOCALHOST,
                          m_authority->caFile);
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, vela::VerifyFailed);
    QCOMPARE(verdict.description, QStringLiteral("The certificate is not yet valid"));
}

// The engine remembers that the chain was good; the dates say what has become of it.
void HandshakeTest::resumedSessionThatHasExpiredIsExpired()
{
    test::CertificateSpec spec;
    spec.notAfterOffset = 3;
    spec.commonName = QStringLiteral("elsewhere.example");
    Connection connection(test::makeIdentity(spec, &m_authority->root), LOCALHOST,
                          m_authority->caFile);
    QCOMPARE(verdictOf(connection.verdict).result, vela::VerifyOk);
    QSignalSpy readyRead(&connection.client, &QIODevice::readyRead);
    connection.server.lastSocket()->write("x");
    QVERIFY(readyRead.wait());
    const QDateTime end = QDateTime::currentDateTime().addSecs(4);
    connection.client.disconnectFromHost();
    QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentDateTime() > end, 10000);

    QSignalSpy verdicts(&connection.client, &SslSocket::connectionVerificationDone);
    connection.client.connectToHost(LOCALHOST, connection.server.serverPort());
    QVERIFY(verdicts.wait());
    QVERIFY(connection.client.isSessionReused());
    const Verdict verdict = verdictOf(verdicts);
    QCOMPARE(verdict.result, vela::VerifyExpired);
    QVERIFY(verdict.description.startsWith(QStringLiteral("The SSL certificate expired on ")));
    QVERIFY(verdict.description.endsWith(
        QStringLiteral(". Also, the host name \"localhost\" does not match the host name in the "
                       "certificate \"elsewhere.example\".")));
}

void HandshakeTest::clientWithoutCertificateHasNoIdentity()
{
    test::TlsServer server;
    std::unique_ptr<QSignalSpy> verdicts;
    server.configure = [&verdicts](SslSocket* socket) {
        verdicts = std::make_unique<QSignalSpy>(socket, &SslSocket::connectionVerificationDone);
    };
    SslSocket client(SslSocket::Client);
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(verdicts && verdicts->size() == 1);
    const Verdict verdict = verdictOf(*verdicts);
    QCOMPARE(verdict.result, vela::VerifyExpired);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, QStringLiteral("The SSL certificate expired on ."));
    QVERIFY(!server.lastSocket()->x509peerCertificate());
    QCOMPARE(server.lastSocket()->peerCertificate(), QString());
}

void HandshakeTest::everyVerifyCodeHasItsText_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<CertVerify>("result");
    const auto row = [](int code, const char* text, CertVerify result = vela::VerifyFailed) {
        QTest::newRow(qPrintable(QStringLiteral("code %1").arg(code)))
            << code << QString::fromLatin1(text) << result;
    };
    row(2, "Unable to get issuer certificate");
    row(4, "Unable to decrypt certificate's signature");
    row(6, "Unable to decode issuer public key");
    row(7, "Certificate signature failure");
    row(9, "The certificate is not yet valid");
    row(10, "The certificate has expired");
    row(13, "Format error in certificate's notBefore field");
    row(14, "Format error in certificate's notAfter field");
    row(17, "Out of memory");
    row(18, "Self-signed certificate", vela::VerifySelfSigned);
    row(19, "Self-signed certificate in certificate chain", vela::VerifySelfSigned);
    row(20, "Unable to get local issuer certificate");
    row(21, "Unable to verify the first certificate");
    row(24, "Invalid CA certificate");
    row(25, "Path length constraint exceeded");
    row(26, "Unsupported certificate purpose");
    row(27, "Certificate not trusted");
    row(28, "Certificate rejected");
    row(29, "Subject issuer mismatch");
    row(30, "Authority and subject key identifier mismatch");
    row(31, "Authority and issuer serial number mismatch");
    row(32, "Key usage does not include certificate signing");
    QTest::newRow("the engine's own code for an invalid authority")
        << int(X509_V_ERR_INVALID_CA) << QStringLiteral("Invalid CA certificate")
        << vela::VerifyFailed;
    for (int other : {1, 3, 5, 8, 11, 12, 15, 16, 22, 23, 33, 34, 50, 62, 4711})
        row(other, "Unknown error");
}

void HandshakeTest::everyVerifyCodeHasItsText()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(CertVerify, result);
    pretendedVerifyResult = code;
    Connection connection(test::makeIdentity(test::CertificateSpec()));
    const Verdict verdict = verdictOf(connection.verdict);
    QCOMPARE(verdict.result, result);
    QCOMPARE(verdict.description, text);
    QCOMPARE(connection.connected.size(), 1);
}

void HandshakeTest::verdictComesOncePerHandshake()
{
    Connection connection(m_authority->issue());
    QSignalSpy readyRead(&connection.client, &QIODevice::readyRead);
    connection.server.lastSocket()->write("more traffic");
    QVERIFY(readyRead.wait());
    QCOMPARE(connection.verdict.size(), 1);
    connection.client.disconnectFromHost();
    QTRY_COMPARE(connection.client.state(), QAbstractSocket::UnconnectedState);
    connection.client.connectToHost(LOCALHOST, connection.server.serverPort());
    QTRY_COMPARE(connection.connected.size(), 2);
    QCOMPARE(connection.verdict.size(), 2);
}

void HandshakeTest::leavingInTheVerdictEndsTheHandshake()
{
    test::TlsServer server;
    SslSocket client(SslSocket::Client);
    connect(&client, &SslSocket::connectionVerificationDone, &client,
            [&client] { client.socket()->abort(); });
    const test::SignalLog log(&client);
    client.connectToHost(LOCALHOST, server.serverPort());
    QTRY_VERIFY(log.contains(QStringLiteral("disconnected")));
    QTest::qWait(0);
    QCOMPARE(log.count(QStringLiteral("verdict 2")), 1);
    QVERIFY(!log.contains(QStringLiteral("state Connected")));
    QVERIFY(!log.contains(QStringLiteral("connected")));
    QVERIFY(log.filter(QStringLiteral("error")).isEmpty());
    char byte = 0;
    QCOMPARE(client.read(&byte, 1), -1);
}

void HandshakeTest::stepAfterTheHandshakeChangesNothing()
{
    Connection connection(m_authority->issue());
    const test::SignalLog log(&connection.client);
    QVERIFY(connection.client.sslConnect());
    QVERIFY(log.isEmpty());
}

void HandshakeTest::firstStepOfAServerOpensTheDevice()
{
    test::TlsServer settings;
    SslSocket socket(SslSocket::Server);
    socket.setPathToCertificate(settings.certificatePath());
    socket.setPathToPrivateKey(settings.keyPath());
    QVERIFY(!socket.isOpen());
    QVERIFY(!socket.sslAccept());
    QCOMPARE(socket.openMode(), QIODevice::OpenMode(QIODevice::ReadWrite));
}

void HandshakeTest::cipherQueriesTellTheNegotiatedCipher()
{
    test::TlsServer server;
    QTcpSocket* transport = new QTcpSocket;
    test::EnginePeer peer(test::EnginePeer::Client, transport);
    QSignalSpy done(&peer, &test::EnginePeer::handshakeDone);
    transport->connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(done.wait());
    QTRY_COMPARE(server.lastSocket()->state(), QAbstractSocket::ConnectedState);

    const SSL_CIPHER* cipher = SSL_get_current_cipher(peer.ssl());
    const SslSocket& socket = *server.lastSocket();
    char description[256];
    SSL_CIPHER_description(cipher, description, sizeof description);
    QCOMPARE(socket.getCipherName(), QString::fromLatin1(SSL_CIPHER_get_name(cipher)));
    QCOMPARE(socket.getCipherVersion(), QString::fromLatin1(SSL_CIPHER_get_version(cipher)));
    QCOMPARE(socket.getCipherDescription(), QString::fromLatin1(description));
    QCOMPARE(socket.getCipherBits(), SSL_CIPHER_get_bits(cipher, nullptr));
    QVERIFY(socket.getCipherBits() >= 128);
}

void HandshakeTest::certificatesAreDescribed()
{
    test::CertificateSpec spec;
    spec.subject = {{"C", "DE"}, {"O", "Example"}, {"CN", "localhost"}};
    spec.notBeforeText = "260102030405Z";
    spec.notAfterText = "491231235959Z";
    spec.serialHex = "1234";
    Connection connection(test::makeIdentity(spec, &m_authority->root));
    const QString expected =
        QStringLiteral("/CN=Test Authority//C=DE/O=Example/CN=localhost"
                       "/notValidBefore=2026-01-02T03:04:05/notValidAfter=2049-12-31T23:59:59"
                       "/version=2/serial=4660");
    QCOMPARE(connection.client.peerCertificate(), expected);
    // The call takes a reference away that it does not hold; one is added for it to take.
    SslSocket* server = connection.server.lastSocket();
    const vela::SslCertificate keeper(server->x509localCertificate(), false);
    X509_up_ref(server->x509localCertificate());
    QCOMPARE(server->localCertificate(), expected);
    QCOMPARE(keeper.subjectCommonName(), LOCALHOST);
}

void HandshakeTest::certificateHandlesAreThoseOfTheConnection()
{
    const test::Identity identity = m_authority->issue();
    Connection connection(identity);
    X509* peer = connection.client.x509peerCertificate();
    QVERIFY(peer);
    QCOMPARE(X509_cmp(peer, identity.x509()), 0);
    X509_free(peer);
    X509* local = connection.server.lastSocket()->x509localCertificate();
    QVERIFY(local);
    QCOMPARE(X509_cmp(local, identity.x509()), 0);
    QVERIFY(connection.server.lastSocket()->x509peerCertificateChain().isEmpty());
}

void HandshakeTest::chainBeginsWithTheServersCertificate()
{
    const test::Identity identity = m_authority->issue();
    // OpenSSL completes the chain from the authorities that the process trusts.
    Connection connection(identity, LOCALHOST, m_authority->caFile);
    const QList<X509*> chain = connection.client.x509peerCertificateChain();
    QCOMPARE(chain.size(), 2);
    QCOMPARE(X509_cmp(chain.at(0), identity.x509()), 0);
    QCOMPARE(X509_cmp(chain.at(1), m_authority->root.x509()), 0);
}

void HandshakeTest::sessionIsResumedOnTheSecondConnection()
{
    test::TlsServer server;
    connect(&server, &test::TlsServer::accepted, &server,
            [](SslSocket* accepted) { accepted->write("x"); });
    for (const bool reused : {false, true, true}) {
        SslSocket client(SslSocket::Client);
        QSignalSpy readyRead(&client, &QIODevice::readyRead);
        client.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(readyRead.wait());
        QCOMPARE(client.isSessionReused(), reused);
        QCOMPARE(server.lastSocket()->isSessionReused(), reused);
        client.disconnectFromHost();
    }
}

void HandshakeTest::debugLogTellsOfSessions()
{
    test::TlsServer server;
    connect(&server, &test::TlsServer::accepted, &server,
            [](SslSocket* accepted) { accepted->write("x"); });
    const QString key = QStringLiteral("localhost:%1").arg(server.serverPort());
    debugLines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectDebugLines);
    for (int round = 0; round < 2; ++round) {
        SslSocket client(SslSocket::Client);
        QSignalSpy readyRead(&client, &QIODevice::readyRead);
        client.connectToHost(LOCALHOST, server.serverPort());
        readyRead.wait();
        client.disconnectFromHost();
    }
    qInstallMessageHandler(previous);
    QCOMPARE(debugLines.count(QStringLiteral("session %1 reused: false").arg(key)), 1);
    QCOMPARE(debugLines.count(QStringLiteral("session %1 reused: true").arg(key)), 1);
    QCOMPARE(debugLines.count(QStringLiteral("session  reused: false")), 1);
    QCOMPARE(debugLines.count(QStringLiteral("session  reused: true")), 1);
    QVERIFY(debugLines.contains(QStringLiteral("session added to cache")));
}

// Servers share one key of the pool; a session found there must not fix the protocol version.
void HandshakeTest::serverAfterAServerStillNegotiates()
{
    test::CertificateSpec spec;
    spec.keyType = test::KeyType::Rsa2048;
    test::TlsServer server(test::makeIdentity(spec));
    server.configure = [](SslSocket* socket) {
        socket->setCiphers(QString::fromLatin1(ciphersForOldVersions()));
    };
    const unsigned long atMostTls11 = SSL_OP_NO_TLSv1_2 | noTls13();
    for (const unsigned long options : {0UL, atMostTls11, 0UL, atMostTls11}) {
        QTcpSocket* transport = new QTcpSocket;
        test::EnginePeer peer(test::EnginePeer::Client, transport, test::Identity(), options);
        SSL_set_cipher_list(peer.ssl(), ciphersForOldVersions());
        QSignalSpy done(&peer, &test::EnginePeer::handshakeDone);
        transport->connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(done.wait());
        QTRY_COMPARE(server.lastSocket()->state(), QAbstractSocket::ConnectedState);
        server.lastSocket()->disconnectFromHost();
    }
}

QTEST_GUILESS_MAIN(HandshakeTest)
#include "tst_handshake.moc"

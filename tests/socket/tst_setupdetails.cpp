// SPDX-License-Identifier: BSD-3-Clause
#include "BareConnection.h"
#include "TcpPair.h"

#include "support/OpenSslCompat.h"
#include "tests/common/MessageLog.h"
#include "tests/common/TlsServer.h"

#include <QtNetwork/QNetworkProxy>
#include <QtTest/QtTest>

using test::EnginePeer;
using vela::SslSocket;

/*
    What a host or a peer sees of the set-up's finer points. Some cannot be seen:

    - A reset forgets that a call of writeToSocket() is queued. It is queued still, and does what
      another one would.
    - A session that the engine refused leaves the pool. It was in use, and such a session is never
      handed out again.
*/
namespace {

const QString LOCALHOST = QStringLiteral("localhost");

QByteArray firstRecord(QTcpServer& server)
{
    if (!server.waitForNewConnection(5000))
        return QByteArray();
    QTcpSocket* connection = server.nextPendingConnection();
    const auto isComplete = [connection] {
        const QByteArray head = connection->peek(5);
        return head.size() == 5
               && connection->bytesAvailable()
                      >= 5 + (quint8(head.at(3)) << 8) + quint8(head.at(4));
    };
    return QTest::qWaitFor(isComplete) ? connection->readAll() : QByteArray();
}

//! A hello for TLS 1.2 that offers a session nobody has.
QByteArray helloWithAnUnknownSession()
{
    return QByteArray::fromHex("1603010063" // A record with a handshake message,
                               "0100005f"   // the client's hello,
                               "0303")      // in TLS 1.2.
           + QByteArray(32, 'r') + QByteArray::fromHex("20") + QByteArray(32, 's')
           + QByteArray::fromHex("0004c02bc009"     // ECDHE-ECDSA with AES,
                                 "0100"             // uncompressed.
                                 "0012"             // Extensions:
                                 "000a000400020017" // the curve P-256
                                 "000d000600040403" // and ECDSA, with SHA-256
                                 "0203");           // or SHA-1.
}

int statistic(const QString& name)
{
    const QRegularExpression line(name + QStringLiteral(": (\\d+) \n"));
    return line.match(SslSocket::printStatistics()).captured(1).toInt();
}

struct Verdict
{
    Verdict(test::TlsServer& server)
        : client(SslSocket::Client)
        , verdict(&client, &SslSocket::connectionVerificationDone)
    {
        client.connectToHost(LOCALHOST, server.serverPort());
        if (verdict.wait())
            result = verdict.first().first().value<vela::CertVerify>();
    }

    SslSocket client;
    QSignalSpy verdict;
    vela::CertVerify result = vela::VerifyUnknown;
};

} // namespace

class SetupDetailsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identityIsLoadedBeforeAuthorities();
    void serverLoadsTheDefaultAuthorities_data();
    void serverLoadsTheDefaultAuthorities();
    void freshAuthorityFileIsReadAgain();
    void sessionsLiveForTenMinutes();
    void helloIsPaddedForOldServers();
    void sessionOfAFailedConnectionIsRemoved();
    void failedConnectionDoesNotConfineTheNext();
    void immediateFailureLeavesTheSocketUnconnected();
    void adoptionLetsTheOwnerSeeItsDataLeave();
    void laterSetUpSendsWhatTheHostHasWritten();
    void statisticsTellMissesFromAFullCache();
};

void SetupDetailsTest::identityIsLoadedBeforeAuthorities()
{
    SslSocket server(SslSocket::Server);
    server.setPathToCertificate(QStringLiteral("/does/not/exist.pem"));
    server.setPathToPrivateKey(QStringLiteral("/does/not/exist.key"));
    server.setPathToCACertFile(QStringLiteral("/does/not/exist.ca"));
    QVERIFY(!server.sslAccept());
    QVERIFY2(server.errorString().startsWith(QStringLiteral("Error loading certificate, ")),
             qPrintable(server.errorString()));
}

void SetupDetailsTest::serverLoadsTheDefaultAuthorities_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QString>("before");
    const QByteArray directory = X509_get_default_cert_dir_env();
    QTest::newRow("a file") << QByteArray(X509_get_default_cert_file_env()) << QString();
    QTest::newRow("a directory") << directory << QString();
    QTest::newRow("the second directory of two")
        << directory << QStringLiteral("/does/not/exist") + QDir::listSeparator();
}

void SetupDetailsTest::serverLoadsTheDefaultAuthorities()
{
    QFETCH(QByteArray, variable);
    QFETCH(QString, before);
    const test::Authority authority(QStringLiteral("By default in ")
                                    + QLatin1String(QTest::currentDataTag()));
    const bool isFile = variable == X509_get_default_cert_file_env();
    const unsigned long hash = X509_subject_name_hash(authority.root.x509());
    authority.directory.write(QStringLiteral("%1.0").arg(hash, 8, 16, QLatin1Char('0')),
                              authority.root.certificatePem());
    const test::Identity identity = authority.issue();
    test::TlsServer unknown(identity);
    QCOMPARE(int(Verdict(unknown).result), int(vela::VerifyFailed));
    test::TlsServer server(identity); // Another, with which there is no session yet.
    const QString place = isFile ? authority.caFile : authority.directory.path();
    qputenv(variable, QFile::encodeName(before + place));
    // The server's set-up comes before the client judges.
    const Verdict verdict(server);
    qunsetenv(variable);
    QCOMPARE(int(verdict.result), int(vela::VerifyOk));
}

// A file that has only just been written may be written again without a trace.
void SetupDetailsTest::freshAuthorityFileIsReadAgain()
{
    const test::PemDirectory directory;
    const QByteArray good = test::makeIdentity(test::CertificateSpec()).certificatePem();
    const QByteArray bad(good.size(), '?');
    const QDateTime now = QDateTime::currentDateTime();
    // Several times: a version by the clock is the same only within one tick.
    for (int round = 0; round < 20; ++round) {
        QFile file(directory.path() + QStringLiteral("/fresh%1.pem").arg(round));
        const auto contentIsAccepted = [&](const QByteArray& content) {
            if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
                qFatal("%s cannot be written", qPrintable(file.fileName()));
            file.flush();
            file.setFileTime(now, QFileDevice::FileModificationTime);
            file.close();
            SslSocket socket(SslSocket::Client);
            const QSignalSpy errors(&socket, &QAbstractSocket::errorOccurred);
            socket.setPathToCACertFile(file.fileName());
            socket.sslConnect();
            return errors.isEmpty();
        };
        QVERIFY(contentIsAccepted(good));
        QVERIFY(!contentIsAccepted(bad));
    }
}

// Told to clients with a ticket.
void SetupDetailsTest::sessionsLiveForTenMinutes()
{
    test::TlsServer server;
    auto* transport = new QTcpSocket;
    EnginePeer client(EnginePeer::Client, transport, test::Identity(), test::atMostTls12());
    QSignalSpy done(&client, &EnginePeer::handshakeDone);
    transport->connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(done.wait());
    QCOMPARE(SSL_SESSION_get_ticket_lifetime_hint(SSL_get_session(client.ssl())), 600UL);
}

// There are servers that hang on a hello of 256 to 511 octets; ours would be one of those.
void SetupDetailsTest::helloIsPaddedForOldServers()
{
    QTcpServer server;
    test::listenOnFreshPort(&server);
    SslSocket client(SslSocket::Client);
    client.connectToHost(LOCALHOST, server.serverPort());
    QCOMPARE(firstRecord(server).size(), 5 + 512);
}

void SetupDetailsTest::sessionOfAFailedConnectionIsRemoved()
{
    test::BareConnection connection(test::atMostTls12());
    QVERIFY(connection.settled);
    const test::MessageLog messages;
    QSignalSpy error(&connection.client, &QAbstractSocket::errorOccurred);
    connection.server.peer->hold(true);
    connection.server.peer->write("damaged");
    QByteArray record = connection.server.peer->takePending();
    record[record.size() - 1] = char(~record.at(record.size() - 1));
    connection.server.peer->transport()->write(record);
    QVERIFY(error.wait());
    QCOMPARE(messages.messages().count(QStringLiteral("session removed from cache")), 1);
}

// Its session cannot be resumed, but offered it would hold the reference engine to its version.
void SetupDetailsTest::failedConnectionDoesNotConfineTheNext()
{
    test::BareConnection connection(test::atMostTls12());
    QVERIFY(connection.settled);
    QSignalSpy error(&connection.client, &QAbstractSocket::errorOccurred);
    connection.server.peer->hold(true);
    connection.server.peer->write("damaged");
    QByteArray record = connection.server.peer->takePending();
    record[record.size() - 1] = char(~record.at(record.size() - 1));
    connection.server.peer->transport()->write(record);
    QVERIFY(error.wait());
    connection.client.close();
    QTRY_COMPARE(connection.client.state(), QAbstractSocket::UnconnectedState);

    connection.server.options = SSL_OP_NO_TLSv1_2;
    error.clear();
    QSignalSpy connected(&connection.client, &QAbstractSocket::connected);
    connection.client.connectToHost(LOCALHOST, connection.server.serverPort());
    QTRY_VERIFY(!connected.isEmpty() || !error.isEmpty());
    QVERIFY2(error.isEmpty(), qPrintable(connection.client.errorString()));
}

void SetupDetailsTest::immediateFailureLeavesTheSocketUnconnected()
{
    SslSocket socket(SslSocket::Client);
    // Nothing can be connected through a proxy of this kind, and Qt knows that.
    socket.socket()->setProxy(QNetworkProxy(QNetworkProxy::FtpCachingProxy, LOCALHOST, 1));
    QSignalSpy error(&socket, &QAbstractSocket::errorOccurred);
    socket.connectToHost(LOCALHOST, 1);
    QCOMPARE(error.size(), 1);
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
}

// A greeting in plain text, for example: its owner hears of it as long as the socket is its own.
void SetupDetailsTest::adoptionLetsTheOwnerSeeItsDataLeave()
{
    const test::TcpPair pair;
    const std::unique_ptr<QTcpSocket> far(pair.far);
    QSignalSpy written(pair.near, &QIODevice::bytesWritten);
    pair.near->write("220 ready\r\n");
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    QCOMPARE(written.size(), 1);
    QCOMPARE(pair.near->bytesToWrite(), 0);
}

void SetupDetailsTest::laterSetUpSendsWhatTheHostHasWritten()
{
    const test::TcpPair pair;
    const std::unique_ptr<QTcpSocket> far(pair.far);
    const test::PemDirectory directory;
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    SslSocket server(SslSocket::Server);
    server.setSocket(pair.near); // Which cannot be set up yet.
    server.setPathToCertificate(directory.writeCertificate(QStringLiteral("c.pem"), identity));
    server.setPathToPrivateKey(directory.writeKey(QStringLiteral("k.pem"), identity));
    pair.near->write("220 ready\r\n");
    QVERIFY(!server.sslAccept()); // It waits for the client now.
    QCOMPARE(pair.near->bytesToWrite(), 0);
}

void SetupDetailsTest::statisticsTellMissesFromAFullCache()
{
    test::TlsServer server;
    const int misses = statistic(QStringLiteral("cache misses"));
    const int overflows = statistic(QStringLiteral("cache full"));
    QTcpSocket client;
    client.connectToHost(LOCALHOST, server.serverPort());
    client.write(helloWithAnUnknownSession());
    QTRY_COMPARE(statistic(QStringLiteral("cache misses")), misses + 1);
    QCOMPARE(statistic(QStringLiteral("cache full")), overflows);
}

QTEST_GUILESS_MAIN(SetupDetailsTest)
#include "tst_setupdetails.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "BareConnection.h"

#include "tests/common/ErrorQueue.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

#include <openssl/err.h>
#include <openssl/ssl.h>

using vela::SslSocket;

/*
    Failures of OpenSSL that no input brings about. Each of the functions below takes the place of
    OpenSSL's own in the library's calls, and fails when the test says so.
*/
namespace {

bool contextFails = true; // From the start: the context is made before main() runs.
bool sslFails = false;
bool sessionIsRefused = false;
int bioFailsAt = 0;
bool bioWriteFallsShort = false;
bool writeFails = false;
int writeFailsAt = 0;
bool freedSessionIsOffered = false;
QSet<const void*> freedSessions;

const QString LOCALHOST = QStringLiteral("localhost");
const QString NO_REASON = QStringLiteral("error:00000000:lib(0)");

//! A failure with a reason of its own, as OpenSSL reports it.
int failWithBadLength()
{
    ERR_put_error(ERR_LIB_SSL, 0, SSL_R_BAD_LENGTH, __FILE__, __LINE__);
    return -1;
}

// The engines differ in what such a function returns.
template <typename Result>
Result sessionIsMade(void* session, void*, CRYPTO_EX_DATA*, int, long, void*)
{
    freedSessions.remove(session); // At the address of an earlier one.
    return Result(1);
}

void sessionIsFreed(void* session, void*, CRYPTO_EX_DATA*, int, long, void*)
{
    freedSessions.insert(session);
}

} // namespace

extern "C" {

SSL_CTX* __real_SSL_CTX_new(const SSL_METHOD* method);
SSL_CTX* __wrap_SSL_CTX_new(const SSL_METHOD* method);
SSL* __real_SSL_new(SSL_CTX* context);
SSL* __wrap_SSL_new(SSL_CTX* context);
int __real_SSL_set_session(SSL* ssl, SSL_SESSION* session);
int __wrap_SSL_set_session(SSL* ssl, SSL_SESSION* session);
int __real_SSL_write(SSL* ssl, const void* data, int length);
int __wrap_SSL_write(SSL* ssl, const void* data, int length);
BIO* __real_BIO_new(const BIO_METHOD* method);
BIO* __wrap_BIO_new(const BIO_METHOD* method);
int __real_BIO_write(BIO* bio, const void* data, int length);
int __wrap_BIO_write(BIO* bio, const void* data, int length);

SSL_CTX* __wrap_SSL_CTX_new(const SSL_METHOD* method)
{
    return contextFails ? nullptr : __real_SSL_CTX_new(method);
}

SSL* __wrap_SSL_new(SSL_CTX* context)
{
    return sslFails ? nullptr : __real_SSL_new(context);
}

int __wrap_SSL_set_session(SSL* ssl, SSL_SESSION* session)
{
    const bool isFreed = session && freedSessions.contains(session);
    freedSessionIsOffered = freedSessionIsOffered || isFreed;
    return sessionIsRefused || isFreed ? 0 : __real_SSL_set_session(ssl, session);
}

int __wrap_SSL_write(SSL* ssl, const void* data, int length)
{
    if (writeFailsAt > 0 && --writeFailsAt == 0)
        return failWithBadLength();
    return writeFails ? -1 : __real_SSL_write(ssl, data, length);
}

BIO* __wrap_BIO_new(const BIO_METHOD* method)
{
    const bool fails = bioFailsAt > 0 && --bioFailsAt == 0;
    return fails ? nullptr : __real_BIO_new(method);
}

int __wrap_BIO_write(BIO* bio, const void* data, int length)
{
    return __real_BIO_write(bio, data, bioWriteFallsShort ? length / 2 : length);
}
}

class EngineFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void contextThatCannotBeMadeIsReported(); // First: it needs that there is none yet.
    void sessionThatCannotBeMadeIsReported();
    void memoryBioThatCannotBeMadeIsReported_data();
    void memoryBioThatCannotBeMadeIsReported();
    void refusedPooledSessionIsReportedAndForgotten();
    void freedSessionIsNeverOffered();
    void shortWriteOfCiphertextIsReported();
    void failedEncryptionIsReported();
    void failedEncryptionIsReportedWithItsOwnReason();
    void failedEncryptionSendsNothingAfterItsReport();
    void nextConnectionWorksAfterAFailure();
};

namespace {

//! Runs a client's first step, which must fail with one error, and returns the error text.
QString failedStep(SslSocket& socket)
{
    QSignalSpy occurred(&socket, &QAbstractSocket::errorOccurred);
    QSignalSpy error(&socket, SIGNAL(error(QAbstractSocket::SocketError)));
    const bool result = socket.sslConnect();
    if (result || occurred.size() != 1 || error.size() != 1)
        return QStringLiteral("not reported once");
    if (socket.error() != QAbstractSocket::UnknownSocketError)
        return QStringLiteral("wrong code");
    return socket.errorString();
}

bool connectToServer(SslSocket& socket, quint16 port)
{
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, port);
    return connected.wait();
}

} // namespace

void EngineFaultsTest::contextThatCannotBeMadeIsReported()
{
    QCOMPARE(SslSocket::printStatistics(), QString());
    SslSocket socket(SslSocket::Client);
    const QString text = failedStep(socket);
    QVERIFY2(text.startsWith(QStringLiteral("Error creating SSL context, ") + NO_REASON),
             qPrintable(text));
    QVERIFY(socket.getCipherName().isEmpty());

    contextFails = false;
    QSignalSpy error(&socket, &QAbstractSocket::errorOccurred);
    QVERIFY(!socket.sslConnect());
    QVERIFY(error.isEmpty());
    QVERIFY(!SslSocket::printStatistics().isEmpty());
}

void EngineFaultsTest::sessionThatCannotBeMadeIsReported()
{
    SslSocket socket(SslSocket::Client);
    sslFails = true;
    const QString text = failedStep(socket);
    sslFails = false;
    QVERIFY2(text.startsWith(QStringLiteral("Error creating SSL session, ") + NO_REASON),
             qPrintable(text));
}

void EngineFaultsTest::memoryBioThatCannotBeMadeIsReported_data()
{
    QTest::addColumn<int>("which");
    QTest::newRow("the first") << 1;
    QTest::newRow("the second") << 2;
}

void EngineFaultsTest::memoryBioThatCannotBeMadeIsReported()
{
    QFETCH(int, which);
    SslSocket socket(SslSocket::Client);
    bioFailsAt = which;
    QCOMPARE(failedStep(socket), QStringLiteral("Error creating SSL session"));
    QCOMPARE(bioFailsAt, 0);
}

void EngineFaultsTest::refusedPooledSessionIsReportedAndForgotten()
{
    test::TlsServer server;
    connect(&server, &test::TlsServer::accepted, &server,
            [](SslSocket* accepted) { accepted->write("x"); });
    // The first server of a process reads the default authorities. A session that a client began
    // before that was judged by fewer, so it would rightly not be offered.
    test::TlsServer otherServer;
    SslSocket earlier(SslSocket::Client);
    QVERIFY(connectToServer(earlier, otherServer.serverPort()));

    SslSocket first(SslSocket::Client);
    QSignalSpy readyRead(&first, &QIODevice::readyRead);
    first.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(readyRead.wait());
    first.disconnectFromHost();

    // As many failures as the first connection has left sessions, then there are none to refuse.
    int refused = 0;
    sessionIsRefused = true;
    SslSocket second(SslSocket::Client);
    QSignalSpy connected(&second, &QAbstractSocket::connected);
    QSignalSpy error(&second, &QAbstractSocket::errorOccurred);
    while (connected.isEmpty() && refused < 10) {
        second.connectToHost(LOCALHOST, server.serverPort());
        QTRY_VERIFY(!connected.isEmpty() || error.size() > refused);
        if (!connected.isEmpty())
            break;
        ++refused;
        QCOMPARE(error.size(), refused);
        QCOMPARE(second.errorString(), QStringLiteral("Error setting pooled SSL session"));
        second.close();
    }
    sessionIsRefused = false;
    QVERIFY(refused > 0);
    QCOMPARE(connected.size(), 1);
    QVERIFY(!second.isSessionReused());
}

// OpenSSL drops the session of a connection that failed, while the connection still has it.
void EngineFaultsTest::freedSessionIsNeverOffered()
{
    QVERIFY(SSL_SESSION_get_ex_new_index(0, nullptr, sessionIsMade, nullptr, sessionIsFreed) > 0);
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
    QVERIFY(connectToServer(connection.client, connection.server.serverPort()));
    QVERIFY(!freedSessionIsOffered);
}

void EngineFaultsTest::shortWriteOfCiphertextIsReported()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QVERIFY(connectToServer(socket, server.serverPort()));
    QTRY_COMPARE(server.lastSocket()->state(), QAbstractSocket::ConnectedState);
    QSignalSpy error(&socket, &QAbstractSocket::errorOccurred);
    QSignalSpy readyRead(&socket, &QIODevice::readyRead);
    server.lastSocket()->write("never arrives");
    QVERIFY(server.lastSocket()->waitForBytesWritten(5000));
    bioWriteFallsShort = true;
    const bool reported = error.wait();
    bioWriteFallsShort = false;
    QVERIFY(reported);
    QCOMPARE(error.size(), 1);
    QVERIFY(readyRead.isEmpty());
    QCOMPARE(socket.error(), QAbstractSocket::UnknownSocketError);
    QCOMPARE(socket.errorString(), QStringLiteral("Failed to write protocol data to BIO"));
}

void EngineFaultsTest::failedEncryptionIsReported()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QVERIFY(connectToServer(socket, server.serverPort()));
    QTRY_COMPARE(socket.socket()->bytesToWrite(), 0);
    QSignalSpy error(&socket, &QAbstractSocket::errorOccurred);
    QSignalSpy written(&socket, &QIODevice::bytesWritten);
    socket.write("never leaves");
    writeFails = true;
    const bool reported = error.wait();
    writeFails = false;
    QVERIFY(reported);
    QCOMPARE(error.size(), 1);
    QCOMPARE(socket.error(), QAbstractSocket::UnknownSocketError);
    QVERIFY2(socket.errorString().startsWith(QStringLiteral("SSL error: ") + NO_REASON),
             qPrintable(socket.errorString()));
    QVERIFY(written.isEmpty());
    // Nothing is torn down: the host decides.
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(socket.bytesToWrite(), 12);
    QVERIFY(!socket.getCipherName().isEmpty());
}

void EngineFaultsTest::failedEncryptionIsReportedWithItsOwnReason()
{
    test::BareConnection connection;
    QVERIFY(connection.settled);
    const QSignalSpy error(&connection.client, &QAbstractSocket::errorOccurred);
    connection.client.write("never leaves");
    test::leaveOpenSslErrors();
    writeFailsAt = 1;
    QCoreApplication::sendPostedEvents(&connection.client);
    QCOMPARE(error.size(), 1);
    const QString text = connection.client.errorString();
    QVERIFY2(text.startsWith(QStringLiteral("SSL error: error:")), qPrintable(text));
    QVERIFY2(text.endsWith(QStringLiteral("bad length")), qPrintable(text));
}

// A host that closes in the report decides what still leaves.
void EngineFaultsTest::failedEncryptionSendsNothingAfterItsReport()
{
    test::BareConnection connection;
    QVERIFY(connection.settled);
    qint64 atReport = -1;
    connect(&connection.client, &QAbstractSocket::errorOccurred, this,
            [&] { atReport = connection.client.socket()->bytesToWrite(); });
    connection.client.write(QByteArray(4096, 'x'));
    connection.client.write(QByteArray(4096, 'y'));
    writeFailsAt = 2;
    QCoreApplication::sendPostedEvents(&connection.client);
    QCOMPARE(writeFailsAt, 0);
    QVERIFY(atReport >= 0);
    QCOMPARE(connection.client.socket()->bytesToWrite(), atReport);
}

void EngineFaultsTest::nextConnectionWorksAfterAFailure()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    bioFailsAt = 2;
    failedStep(socket);
    QVERIFY(connectToServer(socket, server.serverPort()));
}

QTEST_GUILESS_MAIN(EngineFaultsTest)
#include "tst_enginefaults.moc"

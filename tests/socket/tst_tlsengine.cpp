// SPDX-License-Identifier: BSD-3-Clause
// The engine alone: two of them joined in memory, with the test in the place of the network.
#include "socket/TlsEngine.h"
#include "tests/common/ErrorQueue.h"
#include "tests/common/TestCertificates.h"

#include <QtTest/QtTest>

#include <openssl/err.h>

#include <algorithm>

using vela::SessionOrigin;
using vela::TlsEngine;
using vela::TlsSettings;
using Outcome = TlsEngine::Outcome;
using Result = TlsEngine::Result;
using Role = TlsEngine::Role;

namespace {

constexpr int WHOLE = 1 << 30;
constexpr int RECORD_HEADER = 5;

QByteArray takeOutput(TlsEngine& engine)
{
    QByteArray output(engine.pendingOutput(), '\0');
    if (!output.isEmpty())
        engine.drain(output.data(), output.size());
    return output;
}

bool feed(TlsEngine& engine, const QByteArray& data)
{
    return engine.feed(data.constData(), data.size());
}

Outcome encrypt(TlsEngine& engine, const QByteArray& data)
{
    return engine.encrypt(data.constData(), data.size());
}

//! Decrypts all that there is, appended to \a plaintext, and returns what came after it.
Outcome decryptAll(TlsEngine& engine, QByteArray& plaintext)
{
    char piece[4096];
    for (;;) {
        const Outcome outcome = engine.decrypt(piece, sizeof piece);
        if (!outcome.isDone())
            return outcome;
        plaintext.append(piece, outcome.size);
    }
}

//! What the engine under test would never do: ends its half of the connection in due form.
void sayGoodbye(TlsEngine& engine)
{
    SSL_shutdown(const_cast<SSL*>(engine.connection()));
}

struct End
{
    explicit End(Role side)
        : role(side)
    {
    }

    //! Gives \a flight to the engine, \a piece bytes at a time, with a step after each.
    bool take(const QByteArray& flight, int piece)
    {
        for (int at = 0; at < flight.size(); at += piece) {
            if (!feed(engine, flight.mid(at, piece)))
                return false;
            if (!isDone && !step())
                return false;
        }
        return true;
    }

    bool step()
    {
        ++steps;
        const Outcome outcome = engine.step(role);
        isDone = outcome.isDone();
        return isDone || outcome.result == Result::WantsMore;
    }

    const Role role;
    TlsEngine engine;
    bool isDone = false;
    int steps = 0;
};

struct Pair
{
    //! Each is another server to its client, unless the test says which one.
    explicit Pair(const QString& serverName = QString::number(++count))
        : identity(test::makeIdentity(test::CertificateSpec()))
    {
        TlsSettings settings;
        settings.pathToCertificate =
            directory.writeCertificate(QStringLiteral("certificate.pem"), identity);
        settings.pathToPrivateKey = directory.writeKey(QStringLiteral("key.pem"), identity);
        const SessionOrigin nobody;
        const SessionOrigin origin = {serverName, serverName};
        isReady = server.engine.begin(Role::Server, settings, nobody).isNull()
                  && client.engine.begin(Role::Client, TlsSettings(), origin).isNull();
    }

    bool shakeHands(int piece = WHOLE)
    {
        if (!isReady || !client.step())
            return false;
        for (int flight = 0; flight < 10 && !(client.isDone && server.isDone); ++flight) {
            if (!server.take(takeOutput(client.engine), piece)
                || !client.take(takeOutput(server.engine), piece)) {
                return false;
            }
        }
        return client.isDone && server.isDone;
    }

    //! Returns the records that the server makes of \a data.
    QByteArray encrypted(const QByteArray& data)
    {
        takeOutput(server.engine);
        return encrypt(server.engine, data).size == data.size() ? takeOutput(server.engine)
                                                                : QByteArray();
    }

    static int count;
    test::PemDirectory directory;
    test::Identity identity;
    End client{Role::Client};
    End server{Role::Server};
    bool isReady = false;
};

int Pair::count = 0;

//! Checks a failure whose reason ends with \a reason, as OpenSSL writes it.
bool isFailure(const Outcome& outcome, const char* reason)
{
    const QString text = outcome.text();
    const bool is = outcome.result == Result::Failed && text.startsWith(QStringLiteral("error:"))
                    && text.endsWith(QLatin1String(reason));
    if (!is)
        qWarning("result %d: %s", static_cast<int>(outcome.result), qPrintable(text));
    return is;
}

} // namespace

class TlsEngineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void withoutAConnectionThereIsNothing();
    void handshakeCompletesInPiecesOfAnySize_data();
    void handshakeCompletesInPiecesOfAnySize();
    void peerIsThatOfTheHandshake();
    void dataComesInPiecesOfTheCallersSize();
    void truncatedRecordsWantMore();
    void outputIsDrainedInOrder();
    void encryptingDuringTheHandshakeWantsMore();
    void goodbyeClosesAfterTheData();
    void endWithoutAGoodbyeIsNoEnd();
    void damagedRecordFailsAndLeavesAnAlert();
    void alertFailsTheHandshake();
    void garbageFails_data();
    void garbageFails();
    void failureToBeginIsSaidAndForgotten_data();
    void failureToBeginIsSaidAndForgotten();
    void sessionOfAReleasedConnectionIsResumed();
    void releaseIsTheEndOfTheConnection();
    void foreignErrorsAreNotTakenForSteps();
    void foreignErrorsAreNotTakenForDecryption();
    void foreignErrorsAreNotTakenForEncryption();
    void foreignErrorsAreNotReported();
};

void TlsEngineTest::init()
{
    ERR_clear_error();
}

void TlsEngineTest::withoutAConnectionThereIsNothing()
{
    TlsEngine engine;
    QVERIFY(!engine.connection());
    QVERIFY(!feed(engine, "ciphertext"));
    QCOMPARE(engine.pendingOutput(), 0);
    QVERIFY(!engine.hasBufferedInput());
    QVERIFY(!engine.hasGoodbye());
    QVERIFY(!engine.isSessionReused());
    QVERIFY(!engine.peerCertificate());
    engine.release();
}

void TlsEngineTest::handshakeCompletesInPiecesOfAnySize_data()
{
    QTest::addColumn<int>("piece");
    QTest::newRow("single bytes") << 1;
    QTest::newRow("pieces of seven") << 7;
    QTest::newRow("whole flights") << WHOLE;
}

void TlsEngineTest::handshakeCompletesInPiecesOfAnySize()
{
    QFETCH(int, piece);
    Pair pair;
    QVERIFY(pair.shakeHands(piece));
    // Each piece had its own step.
    QVERIFY2(piece > 1 || pair.server.steps > 100, qPrintable(QString::number(pair.server.steps)));

    const QByteArray records = pair.encrypted("hello");
    for (int at = 0; at < records.size(); at += piece)
        QVERIFY(feed(pair.client.engine, records.mid(at, piece)));
    QByteArray plaintext;
    QVERIFY(decryptAll(pair.client.engine, plaintext).result == Result::WantsMore);
    QCOMPARE(plaintext, QByteArray("hello"));
}

void TlsEngineTest::peerIsThatOfTheHandshake()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    QVERIFY(pair.client.engine.peerCertificate());
    QCOMPARE(X509_cmp(pair.client.engine.peerCertificate(), pair.identity.x509()), 0);
    QVERIFY(!pair.server.engine.peerCertificate());
    QCOMPARE(pair.client.engine.verifyResult(), long(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT));
    QVERIFY(pair.client.engine.keepsPeer());

    QVERIFY(pair.client.engine.refusePeer());
    QVERIFY(pair.client.engine.hasRefusedPeer());
    QVERIFY(!pair.client.engine.keepsPeer());
    QVERIFY(!pair.client.engine.refusePeer());
    pair.client.engine.release();
    QVERIFY(!pair.client.engine.hasRefusedPeer());
}

void TlsEngineTest::dataComesInPiecesOfTheCallersSize()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    TlsEngine& client = pair.client.engine;
    QByteArray nothing;
    QVERIFY(decryptAll(client, nothing).result == Result::WantsMore);
    QVERIFY(!client.hasBufferedInput());

    QVERIFY(feed(client, pair.encrypted(QByteArray(100, 'x'))));
    QVERIFY(client.hasBufferedInput()); // Still encrypted.
    char piece[60];
    Outcome outcome = client.decrypt(piece, sizeof piece);
    QVERIFY(outcome.isDone());
    QCOMPARE(outcome.size, 60);
    QVERIFY(client.hasBufferedInput()); // The rest of the record.
    outcome = client.decrypt(piece, sizeof piece);
    QVERIFY(outcome.isDone());
    QCOMPARE(outcome.size, 40);
    QVERIFY(!client.hasBufferedInput());
    QVERIFY(client.decrypt(piece, sizeof piece).result == Result::WantsMore);
    QVERIFY(!client.hasGoodbye());
}

void TlsEngineTest::truncatedRecordsWantMore()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    TlsEngine& client = pair.client.engine;
    const QByteArray record = pair.encrypted("whole");
    QByteArray plaintext;
    for (int at = 0; at < record.size(); ++at) {
        QVERIFY(decryptAll(client, plaintext).result == Result::WantsMore);
        QVERIFY2(plaintext.isEmpty(), qPrintable(QString::number(at)));
        QVERIFY(feed(client, record.mid(at, 1)));
    }
    QVERIFY(decryptAll(client, plaintext).result == Result::WantsMore);
    QCOMPARE(plaintext, QByteArray("whole"));
    QCOMPARE(ERR_peek_error(), 0UL);
}

void TlsEngineTest::outputIsDrainedInOrder()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    TlsEngine& server = pair.server.engine;
    takeOutput(server);
    QVERIFY(encrypt(server, "one ").isDone());
    const int first = server.pendingOutput();
    QVERIFY(encrypt(server, "two").isDone());
    QVERIFY(server.pendingOutput() > first);

    TlsEngine& client = pair.client.engine;
    while (server.pendingOutput() > 0) {
        const int before = server.pendingOutput();
        char octet = '\0';
        server.drain(&octet, 1);
        QCOMPARE(server.pendingOutput(), before - 1);
        QVERIFY(client.feed(&octet, 1));
    }
    QByteArray plaintext;
    QVERIFY(decryptAll(client, plaintext).result == Result::WantsMore);
    QCOMPARE(plaintext, QByteArray("one two"));
}

void TlsEngineTest::encryptingDuringTheHandshakeWantsMore()
{
    Pair pair;
    QVERIFY(pair.isReady);
    const Outcome outcome = encrypt(pair.client.engine, "too early");
    QVERIFY(outcome.result == Result::WantsMore);
    QCOMPARE(ERR_peek_error(), 0UL);
}

void TlsEngineTest::goodbyeClosesAfterTheData()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    TlsEngine& client = pair.client.engine;
    QVERIFY(feed(client, pair.encrypted("last")));
    sayGoodbye(pair.server.engine);
    QVERIFY(feed(client, takeOutput(pair.server.engine)));
    QVERIFY(!client.hasGoodbye());

    QByteArray plaintext;
    QVERIFY(decryptAll(client, plaintext).result == Result::Closed);
    QCOMPARE(plaintext, QByteArray("last"));
    QVERIFY(client.hasGoodbye());
    QVERIFY(decryptAll(client, plaintext).result == Result::Closed);
    QCOMPARE(plaintext, QByteArray("last"));
    QCOMPARE(ERR_peek_error(), 0UL);
}

// Only the transport knows that nothing more will come.
void TlsEngineTest::endWithoutAGoodbyeIsNoEnd()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    pair.server.engine.release();
    QByteArray plaintext;
    QVERIFY(decryptAll(pair.client.engine, plaintext).result == Result::WantsMore);
    QVERIFY(!pair.client.engine.hasGoodbye());
}

void TlsEngineTest::damagedRecordFailsAndLeavesAnAlert()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    QByteArray record = pair.encrypted("damaged");
    record[record.size() - 1] = char(~record.at(record.size() - 1));
    takeOutput(pair.client.engine);
    QVERIFY(feed(pair.client.engine, record));
    QByteArray plaintext;
    QVERIFY(isFailure(decryptAll(pair.client.engine, plaintext),
                      "decryption failed or bad record mac"));
    QVERIFY(plaintext.isEmpty());

    const QByteArray alert = takeOutput(pair.client.engine);
    QVERIFY(alert.size() > RECORD_HEADER);
    QVERIFY(feed(pair.server.engine, alert));
    QVERIFY(isFailure(decryptAll(pair.server.engine, plaintext), "alert bad record mac"));
}

void TlsEngineTest::alertFailsTheHandshake()
{
    const char alert[] = {21, 3, 1, 0, 2, 2, 40}; // A fatal one: handshake failure.
    Pair pair;
    QVERIFY(pair.isReady);
    QVERIFY(pair.client.step());
    for (const char octet : alert) {
        QVERIFY(pair.client.engine.step(Role::Client).result == Result::WantsMore);
        QVERIFY(pair.client.engine.feed(&octet, 1));
    }
    QVERIFY(isFailure(pair.client.engine.step(Role::Client), "alert handshake failure"));
}

void TlsEngineTest::garbageFails_data()
{
    QTest::addColumn<bool>("server");
    QTest::addColumn<QByteArray>("garbage");
    for (const bool server : {false, true}) {
        const char* end = server ? "server" : "client";
        QTest::addRow("%s, text", end) << server << QByteArray("SSH-2.0-nothing of the kind\r\n");
        QTest::addRow("%s, zeros", end) << server << QByteArray(64, '\0');
        QTest::addRow("%s, ones", end) << server << QByteArray(64, '\xff');
        QTest::addRow("%s, a record of another kind", end)
            << server << QByteArray("\x17\x03\x03\x00\x10", 5) + QByteArray(16, 'x');
    }
}

void TlsEngineTest::garbageFails()
{
    QFETCH(bool, server);
    QFETCH(QByteArray, garbage);
    Pair pair;
    QVERIFY(pair.isReady);
    End& end = server ? pair.server : pair.client;
    QVERIFY(end.step());
    takeOutput(end.engine);
    QVERIFY(feed(end.engine, garbage));
    QVERIFY(isFailure(end.engine.step(end.role), ""));
    // What it has to say about that, if anything, is still to be had.
    takeOutput(end.engine);
    QCOMPARE(end.engine.pendingOutput(), 0);
}

void TlsEngineTest::failureToBeginIsSaidAndForgotten_data()
{
    const auto settings = [](const QString& certificate, const QString& key, const QString& ciphers,
                             const QString& authorities) {
        return QStringList({certificate, key, ciphers, authorities});
    };
    const QString none;
    const QString missing = QStringLiteral("/nowhere/at all");
    QTest::addColumn<bool>("server");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("text");
    QTest::newRow("no certificate") << true << settings(none, none, none, none)
                                    << "QtSslSocket: Certificate required in server mode";
    QTest::newRow("no key") << true << settings(missing, none, none, none)
                            << "Private key required in server mode";
    QTest::newRow("no such certificate")
        << true << settings(missing, missing, none, none) << "Error loading certificate, error:";
    QTest::newRow("no such cipher")
        << false << settings(none, none, QStringLiteral("no such cipher"), none)
        << "Invalid or empty cipher list, error:";
    QTest::newRow("no such authorities") << false << settings(none, none, none, missing)
                                         << "Failed to load the list of trusted CAs: error:";
}

void TlsEngineTest::failureToBeginIsSaidAndForgotten()
{
    QFETCH(bool, server);
    QFETCH(QStringList, values);
    QFETCH(QString, text);
    TlsSettings settings;
    settings.pathToCertificate = values.at(0);
    settings.pathToPrivateKey = values.at(1);
    settings.ciphers = values.at(2);
    settings.pathToCACertFile = values.at(3);
    Pair pair;
    test::leaveOpenSslErrors();
    const QString foreign = Outcome{Result::Failed, 0, ERR_peek_error()}.text();
    const QString error =
        pair.client.engine.begin(server ? Role::Server : Role::Client, settings, SessionOrigin());
    QVERIFY2(error.startsWith(text), qPrintable(error));
    QVERIFY2(!error.contains(foreign), qPrintable(error));
    QVERIFY(!pair.client.engine.connection());

    QCOMPARE(pair.client.engine.begin(Role::Client, TlsSettings(), SessionOrigin()), QString());
    QVERIFY(pair.shakeHands());
}

void TlsEngineTest::sessionOfAReleasedConnectionIsResumed()
{
    const QString name = QStringLiteral("resumed:443");
    {
        Pair first(name);
        QVERIFY(first.shakeHands());
        QVERIFY(!first.client.engine.isSessionReused());
        // Newer versions of the protocol hand the session out with the data.
        QVERIFY(feed(first.client.engine, takeOutput(first.server.engine)));
        QByteArray plaintext;
        QVERIFY(decryptAll(first.client.engine, plaintext).result == Result::WantsMore);
        first.client.engine.release();
    }
    Pair second(name);
    QVERIFY(!second.client.engine.isSessionReused());
    QVERIFY(second.shakeHands());
    QVERIFY(second.client.engine.isSessionReused());
    QVERIFY(second.server.engine.isSessionReused());

    Pair other(QStringLiteral("other:443"));
    QVERIFY(other.shakeHands());
    QVERIFY(!other.client.engine.isSessionReused());
}

void TlsEngineTest::releaseIsTheEndOfTheConnection()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    takeOutput(pair.client.engine);
    QVERIFY(feed(pair.client.engine, pair.encrypted("never read")));
    pair.client.engine.release();
    QCOMPARE(pair.client.engine.pendingOutput(), 0); // No goodbye, either.
    QVERIFY(!pair.client.engine.connection());
    QVERIFY(!pair.client.engine.hasBufferedInput());
    QVERIFY(!pair.client.engine.peerCertificate());
    QVERIFY(!feed(pair.client.engine, "more"));
}

void TlsEngineTest::foreignErrorsAreNotTakenForSteps()
{
    Pair pair;
    QVERIFY(pair.isReady);
    test::leaveOpenSslErrors();
    QVERIFY(pair.client.step()); // It wants more, which the queue decides.
    QCOMPARE(ERR_peek_error(), 0UL);
    const QByteArray hello = takeOutput(pair.client.engine);
    test::leaveOpenSslErrors();
    QVERIFY(feed(pair.server.engine, hello));
    QCOMPARE(ERR_peek_error(), 0UL);
    test::leaveOpenSslErrors();
    QVERIFY(pair.server.step());
    QCOMPARE(ERR_peek_error(), 0UL);
}

void TlsEngineTest::foreignErrorsAreNotTakenForDecryption()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    TlsEngine& client = pair.client.engine;
    QVERIFY(feed(client, pair.encrypted("data")));
    char piece[64];
    test::leaveOpenSslErrors();
    QVERIFY(client.decrypt(piece, sizeof piece).isDone());
    QCOMPARE(ERR_peek_error(), 0UL);
    test::leaveOpenSslErrors();
    QVERIFY(client.decrypt(piece, sizeof piece).result == Result::WantsMore);
    QCOMPARE(ERR_peek_error(), 0UL);

    sayGoodbye(pair.server.engine);
    QVERIFY(feed(client, takeOutput(pair.server.engine)));
    test::leaveOpenSslErrors();
    QVERIFY(client.decrypt(piece, sizeof piece).result == Result::Closed);
    QCOMPARE(ERR_peek_error(), 0UL);
}

void TlsEngineTest::foreignErrorsAreNotTakenForEncryption()
{
    Pair pair;
    QVERIFY(pair.isReady);
    test::leaveOpenSslErrors();
    QVERIFY(encrypt(pair.client.engine, "too early").result == Result::WantsMore);
    QCOMPARE(ERR_peek_error(), 0UL);

    Pair ready;
    QVERIFY(ready.shakeHands());
    test::leaveOpenSslErrors();
    const Outcome outcome = encrypt(ready.client.engine, "data");
    QVERIFY(outcome.isDone());
    QCOMPARE(outcome.size, 4);
    QCOMPARE(ERR_peek_error(), 0UL);
}

void TlsEngineTest::foreignErrorsAreNotReported()
{
    Pair pair;
    QVERIFY(pair.shakeHands());
    QByteArray record = pair.encrypted("damaged");
    record[record.size() - 1] = char(~record.at(record.size() - 1));
    QVERIFY(feed(pair.client.engine, record));
    test::leaveOpenSslErrors();
    QByteArray plaintext;
    QVERIFY(isFailure(decryptAll(pair.client.engine, plaintext),
                      "decryption failed or bad record mac"));
    // One that OpenSSL gave no reason for is described, too.
    QVERIFY(isFailure({Result::Failed}, ""));
}

QTEST_GUILESS_MAIN(TlsEngineTest)
#include "tst_tlsengine.moc"

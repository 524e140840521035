// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client: what the stores that --store names make of the peer.

#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <Ferrule/SslCertificateChain.h>
#include <Ferrule/WinCertStore.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <openssl/opensslv.h>

using namespace test;

namespace {

constexpr char CAUTION[] = "\ncaution      no path validation: names and fingerprints were "
                           "compared, no signature was checked\n";

// Newer engines ask for permission to do without certificates.
constexpr const char* ANONYMOUS_CIPHERS =
    OPENSSL_VERSION_NUMBER >= 0x10100000L ? "aNULL:@SECLEVEL=0" : "aNULL";

/*! ferrule-client on a system that trusts what is in a PEM file, and in the user's directory. */
class StoreClient : public ClientProgram
{
public:
    StoreClient(quint16 port, const QStringList& options, const QString& trusted,
                const QString& userData)
        : ClientProgram(port, options + words("--close-after-input 0.2"))
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SSL_CERT_FILE"), trusted);
        environment.insert(QStringLiteral("SSL_CERT_DIR"), QString());
        environment.insert(QStringLiteral("XDG_DATA_HOME"), userData);
        setProcessEnvironment(environment);
    }

    int run(const QByteArray& input = QByteArray())
    {
        start();
        write(input);
        return finishInput();
    }
};

QByteArray embeddedRoot(const QString& commonName)
{
    QFile bundle(QStringLiteral(":/Certificates/RootCerts.pem"));
    if (!bundle.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray pem = bundle.readAll();
    QList<x509_st*> handles = vela::SslCertificateChain::readPem(pem.constData(), pem.size());
    QByteArray found;
    for (const vela::SslCertificatePtr& root : vela::SslCertificateChain(handles)) {
        if (root->subjectCommonName() == commonName)
            found = root->encodePem().toLatin1();
    }
    vela::SslCertificateChain::release(handles);
    return found;
}

//! Adds \a root as a program of the user does whose data are in \a userData.
bool importForUser(const Identity& root, const QString& userData)
{
    constexpr const char* VARIABLE = "XDG_DATA_HOME";
    const bool wasSet = qEnvironmentVariableIsSet(VARIABLE);
    const QByteArray before = qgetenv(VARIABLE);
    qputenv(VARIABLE, QFile::encodeName(userData));
    const QByteArray pem = root.certificatePem();
    const bool isImported = vela::WinCertStore(nullptr).importSystemRootCert(
        vela::SslCertificatePtr(new vela::SslCertificate(pem.constData(), pem.size())));
    if (wasSet)
        qputenv(VARIABLE, before);
    else
        qunsetenv(VARIABLE);
    return isImported;
}

//! Returns what stands beside \a title in what the client reports.
QByteArray rowOf(const QByteArray& report, const QByteArray& title)
{
    for (const QByteArray& line : report.split('\n')) {
        if (line.startsWith(title + ' '))
            return line.mid(title.size()).trimmed();
    }
    return QByteArray();
}

} // namespace

#define VERIFY_REPORTS(client, text)                                                               \
    QVERIFY2((client).errors().contains(text),                                                     \
             QByteArray(QByteArray(text) + "\nis not in\n" + (client).errors()).constData())

class tst_FerruleClientStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void systemsStoreJudges_data();
    void systemsStoreJudges();
    void rootOfTheUserIsTrusted();
    void importedRootIsTrustedUntilItsFileGoes();
    void nothingIsWritten();
    void requireOkWantsBothVerdicts_data();
    void requireOkWantsBothVerdicts();
    void quietStoreStillDecides();
    void bundleIsSearchedForTheRoot_data();
    void bundleIsSearchedForTheRoot();
    void resumedSessionIsJudgedByTheWholeChain();
    void peerWithoutCertificate_data();
    void peerWithoutCertificate();
    void logIsShownWhenVerbose_data();
    void logIsShownWhenVerbose();

private:
    QString trustNothing() const { return m_directory.path() + QStringLiteral("/none.pem"); }

    Authority m_authority;
    PemDirectory m_directory;
    QTemporaryDir m_userData;
};

void tst_FerruleClientStore::systemsStoreJudges_data()
{
    QTest::addColumn<QByteArray>("certificate");
    QTest::addColumn<bool>("trusted");
    QTest::addColumn<QByteArray>("verdict");
    QTest::newRow("authority trusted") << QByteArray("issued") << true << QByteArray("OK");
    QTest::newRow("authority unknown") << QByteArray("issued") << false << QByteArray("failed");
    QTest::newRow("expired") << QByteArray("expired") << true << QByteArray("expired");
    QTest::newRow("self-signed, trusted") << QByteArray("alone") << true << QByteArray("OK");
    QTest::newRow("self-signed, unknown")
        << QByteArray("alone") << false << QByteArray("self-signed");
}

void tst_FerruleClientStore::systemsStoreJudges()
{
    QFETCH(QByteArray, certificate);
    QFETCH(bool, trusted);
    QFETCH(QByteArray, verdict);
    const bool isAlone = certificate == "alone";
    CertificateSpec spec;
    spec.commonName = QStringLiteral("127.0.0.1");
    spec.notAfterOffset = certificate == "expired" ? -60 : 3600;
    const Identity identity = makeIdentity(spec, isAlone ? nullptr : &m_authority.root);
    PemDirectory directory;
    const QString root = directory.writeCertificate(QStringLiteral("root.pem"),
                                                    isAlone ? identity : m_authority.root);
    ServerProgram server(identity, {});
    StoreClient client(server.port(), words("--store system"), trusted ? root : trustNothing(),
                       m_userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\nstore        system: " + verdict + '\n');
    QVERIFY2(!client.errors().contains("\nverdict      OK\n"), client.errors().constData());
}

void tst_FerruleClientStore::rootOfTheUserIsTrusted()
{
    QTemporaryDir userData;
    const QString roots = userData.path() + QStringLiteral("/ferrule/roots");
    QVERIFY(QDir().mkpath(roots));
    QVERIFY(QFile::setPermissions(roots, QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                             | QFileDevice::ExeOwner));
    QFile file(roots + QStringLiteral("/mine.pem"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    file.write(m_authority.root.certificatePem());
    file.close();

    ServerProgram server(m_authority);
    StoreClient client(server.port(), words("--store system"), trustNothing(), userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\nstore        system: OK\n");
}

void tst_FerruleClientStore::importedRootIsTrustedUntilItsFileGoes()
{
    QTemporaryDir userData;
    const QDir roots(userData.path() + QStringLiteral("/ferrule/roots"));
    ServerProgram server(m_authority);
    const auto verdict = [&] {
        StoreClient client(server.port(), words("--store system"), trustNothing(), userData.path());
        return client.run() == 0 ? rowOf(client.errors(), "store") : client.errors();
    };
    QCOMPARE(verdict(), QByteArray("system: failed"));

    QVERIFY(importForUser(m_authority.root, userData.path()));
    QCOMPARE(roots.entryList(QDir::Files).size(), 1);
    QCOMPARE(verdict(), QByteArray("system: OK"));

    QVERIFY(QFile::remove(roots.filePath(roots.entryList(QDir::Files).first())));
    QCOMPARE(verdict(), QByteArray("system: failed"));
}

void tst_FerruleClientStore::nothingIsWritten()
{
    QTemporaryDir userData;
    ServerProgram server(m_authority);
    StoreClient client(server.port(), words("--store system"), m_authority.caFile, userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\nstore        system: OK\n");
    QVERIFY(QDir(userData.path()).isEmpty());
}

void tst_FerruleClientStore::requireOkWantsBothVerdicts_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<bool>("connectionTrusts");
    QTest::addColumn<bool>("storeTrusts");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reason");
    const QByteArray system = "system";
    const QByteArray bundle = "bundle";
    const QByteArray connectionRefuses = ": the verdict is not OK but failed: ";
    const QByteArray storeRefuses = ": the verdict of the system's store is not OK but failed\n";
    QTest::newRow("system, both") << system << true << true << 0 << QByteArray();
    QTest::newRow("system, connection alone") << system << true << false << 6 << storeRefuses;
    QTest::newRow("system, store alone") << system << false << true << 6 << connectionRefuses;
    QTest::newRow("system, neither") << system << false << false << 6 << connectionRefuses;
    QTest::newRow("bundle, connection alone") << bundle << true << false << 0 << QByteArray();
    QTest::newRow("bundle, neither") << bundle << false << false << 6 << connectionRefuses;
}

void tst_FerruleClientStore::requireOkWantsBothVerdicts()
{
    QFETCH(QByteArray, store);
    QFETCH(bool, connectionTrusts);
    QFETCH(bool, storeTrusts);
    QFETCH(int, status);
    QFETCH(QByteArray, reason);
    QStringList options = words("--require-ok --store") << QString::fromLatin1(store);
    if (connectionTrusts)
        options << QStringLiteral("--ca-file") << m_authority.caFile;
    ServerProgram server(m_authority);
    StoreClient client(server.port(), options, storeTrusts ? m_authority.caFile : trustNothing(),
                       m_userData.path());
    QCOMPARE(client.run("secret"), status);
    VERIFY_REPORTS(client, reason);
    QVERIFY(server.waitForOutput(status == 0 ? " in 6 out 6: " : " in 0 out 0: "));
}

void tst_FerruleClientStore::quietStoreStillDecides()
{
    ServerProgram server(m_authority);
    StoreClient client(server.port(),
                       words("--quiet --require-ok --store system --ca-file") << m_authority.caFile,
                       trustNothing(), m_userData.path());
    QCOMPARE(client.run(), 6);
    VERIFY_REPORTS(client, "the verdict of the system's store is not OK but failed\n");
    QVERIFY(isOneLine(client.errors()));
}

void tst_FerruleClientStore::bundleIsSearchedForTheRoot_data()
{
    QTest::addColumn<QByteArray>("authority");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QByteArray>("judgement");
    const QByteArray known = "ISRG Root X1";
    QTest::newRow("unknown authority")
        << QByteArray("Test Authority") << QByteArray()
        << QByteArray("unknown authority: the bundle holds neither the last certificate nor its "
                      "issuer");
    QTest::newRow("the bundle's root sent along")
        << known << embeddedRoot(QString::fromLatin1(known))
        << QByteArray("accepted: the bundle holds the last certificate, recorded as always");
    QTest::newRow("name of a root of the bundle")
        << known << QByteArray()
        << QByteArray("accepted: the bundle holds an authority with the name of the last "
                      "certificate's issuer, recorded as always");
}

void tst_FerruleClientStore::bundleIsSearchedForTheRoot()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QByteArray, authority);
    QFETCH(QByteArray, sent);
    QFETCH(QByteArray, judgement);
    CertificateSpec spec;
    spec.subject = {{"C", "US"}, {"O", "Internet Security Research Group"}, {"CN", authority}};
    spec.isAuthority = true;
    Authority impostor;
    impostor.root = makeIdentity(spec);
    PemDirectory directory;
    QStringList options;
    if (!sent.isEmpty())
        options << QStringLiteral("-cert_chain")
                << directory.write(QStringLiteral("chain.pem"), sent);
    OpenSslServer server(impostor, options);
    // The second connection finds the store as the first did.
    StoreClient client(server.port(), words("--repeat 2 --store bundle"), trustNothing(),
                       m_userData.path());
    QCOMPARE(client.run(), 0);
    QCOMPARE(client.errors().count("\nstore        bundle: unknown; this store does not judge\n"),
             2);
    QCOMPARE(client.errors().count("\njudgement    " + judgement + CAUTION), 2);
    QVERIFY2(!client.errors().contains("\nverdict      OK\n"), client.errors().constData());
}

void tst_FerruleClientStore::resumedSessionIsJudgedByTheWholeChain()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    CertificateSpec spec;
    spec.commonName = QStringLiteral("Intermediate");
    spec.isAuthority = true;
    Authority intermediate;
    intermediate.root = makeIdentity(spec, &m_authority.root);
    PemDirectory directory;
    OpenSslServer server(
        intermediate, {QStringLiteral("-cert_chain"),
                       directory.writeCertificate(QStringLiteral("chain.pem"), intermediate.root)});
    StoreClient client(server.port(), words("--repeat 2 --store system"), m_authority.caFile,
                       m_userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\nsession      reused\n");
    QCOMPARE(client.errors().count("\nstore        system: OK\n"), 2);
}

void tst_FerruleClientStore::peerWithoutCertificate_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("rows");
    QTest::newRow("system")
        << words("--store system")
        << QByteArray("\nstore        system: failed; the connection has no certificate chain\n");
    QTest::newRow("bundle")
        << words("--store bundle")
        << QByteArray("\nstore        bundle: unknown; the connection has no certificate chain; "
                      "this store does not judge\njudgement    none: there is nothing to look "
                      "for\n");
}

void tst_FerruleClientStore::peerWithoutCertificate()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QStringList, options);
    QFETCH(QByteArray, rows);
    OpenSslServer server(m_authority, words("-tls1_2 -cipher aNULL:@SECLEVEL=0"));
    options << QStringLiteral("--ciphers") << QString::fromLatin1(ANONYMOUS_CIPHERS);
    StoreClient client(server.port(), options, m_authority.caFile, m_userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\ncertificate  none" + rows);
}

void tst_FerruleClientStore::logIsShownWhenVerbose_data()
{
    QTest::addColumn<bool>("verbose");
    QTest::newRow("verbose") << true;
    QTest::newRow("not verbose") << false;
}

void tst_FerruleClientStore::logIsShownWhenVerbose()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(bool, verbose);
    OpenSslServer server(m_authority, words("-tls1_2 -cipher aNULL:@SECLEVEL=0"));
    QStringList options = words("--repeat 2 --store system --ciphers")
                          << QString::fromLatin1(ANONYMOUS_CIPHERS);
    if (verbose)
        options << QStringLiteral("--verbose");
    StoreClient client(server.port(), options, m_authority.caFile, m_userData.path());
    QCOMPARE(client.run(), 0);
    VERIFY_REPORTS(client, "\nstore        system: failed; ");
    QCOMPARE(client.errors().count("ferrule-client: Ferrule failure: "
                                   "[vela::WinCertStore::createWinCryptChain] Could not encode end "
                                   "certificate "),
             verbose ? 2 : 0);
}

QTEST_GUILESS_MAIN(tst_FerruleClientStore)

#include "tst_ferruleclientstore.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    A store with the operating system's own CryptoAPI. Roots of the test go to the "ROOT" store of
    the user who runs it, and out again at the end; Windows asks that user about each.
*/

#include "tests/common/LogStream.h"
#include "tests/common/Wine.h"
#include "tests/store/StoreCertificates.h"
#include "tests/store/platform/ImportedRoots.h"

#include "store/WinCertStore.h"
#include "store/platform/TrustPlatform.h"

#include <QtCore/QProcess>
#include <QtCore/QTemporaryFile>
#include <QtTest/QtTest>

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace test;
using vela::WinCertStore;

namespace {

constexpr int PATIENCE = 20000; // milliseconds
const QByteArray ROOT_NAME = "Ferrule test root ";
constexpr char IMPORT_AND_ABORT[] = "--import-and-abort"; // What a test has this program do.

Identity makeCertificate(const QByteArray& commonName, const Identity* issuer, bool isAuthority,
                         qint64 notAfterOffset = 365 * 86400)
{
    static int serial = 0; // CryptoAPI knows certificates by issuer and serial number.
    CertificateSpec spec;
    spec.serialHex = QByteArray::number(++serial);
    spec.keyType = KeyType::Rsa2048; // Wine refuses some signatures of elliptic curves.
    spec.commonName = QString::fromLatin1(commonName);
    spec.isAuthority = isAuthority;
    spec.notAfterOffset = notAfterOffset;
    return makeIdentity(spec, issuer);
}

//! The store with the chains that the system builds for it.
class OpenStore : public WinCertStore
{
public:
    OpenStore()
        : WinCertStore(nullptr)
    {
    }

    QList<QByteArray> chainFor(const vela::SslCertificateChain& chain)
    {
        const PCCERT_CHAIN_CONTEXT context = createWinCryptChain(chain);
        const vela::SslCertificateChain built = toCertChain(context);
        if (context)
            CertFreeCertificateChain(context);
        QList<QByteArray> encoded;
        for (const vela::SslCertificatePtr& certificate : built)
            encoded.append(vela::SslCertificate::encodeDer(certificate->x509()));
        return encoded;
    }
};

void CALLBACK countCall(void* count, BOOLEAN timedOut)
{
    if (!timedOut)
        ++*static_cast<QAtomicInt*>(count);
}

} // namespace

class WindowsTrustTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void trustedChainIsOk();
    void trustedRootItselfIsOk();
    void untrustedSelfSignedChain();
    void untrustedSelfSignedCertificateItself();
    void expiredSelfSignedCertificateIsSelfSigned();
    void expiredCertificateOfATrustedRoot();
    void certificateNotYetValidCountsAsExpired();
    void unknownIssuerFails();
    void forgedSignatureFails();
    void emptyChainFails();
    void laterChainMayLackItsIntermediate();
    void chainIsListedFromEndToRoot();
    void engineWithTheAdditionalStoreIsMade();
    void importedRootIsInTheSystemStore();
    void rootImportedTwiceIsNoFailure();
    void changeOfTheSystemStoreIsAnnounced();
    void signalledEventCallsTheRegisteredWait();
    void namesOfRootsFitIntoACertificate();
    void rootOfAnAbortedTestIsRemoved();
    void nullHandlesAreRefused();
    void refusalsCarryTheirReason();
    void storesComeAndGo();

private:
    QByteArray otherRootName() const { return m_rootName + ", the other"; }

    QByteArray m_rootName;
    Identity m_root;
    Identity m_middle;
    Identity m_leaf;
    std::unique_ptr<ImportedRoots> m_imported;
    OpenStore* m_store = nullptr;
};

void WindowsTrustTest::initTestCase()
{
    // A name that no earlier run has left behind.
    ImportedRoots::removeLeftovers(ROOT_NAME);
    m_rootName = ROOT_NAME + QUuid::createUuid().toByteArray(QUuid::Id128);
    m_root = makeCertificate(m_rootName, nullptr, true);
    m_middle = makeCertificate("middle", &m_root, true);
    m_leaf = makeCertificate("leaf", &m_middle, false);
    m_imported = std::make_unique<ImportedRoots>();
    m_imported->expect(m_root.der());
    QVERIFY(!ImportedRoots::contains(m_root.der()));
    // Stays until the process ends, as hosts are told to have it: the wait of a store that has gone
    // calls into it when a later event gets the handle of its own.
    m_store = new OpenStore;
    QVERIFY(m_store->importSystemRootCert(wrap(m_root)));
    // What the notification brings about, where there is one.
    QVERIFY(QMetaObject::invokeMethod(m_store, "resetChainEngine"));
}

void WindowsTrustTest::cleanupTestCase()
{
    m_imported.reset();
    QVERIFY(!ImportedRoots::contains(m_root.der()));
}

void WindowsTrustTest::trustedChainIsOk()
{
    QCOMPARE(m_store->verify(wrapAll({m_leaf, m_middle, m_root})), vela::VerifyOk);
}

void WindowsTrustTest::trustedRootItselfIsOk()
{
    QCOMPARE(m_store->verify(wrapAll({m_root})), vela::VerifyOk);
}

void WindowsTrustTest::untrustedSelfSignedChain()
{
    const Identity root = makeCertificate("other root", nullptr, true);
    const Identity leaf = makeCertificate("leaf", &root, false);
    QCOMPARE(m_store->verify(wrapAll({leaf, root})), vela::VerifySelfSigned);
}

void WindowsTrustTest::untrustedSelfSignedCertificateItself()
{
    const Identity root = makeCertificate("other root", nullptr, true);
    QCOMPARE(m_store->verify(wrapAll({root})), vela::VerifySelfSigned);
}

void WindowsTrustTest::expiredSelfSignedCertificateIsSelfSigned()
{
    const Identity root = makeCertificate("expired root", nullptr, true, -3600);
    QCOMPARE(m_store->verify(wrapAll({root})), vela::VerifySelfSigned);
}

void WindowsTrustTest::expiredCertificateOfATrustedRoot()
{
    const Identity leaf = makeCertificate("leaf", &m_root, false, -3600);
    QCOMPARE(m_store->verify(wrapAll({leaf, m_root})), vela::VerifyExpired);
}

void WindowsTrustTest::certificateNotYetValidCountsAsExpired()
{
    CertificateSpec spec;
    spec.keyType = KeyType::Rsa2048;
    spec.notBeforeOffset = 3600;
    QCOMPARE(m_store->verify(wrapAll({makeIdentity(spec, &m_root)})), vela::VerifyExpired);
}

void WindowsTrustTest::unknownIssuerFails()
{
    const Identity root = makeCertificate("root that nobody shows", nullptr, true);
    const Identity leaf = makeCertificate("leaf", &root, false);
    QCOMPARE(m_store->verify(wrapAll({leaf})), vela::VerifyFailed);
}

void WindowsTrustTest::forgedSignatureFails()
{
    // Issued by the name of the trusted root, but not with its key.
    const Identity forger = makeCertificate(m_rootName, nullptr, true);
    const Identity leaf = makeCertificate("leaf", &forger, false);
    QCOMPARE(m_store->verify(wrapAll({leaf})), vela::VerifyFailed);
}

void WindowsTrustTest::emptyChainFails()
{
    QCOMPARE(m_store->verify(vela::SslCertificateChain()), vela::VerifyFailed);
}

void WindowsTrustTest::laterChainMayLackItsIntermediate()
{
    const Identity middle = makeCertificate("middle of its own", &m_root, true);
    const Identity leaf = makeCertificate("leaf", &middle, false);
    const Identity sibling = makeCertificate("sibling", &middle, false);
    QCOMPARE(m_store->verify(wrapAll({sibling})), vela::VerifyFailed);
    QCOMPARE(m_store->verify(wrapAll({leaf, middle, m_root})), vela::VerifyOk);
    QCOMPARE(m_store->verify(wrapAll({sibling})), vela::VerifyOk);
}

void WindowsTrustTest::chainIsListedFromEndToRoot()
{
    QCOMPARE(m_store->chainFor(wrapAll({m_leaf, m_root, m_middle})),
             (QList<QByteArray>{m_leaf.der(), m_middle.der(), m_root.der()}));
}

void WindowsTrustTest::engineWithTheAdditionalStoreIsMade()
{
    const LogStream log;
    QVERIFY(QMetaObject::invokeMethod(m_store, "resetChainEngine"));
    QCOMPARE(log.text(), QString());
}

void WindowsTrustTest::importedRootIsInTheSystemStore()
{
    QVERIFY(ImportedRoots::contains(m_root.der()));
    QVERIFY(!ImportedRoots::contains(m_middle.der()));
    QCOMPARE(m_store->count(), 0);
}

void WindowsTrustTest::rootImportedTwiceIsNoFailure()
{
    const LogStream log;
    QVERIFY(m_store->importSystemRootCert(wrap(m_root)));
    QCOMPARE(log.text(), QString());
}

void WindowsTrustTest::changeOfTheSystemStoreIsAnnounced()
{
    if (isWine())
        QSKIP("Wine answers CERT_STORE_CTRL_NOTIFY_CHANGE with success and never notifies");
    const Identity root = makeCertificate(otherRootName(), nullptr, true);
    const auto whole = wrapAll({makeCertificate("leaf", &root, false), root});
    QCOMPARE(m_store->verify(whole), vela::VerifySelfSigned);
    QSignalSpy updated(m_store, &WinCertStore::systemUpdated);
    m_imported->expect(root.der());
    QVERIFY(m_store->importSystemRootCert(wrap(root)));
    QVERIFY(updated.size() > 0 || updated.wait(PATIENCE));
    QCOMPARE(m_store->verify(whole), vela::VerifyOk);
}

void WindowsTrustTest::signalledEventCallsTheRegisteredWait()
{
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    static QAtomicInt calls; // The wait is not taken back.
    const HANDLE event = platform.createEvent(FALSE, FALSE);
    QVERIFY(event);
    QCOMPARE(platform.pollEvent(event), DWORD(WAIT_TIMEOUT));
    SetEvent(event);
    QCOMPARE(platform.pollEvent(event), DWORD(WAIT_OBJECT_0));
    QCOMPARE(platform.pollEvent(event), DWORD(WAIT_TIMEOUT));
    HANDLE wait = nullptr;
    QVERIFY(platform.registerWait(&wait, event, countCall, &calls, INFINITE, 0));
    QVERIFY(wait);
    for (int i = 1; i <= 3; ++i) {
        SetEvent(event);
        QTRY_COMPARE_WITH_TIMEOUT(calls.loadAcquire(), i, PATIENCE);
    }
}

//! The one for which this matters cannot be made where its test is skipped.
void WindowsTrustTest::namesOfRootsFitIntoACertificate()
{
    constexpr int MAX_COMMON_NAME = 64;
    QVERIFY(otherRootName().size() <= MAX_COMMON_NAME);
    QVERIFY(!makeCertificate(otherRootName(), nullptr, true).der().isEmpty());
}

void WindowsTrustTest::rootOfAnAbortedTestIsRemoved()
{
    const Identity root = makeCertificate(m_rootName + ", aborted", nullptr, true);
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write(root.der());
    file.close();
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(),
                {QString::fromLatin1(IMPORT_AND_ABORT), file.fileName()});
    QVERIFY(other.waitForFinished(2 * PATIENCE));
    QVERIFY2(other.readAllStandardOutput().contains("imported"), "it did not get that far");
    QVERIFY(other.exitStatus() == QProcess::CrashExit || other.exitCode() != 0);
    QVERIFY(!ImportedRoots::contains(root.der()));
}

void WindowsTrustTest::nullHandlesAreRefused()
{
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    const HANDLE event = platform.createEvent(FALSE, FALSE);
    const auto isRefused = [&platform](BOOL result) {
        const DWORD error = platform.lastError();
        SetLastError(ERROR_SUCCESS);
        return !result && error == ERROR_INVALID_HANDLE;
    };
    HANDLE wait = nullptr;
    QVERIFY(isRefused(platform.controlStore(nullptr, 2, CERT_STORE_CTRL_RESYNC, &event)));
    QVERIFY(isRefused(platform.registerWait(&wait, nullptr, countCall, nullptr, INFINITE, 0)));
    QVERIFY(isRefused(platform.pollEvent(nullptr) != WAIT_FAILED));
    QVERIFY(isRefused(platform.closeHandle(nullptr)));
    const QByteArray der = m_leaf.der();
    const PCCERT_CONTEXT context = platform.createCertificateContext(
        X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.constData()), DWORD(der.size()));
    PCCERT_CONTEXT added = nullptr;
    QVERIFY(isRefused(
        platform.addCertificateContextToStore(nullptr, context, CERT_STORE_ADD_ALWAYS, &added)));
    QVERIFY(!added);
    QVERIFY(platform.freeCertificateContext(context));
    QVERIFY(platform.closeStore(nullptr, CERT_CLOSE_STORE_FORCE_FLAG));
    QVERIFY(platform.freeCertificateContext(nullptr));
    QVERIFY(platform.closeHandle(event));
}

void WindowsTrustTest::refusalsCarryTheirReason()
{
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    const BYTE noise[] = {0x30, 0x01, 0x00};
    QVERIFY(!platform.createCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, noise,
                                               sizeof noise));
    QVERIFY(platform.lastError() != ERROR_SUCCESS);
    QVERIFY(!platform.addEncodedCertificateToSystemStore(L"ROOT", noise, sizeof noise));
    QVERIFY(platform.lastError() != ERROR_SUCCESS);
}

//! The last thing, for the reason given above: what a store has closed, no other may find closed.
void WindowsTrustTest::storesComeAndGo()
{
    for (int i = 0; i < 20; ++i) {
        OpenStore other;
        QCOMPARE(other.verify(wrapAll({m_leaf, m_middle})), vela::VerifyOk);
        QCOMPARE(m_store->verify(wrapAll({m_leaf, m_middle})), vela::VerifyOk);
    }
}

namespace {

//! Imports the root in the file \a path, and does not live to remove it.
int importAndAbort(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray der = file.readAll();
    ImportedRoots imported;
    imported.expect(der);
    if (vela::systemTrustPlatform().addEncodedCertificateToSystemStore(
            L"ROOT", reinterpret_cast<const BYTE*>(der.constData()), DWORD(der.size()))
        && ImportedRoots::contains(der)) {
        std::puts("imported");
        std::fflush(stdout);
    }
    std::abort();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String(IMPORT_AND_ABORT))
        return importAndAbort(arguments.value(2));
    WindowsTrustTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_windowstrust.moc"

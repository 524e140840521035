// SPDX-License-Identifier: BSD-3-Clause
#include "StoreCertificates.h"
#include "platform/TrustedRoots.h"

#include "tests/common/LogStream.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>

using namespace test;
using vela::WinCertStore;

namespace {

constexpr int PATIENCE = 20000; // milliseconds

Identity makeCertificate(const char* commonName, const Identity* issuer, bool isAuthority,
                         qint64 notAfterOffset = 365 * 86400)
{
    CertificateSpec spec;
    spec.commonName = QString::fromLatin1(commonName);
    spec.isAuthority = isAuthority;
    spec.notAfterOffset = notAfterOffset;
    return makeIdentity(spec, issuer);
}

} // namespace

/*
    A store with the system's own trust platform, which is made to see a bundle of the test.
*/
class WinCertStoreSystemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void trustedChainIsOk();
    void trustedRootItselfIsOk();
    void untrustedSelfSignedChain();
    void expiredCertificateOfATrustedRoot();
    void certificateNotYetValidCountsAsExpired();
    void unknownIssuerFails();
    void emptyChainFails();
    void laterChainMayLackItsIntermediate();
    void changeOfTheBundleReachesTheStore();
    void changeReachesAStoreOnAnotherThread();
    void importedRootIsTrusted();
    void refusedImportIsLogged();

private:
    Identity m_root;
    Identity m_middle;
    Identity m_leaf;
    std::unique_ptr<TrustedRoots> m_roots;
    std::unique_ptr<WinCertStore> m_store;
};

void WinCertStoreSystemTest::initTestCase()
{
    m_root = makeCertificate("root", nullptr, true);
    m_middle = makeCertificate("middle", &m_root, true);
    m_leaf = makeCertificate("leaf", &m_middle, false);
}

void WinCertStoreSystemTest::init()
{
    m_roots = std::make_unique<TrustedRoots>();
    m_roots->setRoots({m_root.der()});
    m_store = std::make_unique<WinCertStore>(nullptr);
}

void WinCertStoreSystemTest::cleanup()
{
    m_store.reset();
    m_roots.reset();
}

void WinCertStoreSystemTest::trustedChainIsOk()
{
    QCOMPARE(m_store->verify(wrapAll({m_leaf, m_middle, m_root})), vela::VerifyOk);
}

void WinCertStoreSystemTest::trustedRootItselfIsOk()
{
    QCOMPARE(m_store->verify(wrapAll({m_root})), vela::VerifyOk);
}

void WinCertStoreSystemTest::untrustedSelfSignedChain()
{
    const Identity root = makeCertificate("other root", nullptr, true);
    const Identity leaf = makeCertificate("leaf", &root, false);
    QCOMPARE(m_store->verify(wrapAll({leaf, root})), vela::VerifySelfSigned);
    QCOMPARE(m_store->verify(wrapAll({root})), vela::VerifySelfSigned);
}

void WinCertStoreSystemTest::expiredCertificateOfATrustedRoot()
{
    const Identity leaf = makeCertificate("leaf", &m_root, false, -3600);
    QCOMPARE(m_store->verify(wrapAll({leaf, m_root})), vela::VerifyExpired);
}

void WinCertStoreSystemTest::certificateNotYetValidCountsAsExpired()
{
    CertificateSpec spec;
    spec.notBeforeOffset = 3600;
    QCOMPARE(m_store->verify(wrapAll({makeIdentity(spec, &m_root)})), vela::VerifyExpired);
}

void WinCertStoreSystemTest::unknownIssuerFails()
{
    QCOMPARE(m_store->verify(wrapAll({m_leaf})), vela::VerifyFailed);
}

void WinCertStoreSystemTest::emptyChainFails()
{
    QCOMPARE(m_store->verify(vela::SslCertificateChain()), vela::VerifyFailed);
}

void WinCertStoreSystemTest::laterChainMayLackItsIntermediate()
{
    const Identity sibling = makeCertificate("sibling", &m_middle, false);
    QCOMPARE(m_store->verify(wrapAll({sibling})), vela::VerifyFailed);
    QCOMPARE(m_store->verify(wrapAll({m_leaf, m_middle, m_root})), vela::VerifyOk);
    QCOMPARE(m_store->verify(wrapAll({sibling})), vela::VerifyOk);
}

void WinCertStoreSystemTest::changeOfTheBundleReachesTheStore()
{
    const auto whole = wrapAll({m_leaf, m_middle, m_root});
    QCOMPARE(m_store->verify(whole), vela::VerifyOk);
    QSignalSpy updated(m_store.get(), &WinCertStore::systemUpdated);
    m_roots->setRoots({});
    QVERIFY(updated.size() > 0 || updated.wait(PATIENCE));
    QCOMPARE(m_store->verify(whole), vela::VerifySelfSigned);

    updated.clear(); // The store has asked for the next notification.
    m_roots->setRoots({m_root.der()});
    QVERIFY(updated.size() > 0 || updated.wait(PATIENCE));
    QCOMPARE(m_store->verify(whole), vela::VerifyOk);
}

void WinCertStoreSystemTest::changeReachesAStoreOnAnotherThread()
{
    QThread thread;
    QThread* emittingThread = nullptr;
    connect(
        m_store.get(), &WinCertStore::systemUpdated, m_store.get(),
        [&] {
            emittingThread = QThread::currentThread();
            thread.quit();
        },
        Qt::DirectConnection);
    m_store->moveToThread(&thread);
    thread.start();
    m_roots->setRoots({});
    const bool ended = thread.wait(PATIENCE);
    thread.quit();
    thread.wait();
    m_store.reset(); // Before the thread to which it belongs now.
    QVERIFY(ended);
    QCOMPARE(emittingThread, &thread);
}

void WinCertStoreSystemTest::importedRootIsTrusted()
{
    const Identity root = makeCertificate("imported", nullptr, true);
    const auto whole = wrapAll({makeCertificate("leaf", &root, false), root});
    QCOMPARE(m_store->verify(whole), vela::VerifySelfSigned);
    QSignalSpy updated(m_store.get(), &WinCertStore::systemUpdated);
    QVERIFY(m_store->importSystemRootCert(wrap(root)));
    QVERIFY(updated.size() > 0 || updated.wait(PATIENCE));
    QCOMPARE(m_store->verify(whole), vela::VerifyOk);
    QCOMPARE(m_store->count(), 0);
}

void WinCertStoreSystemTest::refusedImportIsLogged()
{
    QFile obstacle(m_roots->path(QStringLiteral("data"))); // Where the user's directory would be.
    QVERIFY(obstacle.open(QIODevice::WriteOnly));
    const LogStream log;
    QVERIFY(!m_store->importSystemRootCert(wrap(m_root)));
    const QRegularExpression line(QStringLiteral(
        "^Ferrule failure: \\[vela::WinCertStore::importSystemRootCert\\] [1-9][0-9]*: \n$"));
    QVERIFY2(line.match(log.text()).hasMatch(), qPrintable(log.text()));
}

QTEST_GUILESS_MAIN(WinCertStoreSystemTest)
#include "tst_wincertstoresystem.moc"

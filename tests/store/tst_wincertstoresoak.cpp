// SPDX-License-Identifier: BSD-3-Clause

/*
    A store that verifies all the time while the system's roots change all the time.
*/

#include "StoreCertificates.h"
#include "platform/TrustedRoots.h"

#include "store/platform/linux/LinuxTrustPlatform.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <chrono>
#include <future>
#include <thread>

using namespace test;
using vela::WinCertStore;

namespace {

constexpr int VERIFICATIONS = 10000;
constexpr int CHANGES_OF_A_BURST = 19; // Odd, so that the roots are others after a burst.
constexpr int BURSTS = 10;
constexpr std::chrono::milliseconds BETWEEN_CHANGES(50);
constexpr int PATIENCE = 20000; // milliseconds

/*! The system's platform, which counts what it hands out and gets back. */
class CountingPlatform : public vela::LinuxTrustPlatform
{
public:
    struct Count
    {
        int handles = 0; //!< Events and waits.
        int stores = 0;
        int engines = 0;
        int contexts = 0;
        int chains = 0;
    };

    CountingPlatform() { vela::TrustPlatform::setForTesting(this); }
    ~CountingPlatform() override { vela::TrustPlatform::setForTesting(nullptr); }

    const Count& count() const { return m_count; }

    HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) override
    {
        return counted(m_count.stores, LinuxTrustPlatform::openSystemStore(provider, name));
    }
    HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType, HCRYPTPROV_LEGACY provider,
                         DWORD flags, const void* parameter) override
    {
        return counted(m_count.stores, LinuxTrustPlatform::openStore(storeProvider, encodingType,
                                                                     provider, flags, parameter));
    }
    BOOL closeStore(HCERTSTORE store, DWORD flags) override
    {
        --m_count.stores;
        return LinuxTrustPlatform::closeStore(store, flags);
    }
    HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) override
    {
        return counted(m_count.handles,
                       LinuxTrustPlatform::createEvent(manualReset, initiallySignalled));
    }
    BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback, void* context,
                      DWORD milliseconds, DWORD flags) override
    {
        ++m_count.handles;
        return LinuxTrustPlatform::registerWait(waitHandle, event, callback, context, milliseconds,
                                                flags);
    }
    BOOL closeHandle(HANDLE handle) override
    {
        --m_count.handles;
        return LinuxTrustPlatform::closeHandle(handle);
    }
    BOOL createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine) override
    {
        ++m_count.engines;
        return LinuxTrustPlatform::createChainEngine(config, engine);
    }
    void freeChainEngine(HCERTCHAINENGINE engine) override
    {
        --m_count.engines;
        LinuxTrustPlatform::freeChainEngine(engine);
    }
    PCCERT_CONTEXT createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD length) override
    {
        return counted(m_count.contexts,
                       LinuxTrustPlatform::createCertificateContext(encodingType, encoded, length));
    }
    BOOL freeCertificateContext(PCCERT_CONTEXT context) override
    {
        --m_count.contexts;
        return LinuxTrustPlatform::freeCertificateContext(context);
    }
    BOOL getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context, FILETIME* time,
                             HCERTSTORE additionalStore, CERT_CHAIN_PARA* para, DWORD flags,
                             void* reserved, PCCERT_CHAIN_CONTEXT* chainContext) override
    {
        ++m_count.chains;
        return LinuxTrustPlatform::getCertificateChain(engine, context, time, additionalStore, para,
                                                       flags, reserved, chainContext);
    }
    void freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext) override
    {
        --m_count.chains;
        LinuxTrustPlatform::freeCertificateChain(chainContext);
    }

private:
    template <typename Handle>
    static Handle counted(int& count, Handle handle)
    {
        count += handle ? 1 : 0;
        return handle;
    }

    Count m_count;
};

int entriesOf(const char* directory)
{
    return QDir(QString::fromLatin1(directory))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
        .size();
}

int descriptorCount()
{
    return entriesOf("/proc/self/fd");
}

int threadCount()
{
    return entriesOf("/proc/self/task");
}

} // namespace

class WinCertStoreSoakTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void changesDuringVerificationsAreNeitherLostNorInvented();

private:
    struct Tally
    {
        int verifications = 0;
        int changes = 0;
        int updates = 0;
        bool isTrusted = false; //!< After the last change.
    };

    vela::CertVerify verify(WinCertStore& store, Tally& tally) const;
    void runBurst(WinCertStore& store, TrustedRoots& roots, Tally& tally) const;
    void settle(WinCertStore& store, Tally& tally) const;

    Identity m_root;
    Identity m_middle;
    vela::SslCertificateChain m_chain;
};

void WinCertStoreSoakTest::initTestCase()
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Root");
    m_root = makeIdentity(spec);
    spec.commonName = QStringLiteral("Middle");
    m_middle = makeIdentity(spec, &m_root);
    m_chain = wrapAll({makeIdentity(CertificateSpec(), &m_middle), m_middle, m_root});
}

//! Verifies once and lets the store's events through, as in a busy host.
vela::CertVerify WinCertStoreSoakTest::verify(WinCertStore& store, Tally& tally) const
{
    const vela::CertVerify verdict = store.verify(m_chain);
    ++tally.verifications;
    QCoreApplication::processEvents();
    return verdict;
}

//! Each change puts another file in the bundle's place; every second makes the root trusted.
void WinCertStoreSoakTest::runBurst(WinCertStore& store, TrustedRoots& roots, Tally& tally) const
{
    const bool wasTrusted = tally.isTrusted;
    auto changes = std::async(std::launch::async, [&, wasTrusted] {
        bool isTrusted = wasTrusted;
        for (int i = 0; i < CHANGES_OF_A_BURST; ++i) {
            isTrusted = !isTrusted;
            roots.setBundle(isTrusted ? m_root.certificatePem() : QByteArray());
            std::this_thread::sleep_for(BETWEEN_CHANGES);
        }
        return isTrusted;
    });
    while (changes.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        const vela::CertVerify verdict = verify(store, tally);
        QVERIFY(verdict == vela::VerifyOk || verdict == vela::VerifySelfSigned);
    }
    tally.isTrusted = changes.get();
    tally.changes += CHANGES_OF_A_BURST;
}

//! Verifies until the verdict is that of the last change.
void WinCertStoreSoakTest::settle(WinCertStore& store, Tally& tally) const
{
    const vela::CertVerify expected = tally.isTrusted ? vela::VerifyOk : vela::VerifySelfSigned;
    QElapsedTimer timer;
    timer.start();
    while (verify(store, tally) != expected && timer.elapsed() < PATIENCE) {
    }
    QCOMPARE(verify(store, tally), expected);
}

void WinCertStoreSoakTest::changesDuringVerificationsAreNeitherLostNorInvented()
{
    TrustedRoots roots;
    const int descriptors = descriptorCount();
    const int threads = threadCount();
    CountingPlatform platform;
    Tally tally;
    {
        WinCertStore store(nullptr);
        const int openDescriptors = descriptorCount();
        connect(&store, &WinCertStore::systemUpdated, [&tally] { ++tally.updates; });
        for (int burst = 0; burst < BURSTS || tally.verifications < VERIFICATIONS; ++burst) {
            const Tally before = tally;
            runBurst(store, roots, tally);
            settle(store, tally);
            QVERIFY(tally.updates > before.updates);
            QVERIFY(tally.updates - before.updates <= tally.changes - before.changes);
        }
        QCOMPARE(descriptorCount(), openDescriptors);
        QCOMPARE(platform.count().handles, 2);
        QCOMPARE(platform.count().stores, 2);
        QCOMPARE(platform.count().engines, 1);
        QCOMPARE(platform.count().chains, 0);
        QCOMPARE(platform.count().contexts, 0);
    }
    qInfo("%d verifications, %d changes, %d updates", tally.verifications, tally.changes,
          tally.updates);
    QCOMPARE(platform.count().handles, 0);
    QCOMPARE(platform.count().stores, 0);
    QCOMPARE(platform.count().engines, 0);
    QCOMPARE(descriptorCount(), descriptors);
    // The kernel lists a thread for a moment after it has been joined.
    QTRY_COMPARE(threadCount(), threads);
}

QTEST_GUILESS_MAIN(WinCertStoreSoakTest)
#include "tst_wincertstoresoak.moc"

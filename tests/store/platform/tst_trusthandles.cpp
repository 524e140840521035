// SPDX-License-Identifier: BSD-3-Clause

/*
    The handles of the Linux trust platform, and what it says when it is used wrongly.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "SignalCounter.h"
#include "TrustedRoots.h"

#include "store/validation/DecodedCertificate.h"

#include <QtTest/QtTest>

#include <atomic>
#include <thread>

using test::leafPlan;
using test::PlannedCertificate;

namespace {

vela::TrustPlatform& platform()
{
    return vela::systemTrustPlatform();
}

HCERTSTORE openMemoryStore()
{
    return platform().openStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING, 0,
                                CERT_STORE_CREATE_NEW_FLAG, nullptr);
}

PCCERT_CONTEXT contextOf(const QByteArray& der, DWORD encoding = X509_ASN_ENCODING)
{
    return platform().createCertificateContext(
        encoding, reinterpret_cast<const BYTE*>(der.constData()), DWORD(der.size()));
}

DWORD engineError(CERT_CHAIN_ENGINE_CONFIG* config)
{
    HCERTCHAINENGINE engine = nullptr;
    if (!platform().createChainEngine(config, &engine))
        return platform().lastError();
    platform().freeChainEngine(engine);
    return ERROR_SUCCESS;
}

//! A callback that says when it runs, and ends when it is told to.
struct SlowCallback
{
    std::atomic<bool> isRunning{false};
    std::atomic<bool> mayEnd{false};
    std::atomic<bool> hasEnded{false};

    static void run(void* context, BOOLEAN)
    {
        auto* const self = static_cast<SlowCallback*>(context);
        self->isRunning = true;
        while (!self->mayEnd)
            std::this_thread::yield();
        self->hasEnded = true;
    }
};

} // namespace

class TrustHandlesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void systemPlatformIsTheCurrentOne();
    void autoResetEventIsTakenOnce();
    void manualResetEventStays();
    void registeredWaitTakesTheEvent();
    void closedWaitDoesNotCallBack();
    void closingAWaitLetsItsCallbackEnd();
    void wrongWaitsAreRefused();
    void wrongHandlesAreRefused();
    void unknownStoresAreNotOpened();
    void contextHoldsTheCertificate();
    void garbageMakesNoContext();
    void storeHasACopyOfItsOwn();
    void closingAStoreLeavesContextsAlone();
    void addingHandsOutAContextOfItsOwn();
    void dispositionDecidesWhatIsThereAlready();
    void systemStoreIsNotAddedTo();
    void engineOutlivesItsStore();
    void wrongEngineConfigurationsAreRefused();
    void engineWithoutStoreIsMade();
    void wrongPathQuestionsAreRefused();
    void errorsAreTheThreadsOwn();
    void messagesAreEmpty();
    void certificatesUsedLastAreKept();
    void largeCertificateIsNotKept();
};

void TrustHandlesTest::systemPlatformIsTheCurrentOne()
{
    QCOMPARE(&vela::TrustPlatform::current(), &platform());
    QCOMPARE(vela::TrustPlatform::setForTesting(nullptr), nullptr);
}

void TrustHandlesTest::autoResetEventIsTakenOnce()
{
    const HANDLE event = platform().createEvent(FALSE, TRUE);
    QCOMPARE(platform().pollEvent(event), DWORD(WAIT_OBJECT_0));
    QCOMPARE(platform().pollEvent(event), DWORD(WAIT_TIMEOUT));
    QVERIFY(platform().closeHandle(event));
}

void TrustHandlesTest::manualResetEventStays()
{
    const HANDLE event = platform().createEvent(TRUE, TRUE);
    QCOMPARE(platform().pollEvent(event), DWORD(WAIT_OBJECT_0));
    QCOMPARE(platform().pollEvent(event), DWORD(WAIT_OBJECT_0));
    QVERIFY(platform().closeHandle(event));
}

void TrustHandlesTest::registeredWaitTakesTheEvent()
{
    test::SignalCounter counter(true);
    QVERIFY(counter.waitFor(1));
    QCOMPARE(platform().pollEvent(counter.event()), DWORD(WAIT_TIMEOUT));
    QCOMPARE(counter.count(), 1);
}

void TrustHandlesTest::closedWaitDoesNotCallBack()
{
    SlowCallback callback;
    const HANDLE event = platform().createEvent(FALSE, FALSE);
    HANDLE wait = nullptr;
    QVERIFY(platform().registerWait(&wait, event, &SlowCallback::run, &callback, INFINITE, 0));
    QVERIFY(platform().closeHandle(wait));
    QVERIFY(!callback.isRunning);
    QVERIFY(platform().closeHandle(event));
}

void TrustHandlesTest::closingAWaitLetsItsCallbackEnd()
{
    SlowCallback callback;
    const HANDLE event = platform().createEvent(FALSE, TRUE);
    HANDLE wait = nullptr;
    QVERIFY(platform().registerWait(&wait, event, &SlowCallback::run, &callback, INFINITE, 0));
    QTRY_VERIFY(callback.isRunning);
    std::thread releaser([&callback] { callback.mayEnd = true; });
    QVERIFY(platform().closeHandle(event));
    QVERIFY(platform().closeHandle(wait));
    QVERIFY(callback.hasEnded);
    releaser.join();
}

void TrustHandlesTest::wrongWaitsAreRefused()
{
    SlowCallback callback;
    const HANDLE event = platform().createEvent(FALSE, FALSE);
    HANDLE wait = nullptr;
    QVERIFY(!platform().registerWait(&wait, nullptr, &SlowCallback::run, &callback, INFINITE, 0));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_HANDLE));
    QVERIFY(!platform().registerWait(&wait, event, nullptr, &callback, INFINITE, 0));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_PARAMETER));
    QVERIFY(!platform().registerWait(&wait, event, &SlowCallback::run, &callback, 100, 0));
    QCOMPARE(platform().lastError(), DWORD(ERROR_CALL_NOT_IMPLEMENTED));
    QVERIFY(!wait);
    QVERIFY(platform().closeHandle(event));
}

void TrustHandlesTest::wrongHandlesAreRefused()
{
    QCOMPARE(platform().pollEvent(nullptr), DWORD(WAIT_FAILED));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_HANDLE));
    QVERIFY(!platform().closeHandle(nullptr));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_HANDLE));
    QVERIFY(platform().closeStore(nullptr, CERT_CLOSE_STORE_FORCE_FLAG));
    QVERIFY(platform().freeCertificateContext(nullptr));
    platform().freeChainEngine(nullptr);
    platform().freeCertificateChain(nullptr);
}

void TrustHandlesTest::unknownStoresAreNotOpened()
{
    QVERIFY(!platform().openSystemStore(0, L"MY"));
    QCOMPARE(platform().lastError(), DWORD(ERROR_FILE_NOT_FOUND));
    QVERIFY(!platform().openSystemStore(0, nullptr));
    QVERIFY(!platform().openStore(nullptr, X509_ASN_ENCODING, 0, 0, nullptr));
    QCOMPARE(platform().lastError(), DWORD(ERROR_FILE_NOT_FOUND));
}

void TrustHandlesTest::contextHoldsTheCertificate()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    QByteArray copy = der;
    const PCCERT_CONTEXT context = contextOf(copy, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING);
    copy.fill('\0');
    QVERIFY(context);
    QCOMPARE(context->dwCertEncodingType, DWORD(X509_ASN_ENCODING));
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(context->pbCertEncoded),
                        int(context->cbCertEncoded)),
             der);
    QVERIFY(platform().freeCertificateContext(context));
}

void TrustHandlesTest::garbageMakesNoContext()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    QVERIFY(!contextOf("garbage"));
    QCOMPARE(platform().lastError(), DWORD(CRYPT_E_ASN1_ERROR));
    QVERIFY(!contextOf(der.left(der.size() - 1)));
    QVERIFY(!contextOf(der + "x"));
    QVERIFY(!contextOf(der, PKCS_7_ASN_ENCODING));
    QCOMPARE(platform().lastError(), DWORD(E_INVALIDARG));
    QVERIFY(!platform().createCertificateContext(X509_ASN_ENCODING, nullptr, 0));
    QCOMPARE(platform().lastError(), DWORD(E_INVALIDARG));
}

void TrustHandlesTest::storeHasACopyOfItsOwn()
{
    const HCERTSTORE store = openMemoryStore();
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    const PCCERT_CONTEXT context = contextOf(der);
    QVERIFY(platform().addCertificateContextToStore(store, context, CERT_STORE_ADD_NEW, nullptr));
    QVERIFY(platform().freeCertificateContext(context));
    const PCCERT_CONTEXT again = contextOf(der);
    QVERIFY(!platform().addCertificateContextToStore(store, again, CERT_STORE_ADD_NEW, nullptr));
    QCOMPARE(platform().lastError(), DWORD(CRYPT_E_EXISTS));
    QVERIFY(platform().freeCertificateContext(again));
    QVERIFY(platform().closeStore(store, CERT_CLOSE_STORE_FORCE_FLAG));
}

void TrustHandlesTest::closingAStoreLeavesContextsAlone()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    const HCERTSTORE one = openMemoryStore();
    const HCERTSTORE other = openMemoryStore();
    const PCCERT_CONTEXT context = contextOf(der);
    for (const HCERTSTORE store : {one, other, one}) {
        QVERIFY(platform().addCertificateContextToStore(store, context,
                                                        CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
    }
    QVERIFY(platform().closeStore(one, CERT_CLOSE_STORE_FORCE_FLAG));
    QVERIFY(platform().closeStore(other, CERT_CLOSE_STORE_FORCE_FLAG));
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(context->pbCertEncoded),
                        int(context->cbCertEncoded)),
             der);
    QVERIFY(platform().freeCertificateContext(context));
}

void TrustHandlesTest::addingHandsOutAContextOfItsOwn()
{
    const HCERTSTORE store = openMemoryStore();
    const PCCERT_CONTEXT context =
        contextOf(PlannedCertificate(leafPlan(QStringLiteral("one"))).der());
    PCCERT_CONTEXT added = nullptr;
    QVERIFY(platform().addCertificateContextToStore(store, context, CERT_STORE_ADD_ALWAYS, &added));
    QVERIFY(platform().freeCertificateContext(context));
    QVERIFY(platform().closeStore(store, 0));
    QVERIFY(added && added->cbCertEncoded > 0);
    QVERIFY(platform().freeCertificateContext(added));
}

void TrustHandlesTest::dispositionDecidesWhatIsThereAlready()
{
    const HCERTSTORE store = openMemoryStore();
    const PCCERT_CONTEXT context =
        contextOf(PlannedCertificate(leafPlan(QStringLiteral("one"))).der());
    const auto add = [&](DWORD disposition) {
        return platform().addCertificateContextToStore(store, context, disposition, nullptr);
    };
    QVERIFY(add(CERT_STORE_ADD_NEW));
    QVERIFY(!add(CERT_STORE_ADD_NEW));
    QCOMPARE(platform().lastError(), DWORD(CRYPT_E_EXISTS));
    QVERIFY(add(CERT_STORE_ADD_USE_EXISTING));
    QVERIFY(add(CERT_STORE_ADD_REPLACE_EXISTING));
    QVERIFY(!add(0));
    QCOMPARE(platform().lastError(), DWORD(E_INVALIDARG));
    QVERIFY(!platform().addCertificateContextToStore(store, nullptr, CERT_STORE_ADD_NEW, nullptr));
    QVERIFY(
        !platform().addCertificateContextToStore(nullptr, context, CERT_STORE_ADD_NEW, nullptr));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_HANDLE));
    QVERIFY(platform().freeCertificateContext(context));
    QVERIFY(platform().closeStore(store, CERT_CLOSE_STORE_FORCE_FLAG));
}

void TrustHandlesTest::systemStoreIsNotAddedTo()
{
    const HCERTSTORE store = platform().openSystemStore(0, L"ROOT");
    const PCCERT_CONTEXT context =
        contextOf(PlannedCertificate(leafPlan(QStringLiteral("one"))).der());
    QVERIFY(!platform().addCertificateContextToStore(store, context, CERT_STORE_ADD_NEW, nullptr));
    QCOMPARE(platform().lastError(), DWORD(ERROR_ACCESS_DENIED));
    QVERIFY(platform().freeCertificateContext(context));
    QVERIFY(platform().closeStore(store, 0));
}

void TrustHandlesTest::engineOutlivesItsStore()
{
    const PlannedCertificate root(test::authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    const test::TrustedRoots roots;
    HCERTSTORE store = openMemoryStore();
    const PCCERT_CONTEXT rootContext = contextOf(root.der());
    QVERIFY(platform().addCertificateContextToStore(store, rootContext,
                                                    CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
    QVERIFY(platform().freeCertificateContext(rootContext));
    CERT_CHAIN_ENGINE_CONFIG config = {};
    config.cbSize = sizeof config;
    config.cAdditionalStore = 1;
    config.rghAdditionalStore = &store;
    HCERTCHAINENGINE engine = nullptr;
    QVERIFY(platform().createChainEngine(&config, &engine));
    QVERIFY(platform().closeStore(store, CERT_CLOSE_STORE_FORCE_FLAG));

    CERT_CHAIN_PARA para = {};
    para.cbSize = sizeof para;
    const PCCERT_CONTEXT context = contextOf(leaf.der());
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    QVERIFY(platform().getCertificateChain(engine, context, nullptr, nullptr, &para, 0, nullptr,
                                           &chain));
    QVERIFY(platform().freeCertificateContext(context));
    platform().freeChainEngine(engine);
    QCOMPARE(chain->rgpChain[0]->cElement, DWORD(2));
    platform().freeCertificateChain(chain);
}

void TrustHandlesTest::wrongEngineConfigurationsAreRefused()
{
    const HCERTSTORE store = openMemoryStore();
    CERT_CHAIN_ENGINE_CONFIG config = {};
    QCOMPARE(engineError(&config), DWORD(E_INVALIDARG));
    config.cbSize = sizeof config;
    QCOMPARE(engineError(&config), DWORD(ERROR_SUCCESS));
    for (const auto member :
         {&CERT_CHAIN_ENGINE_CONFIG::hRestrictedRoot, &CERT_CHAIN_ENGINE_CONFIG::hRestrictedTrust,
          &CERT_CHAIN_ENGINE_CONFIG::hRestrictedOther, &CERT_CHAIN_ENGINE_CONFIG::hExclusiveRoot,
          &CERT_CHAIN_ENGINE_CONFIG::hExclusiveTrustedPeople}) {
        CERT_CHAIN_ENGINE_CONFIG restricted = config;
        restricted.*member = store;
        QCOMPARE(engineError(&restricted), DWORD(E_INVALIDARG));
    }
    QCOMPARE(engineError(nullptr), DWORD(E_INVALIDARG));
    QVERIFY(!platform().createChainEngine(&config, nullptr));
    QVERIFY(platform().closeStore(store, 0));
}

void TrustHandlesTest::engineWithoutStoreIsMade()
{
    HCERTSTORE none = nullptr;
    CERT_CHAIN_ENGINE_CONFIG config = {};
    config.cbSize = sizeof config;
    config.cAdditionalStore = 1;
    config.rghAdditionalStore = &none;
    QCOMPARE(engineError(&config), DWORD(ERROR_SUCCESS));
}

void TrustHandlesTest::wrongPathQuestionsAreRefused()
{
    const PCCERT_CONTEXT context =
        contextOf(PlannedCertificate(leafPlan(QStringLiteral("one"))).der());
    CERT_CHAIN_PARA para = {};
    para.cbSize = sizeof para;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    const auto error = [&](PCCERT_CONTEXT end, CERT_CHAIN_PARA* parameters, DWORD flags,
                           PCCERT_CHAIN_CONTEXT* result) {
        const BOOL isBuilt = platform().getCertificateChain(nullptr, end, nullptr, nullptr,
                                                            parameters, flags, nullptr, result);
        return isBuilt ? DWORD(ERROR_SUCCESS) : platform().lastError();
    };
    QCOMPARE(error(nullptr, &para, 0, &chain), DWORD(E_INVALIDARG));
    QCOMPARE(error(context, nullptr, 0, &chain), DWORD(E_INVALIDARG));
    QCOMPARE(error(context, &para, 0, nullptr), DWORD(E_INVALIDARG));
    QCOMPARE(error(context, &para, 0x10000000, &chain), DWORD(ERROR_CALL_NOT_IMPLEMENTED));
    para.cbSize = 0;
    QCOMPARE(error(context, &para, 0, &chain), DWORD(E_INVALIDARG));
    QVERIFY(!chain);
    QVERIFY(platform().freeCertificateContext(context));
}

void TrustHandlesTest::errorsAreTheThreadsOwn()
{
    QVERIFY(!platform().closeHandle(nullptr));
    DWORD before = 1;
    DWORD after = 1;
    std::thread other([&] {
        before = platform().lastError();
        platform().openSystemStore(0, L"MY");
        after = platform().lastError();
    });
    other.join();
    QCOMPARE(before, DWORD(ERROR_SUCCESS));
    QCOMPARE(after, DWORD(ERROR_FILE_NOT_FOUND));
    QCOMPARE(platform().lastError(), DWORD(ERROR_INVALID_HANDLE));
}

void TrustHandlesTest::messagesAreEmpty()
{
    wchar_t buffer[4] = L"abc";
    QCOMPARE(platform().formatMessage(0, nullptr, ERROR_ACCESS_DENIED, 0, buffer, 0), DWORD(0));
    QCOMPARE(std::wstring(buffer), std::wstring());
    QCOMPARE(platform().formatMessage(0, nullptr, ERROR_ACCESS_DENIED, 0, nullptr, 0), DWORD(0));
}

void TrustHandlesTest::certificatesUsedLastAreKept()
{
    constexpr int KEPT = 128;
    QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    const std::weak_ptr<const vela::DecodedCertificate> first =
        vela::DecodedCertificate::fromDer(der);
    for (int i = 1; i < KEPT; ++i) {
        // Another signature, and so another certificate.
        der[der.size() - 1] = char(der.at(der.size() - 1) + 1);
        QVERIFY(vela::DecodedCertificate::fromDer(der));
    }
    QVERIFY(!first.expired());
    QCOMPARE(vela::DecodedCertificate::fromDer(first.lock()->der()), first.lock());
    QVERIFY(vela::DecodedCertificate::fromDer(
        PlannedCertificate(leafPlan(QStringLiteral("another"))).der()));
    QVERIFY(first.expired());
}

void TrustHandlesTest::largeCertificateIsNotKept()
{
    const QByteArray comment(8 * 1024, 'x');
    const PlannedCertificate large(leafPlan(QStringLiteral("large"), {{"nsComment", comment}}));
    const std::weak_ptr<const vela::DecodedCertificate> certificate =
        vela::DecodedCertificate::fromDer(large.der());
    QVERIFY(certificate.expired());
}

QTEST_GUILESS_MAIN(TrustHandlesTest)
#include "tst_trusthandles.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedSystem.h"

#include <QtTest/QtTest>

#include <memory>

using namespace test;

Q_DECLARE_METATYPE(test::ChainReport)
Q_DECLARE_METATYPE(vela::CertVerify)
Q_DECLARE_METATYPE(vela::SslCertificateChain)

namespace {

const QString POLL = QStringLiteral("pollEvent event -> done");
const QString CREATE_LEAF = QStringLiteral("createCertificateContext 65537 leaf -> done");
const QString CREATE_MIDDLE = QStringLiteral("createCertificateContext 65537 middle -> done");
const QString ADD_MIDDLE =
    QStringLiteral("addCertificateContextToStore extra context of middle 3 null -> done");
const QString FREE_MIDDLE = QStringLiteral("freeCertificateContext context of middle");
const QString CREATE_ROOT = QStringLiteral("createCertificateContext 65537 root -> done");
const QString ADD_ROOT =
    QStringLiteral("addCertificateContextToStore extra context of root 3 null -> done");
const QString FREE_ROOT = QStringLiteral("freeCertificateContext context of root");
const QString BUILD = QStringLiteral(
    "getCertificateChain engine 1 context of leaf null null para(32,0,0,null) 0 null -> done");
const QString FREE_LEAF = QStringLiteral("freeCertificateContext context of leaf");
const QString FREE_CHAIN = QStringLiteral("freeCertificateChain chain of leaf");

QString chainFailure(const QString& text)
{
    return failureLine("createWinCryptChain", text);
}

//! A system with one store, whose set-up is over.
struct StoreSystem : ScriptedSystem
{
    StoreSystem() { platform.takeCalls(); }

    ExposedStore store;
};

} // namespace

class WinCertStoreVerifyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endCertificateIsJudgedLikeThis();
    void laterCertificatesAreOfferedInOrder();
    void laterCertificatesAreLeftToTheStoreAlone();
    void laterCertificatesThatDoNotConvertAreSkipped();
    void refusedLaterCertificateDoesNotMatter();
    void chainWithoutEndCertificateFails_data();
    void chainWithoutEndCertificateFails();
    void refusedEndCertificateFails();
    void chainThatIsNotBuiltFails();
    void missingEngineMeansTheDefaultEngine();
    void verdict_data();
    void verdict();
    void pendingChangeIsTakenInFirst();
    void pendingChangeIsTakenInOnce();
    void failingPollMeansNoChange();
    void storeMayGoWhenItAnnouncesAChange();
    void certificateIsJudgedByItsStoredChain();
    void certificateContextBelongsToTheCaller();
    void chainContextBelongsToTheCaller();
};

void WinCertStoreVerifyTest::endCertificateIsJudgedLikeThis()
{
    StoreSystem system;
    QCOMPARE(system.store.verify(wrapAll({system.certificates.leaf})), vela::VerifyOk);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF, BUILD, FREE_LEAF, FREE_CHAIN}));
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreVerifyTest::laterCertificatesAreOfferedInOrder()
{
    StoreSystem system;
    const auto chain =
        wrapAll({system.certificates.leaf, system.certificates.middle, system.certificates.root});
    QCOMPARE(system.store.verify(chain), vela::VerifyOk);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF, CREATE_MIDDLE, ADD_MIDDLE, FREE_MIDDLE, CREATE_ROOT,
                          ADD_ROOT, FREE_ROOT, BUILD, FREE_LEAF, FREE_CHAIN}));
}

//! They stay in the store, which has copies of its own: nothing else is kept of them.
void WinCertStoreVerifyTest::laterCertificatesAreLeftToTheStoreAlone()
{
    StoreSystem system;
    const QStringList before = system.platform.openHandles();
    system.store.verify(wrapAll({system.certificates.leaf, system.certificates.middle}));
    QCOMPARE(system.platform.openHandles(), before);
    system.platform.takeCalls();
    system.store.verify(wrapAll({system.certificates.leaf}));
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF, BUILD, FREE_LEAF, FREE_CHAIN}));
    QCOMPARE(system.platform.openHandles(), before);
}

void WinCertStoreVerifyTest::laterCertificatesThatDoNotConvertAreSkipped()
{
    StoreSystem system;
    system.platform.fail(QStringLiteral("createCertificateContext middle"), 13);
    auto chain = wrapAll({system.certificates.leaf});
    chain << vela::SslCertificatePtr() << wrap(system.certificates.middle)
          << vela::SslCertificatePtr(new vela::SslCertificate) << wrap(system.certificates.root);
    QCOMPARE(system.store.verify(chain), vela::VerifyOk);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF,
                          QStringLiteral("createCertificateContext 65537 middle -> failed"),
                          CREATE_ROOT, ADD_ROOT, FREE_ROOT, BUILD, FREE_LEAF, FREE_CHAIN}));
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreVerifyTest::refusedLaterCertificateDoesNotMatter()
{
    StoreSystem system;
    system.platform.fail(QStringLiteral("addCertificateContextToStore"), 5);
    const auto chain = wrapAll({system.certificates.leaf, system.certificates.middle});
    QCOMPARE(system.store.verify(chain), vela::VerifyOk);
    const QStringList calls = system.platform.takeCalls();
    QVERIFY(calls.contains(FREE_MIDDLE));
    QVERIFY(calls.contains(BUILD));
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreVerifyTest::chainWithoutEndCertificateFails_data()
{
    QTest::addColumn<vela::SslCertificateChain>("chain");
    const auto withFirst = [](const vela::SslCertificatePtr& first) {
        vela::SslCertificateChain chain;
        chain << first << wrap(TestChain::instance().middle);
        return chain;
    };
    QTest::newRow("empty") << vela::SslCertificateChain();
    QTest::newRow("null pointer") << withFirst(vela::SslCertificatePtr());
    QTest::newRow("no handle") << withFirst(vela::SslCertificatePtr(new vela::SslCertificate));
}

void WinCertStoreVerifyTest::chainWithoutEndCertificateFails()
{
    QFETCH(vela::SslCertificateChain, chain);
    StoreSystem system;
    QCOMPARE(system.store.verify(chain), vela::VerifyFailed);
    QCOMPARE(system.platform.takeCalls(), QStringList({POLL, QStringLiteral("lastError -> 0")}));
    QCOMPARE(system.log.text(), chainFailure(QStringLiteral("Could not encode end certificate 0")));
}

void WinCertStoreVerifyTest::refusedEndCertificateFails()
{
    StoreSystem system;
    system.platform.fail(QStringLiteral("createCertificateContext leaf"), 2148086016);
    const auto chain = wrapAll({system.certificates.leaf, system.certificates.middle});
    QCOMPARE(system.store.verify(chain), vela::VerifyFailed);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, QStringLiteral("createCertificateContext 65537 leaf -> failed"),
                          QStringLiteral("lastError -> 2148086016")}));
    QCOMPARE(system.log.text(),
             chainFailure(QStringLiteral("Could not encode end certificate 2148086016")));
}

void WinCertStoreVerifyTest::chainThatIsNotBuiltFails()
{
    StoreSystem system;
    system.platform.fail(QStringLiteral("getCertificateChain"), 14);
    QCOMPARE(system.store.verify(wrapAll({system.certificates.leaf})), vela::VerifyFailed);
    QString build = BUILD;
    build.replace(QLatin1String("done"), QLatin1String("failed"));
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF, build, QStringLiteral("lastError -> 14"), FREE_LEAF}));
    QCOMPARE(system.log.text(), chainFailure(QStringLiteral("Certificate Chain failed 14")));
}

void WinCertStoreVerifyTest::missingEngineMeansTheDefaultEngine()
{
    ScriptedSystem system;
    system.platform.fail(QStringLiteral("createChainEngine"), 8);
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QCOMPARE(store.verify(wrapAll({system.certificates.leaf})), vela::VerifyOk);
    QString build = BUILD;
    build.replace(QLatin1String("engine 1"), QLatin1String("null"));
    QCOMPARE(system.platform.takeCalls(),
             QStringList({POLL, CREATE_LEAF, build, FREE_LEAF, FREE_CHAIN}));
}

void WinCertStoreVerifyTest::verdict_data()
{
    QTest::addColumn<ChainReport>("report");
    QTest::addColumn<vela::CertVerify>("expected");
    using Chains = std::vector<ChainReport::SimpleChain>;
    const DWORD expired = 0x1;
    const DWORD notNested = 0x2;
    const DWORD badSignature = 0x8;
    const DWORD untrusted = 0x20;
    const DWORD partial = 0x10000;
    const DWORD selfSigned = 0x8;
    const Chains plain = {{0, {{0, {}}, {0, {}}}}};
    const Chains selfSignedChain = {{selfSigned, {{0, {}}}}};
    const Chains selfSignedEnd = {{0, {{selfSigned, {}}, {0, {}}}}};
    const Chains selfSignedRoot = {{0, {{0, {}}, {selfSigned, {}}}}};
    const Chains selfSignedMiddle = {{0, {{0, {}}, {selfSigned, {}}, {0, {}}}}};
    const Chains secondSelfSigned = {{0, {{0, {}}}}, {selfSigned, {{selfSigned, {}}}}};
    const auto row = [](const char* name, const ChainReport& report, vela::CertVerify expected) {
        QTest::newRow(name) << report << expected;
    };

    row("no error", {0, 0, plain}, vela::VerifyOk);
    row("no error, no simple chain", {0, 0, {}}, vela::VerifyOk);
    row("no error, self-signed context", {0, selfSigned, plain}, vela::VerifyOk);
    row("no error, self-signed chain", {0, 0, selfSignedChain}, vela::VerifyOk);
    row("no error, self-signed end", {0, 0, selfSignedEnd}, vela::VerifyOk);

    row("self-signed context", {untrusted, selfSigned, plain}, vela::VerifySelfSigned);
    row("self-signed context, no simple chain", {untrusted, selfSigned, {}},
        vela::VerifySelfSigned);
    row("self-signed chain", {untrusted, 0, selfSignedChain}, vela::VerifySelfSigned);
    row("self-signed chain without elements", {untrusted, 0, {{selfSigned, {}}}},
        vela::VerifySelfSigned);
    row("self-signed end", {untrusted, 0, selfSignedEnd}, vela::VerifySelfSigned);
    // What Windows says of a chain whose root it does not trust: bits of elements, and no others.
    row("self-signed root that is not trusted", {untrusted, 0, selfSignedRoot},
        vela::VerifySelfSigned);
    row("self-signed root that is not trusted, and expired",
        {expired | untrusted, 0, selfSignedRoot}, vela::VerifySelfSigned);
    row("self-signed among other bits", {untrusted, 0xF | 0x100, plain}, vela::VerifySelfSigned);
    row("self-signed context and expired", {expired, selfSigned, plain}, vela::VerifySelfSigned);
    row("self-signed chain and expired", {expired | untrusted, 0, selfSignedChain},
        vela::VerifySelfSigned);
    row("self-signed end and expired", {expired, 0, selfSignedEnd}, vela::VerifySelfSigned);

    row("expired", {expired, 0, plain}, vela::VerifyExpired);
    row("not nested", {notNested, 0, plain}, vela::VerifyExpired);
    row("expired and not nested", {expired | notNested, 0, plain}, vela::VerifyExpired);
    row("expired and untrusted", {expired | untrusted, 0, plain}, vela::VerifyExpired);
    row("not nested and partial", {notNested | partial, 0, plain}, vela::VerifyExpired);
    row("expired, only a later element self-signed", {expired, 0, selfSignedRoot},
        vela::VerifyExpired);
    row("expired, only a later chain self-signed", {expired, 0, secondSelfSigned},
        vela::VerifyExpired);
    row("expired, other bits on context", {expired, 0x7 | 0x100, plain}, vela::VerifyExpired);
    row("expired, no simple chain", {expired, 0, {}}, vela::VerifyExpired);
    row("expired, chain without elements", {expired, 0, {{0, {}}}}, vela::VerifyExpired);

    row("partial chain", {partial, 0, plain}, vela::VerifyFailed);
    row("untrusted root", {untrusted, 0, plain}, vela::VerifyFailed);
    row("bad signature", {badSignature, 0, plain}, vela::VerifyFailed);
    row("all other errors", {0xFFFFFFFC, 0, plain}, vela::VerifyFailed);
    row("untrusted, only an element between self-signed", {untrusted, 0, selfSignedMiddle},
        vela::VerifyFailed);
    row("partial, only the last element self-signed", {partial, 0, selfSignedRoot},
        vela::VerifyFailed);
    row("untrusted, only a later chain self-signed", {untrusted, 0, secondSelfSigned},
        vela::VerifyFailed);
    row("untrusted, no simple chain", {untrusted, 0, {}}, vela::VerifyFailed);
}

void WinCertStoreVerifyTest::verdict()
{
    QFETCH(ChainReport, report);
    QFETCH(vela::CertVerify, expected);
    StoreSystem system;
    system.platform.setReport(report);
    QCOMPARE(system.store.verify(wrapAll({system.certificates.leaf})), expected);
    QCOMPARE(system.platform.takeCalls().last(), FREE_CHAIN);
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreVerifyTest::pendingChangeIsTakenInFirst()
{
    StoreSystem system;
    QStringList callsBeforeTheSignal;
    connect(&system.store, &vela::WinCertStore::systemUpdated, &system.store,
            [&] { callsBeforeTheSignal = system.platform.takeCalls(); });
    system.platform.signalEvent();
    QCOMPARE(system.store.verify(wrapAll({system.certificates.leaf})), vela::VerifyOk);
    QCOMPARE(callsBeforeTheSignal,
             QStringList({POLL, QStringLiteral("controlStore root 2 1 &event -> done"),
                          QStringLiteral("controlStore extra 2 1 &event -> done"),
                          QStringLiteral("freeChainEngine engine 1"),
                          QStringLiteral("createChainEngine 88 1 &extra unrestricted -> done")}));
    QString build = BUILD;
    build.replace(QLatin1String("engine 1"), QLatin1String("engine 2"));
    QCOMPARE(system.platform.takeCalls(), QStringList({CREATE_LEAF, build, FREE_LEAF, FREE_CHAIN}));
}

void WinCertStoreVerifyTest::pendingChangeIsTakenInOnce()
{
    StoreSystem system;
    QSignalSpy updated(&system.store, &vela::WinCertStore::systemUpdated);
    const auto chain = wrapAll({system.certificates.leaf});
    system.store.verify(chain);
    QCOMPARE(updated.size(), 0);
    system.platform.signalEvent();
    system.store.verify(chain);
    QCOMPARE(updated.size(), 1);
    system.store.verify(chain);
    QCoreApplication::sendPostedEvents(&system.store);
    QCOMPARE(updated.size(), 1);
}

void WinCertStoreVerifyTest::failingPollMeansNoChange()
{
    StoreSystem system;
    QSignalSpy updated(&system.store, &vela::WinCertStore::systemUpdated);
    system.platform.signalEvent();
    system.platform.fail(QStringLiteral("pollEvent"), 6);
    QCOMPARE(system.store.verify(wrapAll({system.certificates.leaf})), vela::VerifyOk);
    QCOMPARE(updated.size(), 0);
}

void WinCertStoreVerifyTest::storeMayGoWhenItAnnouncesAChange()
{
    ScriptedSystem system;
    auto* store = new vela::WinCertStore(nullptr);
    connect(store, &vela::WinCertStore::systemUpdated, [&] {
        delete store;
        system.platform.takeCalls();
    });
    system.platform.signalEvent();
    QCOMPARE(store->verify(wrapAll({system.certificates.leaf})), vela::VerifyFailed);
    QCOMPARE(system.platform.takeCalls(), QStringList());
    QCOMPARE(system.platform.openHandles(), QStringList());
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreVerifyTest::certificateIsJudgedByItsStoredChain()
{
    StoreSystem system;
    const vela::SslCertificatePtr leaf = wrap(system.certificates.leaf);
    QCOMPARE(system.store.verify(leaf), vela::VerifyFailed);
    QCOMPARE(system.platform.takeCalls(), QStringList());

    system.store.addCertificateChain(
        wrapAll({system.certificates.leaf, system.certificates.middle}));
    system.platform.setReport({CERT_TRUST_IS_NOT_TIME_VALID, 0, {}});
    QCOMPARE(system.store.verify(leaf), vela::VerifyExpired);
    QCOMPARE(system.platform.takeCalls(), QStringList({POLL, CREATE_LEAF, CREATE_MIDDLE, ADD_MIDDLE,
                                                       FREE_MIDDLE, BUILD, FREE_LEAF, FREE_CHAIN}));
}

void WinCertStoreVerifyTest::certificateContextBelongsToTheCaller()
{
    StoreSystem system;
    const vela::PCCERT_CONTEXT context =
        system.store.createWinCryptCert(wrap(system.certificates.leaf));
    QVERIFY(context);
    QCOMPARE(system.platform.takeCalls(), QStringList(CREATE_LEAF));
    QVERIFY(system.platform.freeCertificateContext(context));

    system.platform.takeCalls();
    QVERIFY(!system.store.createWinCryptCert(vela::SslCertificatePtr()));
    QVERIFY(!system.store.createWinCryptCert(vela::SslCertificatePtr(new vela::SslCertificate)));
    QCOMPARE(system.platform.takeCalls(), QStringList());
}

void WinCertStoreVerifyTest::chainContextBelongsToTheCaller()
{
    StoreSystem system;
    const vela::PCCERT_CHAIN_CONTEXT context =
        system.store.createWinCryptChain(wrapAll({system.certificates.leaf}));
    QVERIFY(context);
    QVERIFY(system.platform.openHandles().contains(QStringLiteral("chain of leaf")));
    QVERIFY(!system.platform.openHandles().contains(QStringLiteral("context of leaf")));
    system.platform.freeCertificateChain(context);
}

QTEST_GUILESS_MAIN(WinCertStoreVerifyTest)
#include "tst_wincertstoreverify.moc"

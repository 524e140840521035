// SPDX-License-Identifier: BSD-3-Clause
#include "StoreCertificates.h"

#include <Ferrule/CertificateStore.h>
#include <Ferrule/GenericCertStore.h>
#include <Ferrule/RecursiveMutex.h>

#include <QtTest/QtTest>

#include <cstddef>
#include <cstring>
#include <future>

using namespace test;
using vela::CertificateStore;
using vela::CertTrust;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

//! A store that says what a test wants and remembers what it was asked.
class ScriptedStore : public CertificateStore
{
public:
    explicit ScriptedStore(QObject* parent = nullptr)
        : CertificateStore(parent)
    {
    }

    using CertificateStore::gGlobalInstance;
    using CertificateStore::verify;

    vela::CertVerify verify(const SslCertificateChain& chain) override
    {
        judged.append(chain);
        return vela::VerifyExpired;
    }

    bool importSystemRootCert(SslCertificatePtr) override { return true; }

    QList<SslCertificateChain> judged;
};

//! A certificate whose fingerprints a test can choose.
struct Relabelled : SslCertificate
{
    using SslCertificate::setMd5Digest;
    using SslCertificate::setSha1Digest;
    using SslCertificate::SslCertificate;
};

/*
    Returns the place of a virtual function in the table of its class. By the C++ ABI that all
    supported compilers share, a pointer to it holds the offset of its entry.
*/
template <typename Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t words[2];
    static_assert(sizeof member == sizeof words, "not the layout this relies on");
    std::memcpy(words, &member, sizeof words);
    return words[0] / static_cast<std::ptrdiff_t>(sizeof(void*));
}

//! Gives access to the last virtual function of QObject, which is protected.
struct ObjectSlots : QObject
{
    static std::ptrdiff_t last() { return slotOf(&ObjectSlots::disconnectNotify); }
};

void compareRecord(const CertTrust& record, quint32 state, int accept, qint32 mark)
{
    QCOMPARE(record.state, state);
    QCOMPARE(static_cast<int>(record.accept), accept);
    QCOMPARE(record.mark, mark);
}

} // namespace

class CertificateStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void metaObjectHasTheFourSignalsInOrder();
    void virtualOperationsStandInOrder();
    void verdictsHaveTheirValues_data();
    void verdictsHaveTheirValues();
    void trustRecordIsThreeWordsOf32Bits();
    void textsOfTheClassAreTranslatedInItsContext();

    void newStoreHoldsNothing();
    void parentOwnsTheStore();
    void chainsStandInTheOrderOfAdding();
    void chainWithTheSameEndCertificateIsReplacedInPlace();
    void chainWithoutEndCertificateIsRefused_data();
    void chainWithoutEndCertificateIsRefused();
    void nullCertificateIsRefused();
    void onlyTheEndCertificateIdentifiesAChain();
    void certificatesWithEqualFingerprintsAreOne();
    void storedChainMayBeAddedAgain();

    void removalMovesLaterChainsDown();
    void removalOutOfRangeChangesNothing();
    void removalByCertificate();
    void removedCertificateIsAppendedWhenItComesAgain();
    void clearDropsChainsAndRecords();

    void freshRecordReadsZeroFourMinusOne();
    void recordsAreKeyedBySha1Alone();
    void recordsOfChainsAreThoseOfEndCertificates();
    void recordKeepsWhatWasWrittenWhileOthersComeAndGo();
    void recordSurvivesRemovalButNotClear();
    void recordNeedsNoStoredChain();
    void certificateWithoutHandleHasNoReadableRecord();
    void nullHasNoReadableRecord();

    void nameIsFoundExactly_data();
    void nameIsFoundExactly();
    void firstOfSeveralWithOneNameIsFound();
    void emptyNameFindsTheFirstWithout();
    void chainsByIndexAreCopiesOrReferences();
    void chainsByCertificateAreCopiesOrReferences();

    void unknownCertificateFails();
    void knownCertificateIsJudgedThroughItsChain();

    void clearedCertificatesAreSkipped();
    void clearedCertificateCanBeReplacedAndRemoved();

    void noOperationEmitsASignal();
    void signalsTravelThroughQueuedConnections();
    void mutexIsRecursive();
    void destroyedCertificateMayCallBack_data();
    void destroyedCertificateMayCallBack();

    void globalInstancesAreNullAtStart();
    void destroyedStoreLeavesTheGlobalInstances_data();
    void destroyedStoreLeavesTheGlobalInstances();

private:
    Identity m_alpha;
    Identity m_beta;
    Identity m_gamma;
    Identity m_root;
    SslCertificatePtr m_a;
    SslCertificatePtr m_b;
    SslCertificatePtr m_c;
    SslCertificatePtr m_r;
};

void CertificateStoreTest::initTestCase()
{
    m_alpha = makeNamed(QStringLiteral("Alpha"));
    m_beta = makeNamed(QStringLiteral("Beta"));
    m_gamma = makeNamed(QStringLiteral("Gamma"));
    m_root = makeNamed(QStringLiteral("Root"));
    m_a = parse(m_alpha.certificatePem());
    m_b = parse(m_beta.certificatePem());
    m_c = parse(m_gamma.certificatePem());
    m_r = parse(m_root.certificatePem());
}

void CertificateStoreTest::metaObjectHasTheFourSignalsInOrder()
{
    const QMetaObject& meta = CertificateStore::staticMetaObject;
    QCOMPARE(meta.className(), "vela::CertificateStore");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    const QList<QByteArray> expected = {"added(SslCertificatePtr)", "updated(SslCertificatePtr)",
                                        "removed(SslCertificatePtr)", "systemUpdated()"};
    QCOMPARE(meta.methodCount() - meta.methodOffset(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaMethod method = meta.method(meta.methodOffset() + i);
        QCOMPARE(method.methodSignature(), expected.at(i));
        QCOMPARE(method.methodType(), QMetaMethod::Signal);
    }
    const ScriptedStore store;
    QVERIFY(store.inherits("vela::CertificateStore"));
}

void CertificateStoreTest::virtualOperationsStandInOrder()
{
    using VerifyChain = vela::CertVerify (CertificateStore::*)(const SslCertificateChain&);
    using VerifyCertificate = vela::CertVerify (CertificateStore::*)(SslCertificatePtr);
    const std::ptrdiff_t first = ObjectSlots::last() + 1;
    QCOMPARE(slotOf(static_cast<VerifyChain>(&CertificateStore::verify)), first);
    QCOMPARE(slotOf(static_cast<VerifyCertificate>(&CertificateStore::verify)), first + 1);
    QCOMPARE(slotOf(&CertificateStore::importSystemRootCert), first + 2);
    QCOMPARE(slotOf(&vela::GenericCertStore::importRootCerts), first + 3);
}

void CertificateStoreTest::verdictsHaveTheirValues_data()
{
    QTest::addColumn<int>("verdict");
    QTest::addColumn<int>("value");
    QTest::newRow("unknown") << static_cast<int>(vela::VerifyUnknown) << 0;
    QTest::newRow("ok") << static_cast<int>(vela::VerifyOk) << 1;
    QTest::newRow("self-signed") << static_cast<int>(vela::VerifySelfSigned) << 2;
    QTest::newRow("expired") << static_cast<int>(vela::VerifyExpired) << 3;
    QTest::newRow("not yet valid") << static_cast<int>(vela::VerifyNotYetValid) << 4;
    QTest::newRow("failed") << static_cast<int>(vela::VerifyFailed) << 5;
}

void CertificateStoreTest::verdictsHaveTheirValues()
{
    QFETCH(int, verdict);
    QTEST(verdict, "value");
}

void CertificateStoreTest::trustRecordIsThreeWordsOf32Bits()
{
    QCOMPARE(sizeof(vela::CertVerify), std::size_t(4));
    QCOMPARE(sizeof(vela::CertAccept), std::size_t(4));
    QCOMPARE(sizeof(vela::CertHostName), std::size_t(4));
    QCOMPARE(sizeof(CertTrust), std::size_t(12));
    QCOMPARE(offsetof(CertTrust, state), std::size_t(0));
    QCOMPARE(offsetof(CertTrust, accept), std::size_t(4));
    QCOMPARE(offsetof(CertTrust, mark), std::size_t(8));
    compareRecord(CertificateStore::EMPTY_TRUST, 0, 4, -1);
    compareRecord(CertTrust(), 0, 4, -1);
}

void CertificateStoreTest::textsOfTheClassAreTranslatedInItsContext()
{
    class Translator : public QTranslator
    {
    public:
        bool isEmpty() const override { return false; }
        QString translate(const char* context, const char* source, const char* disambiguation,
                          int n) const override
        {
            return QStringLiteral("%1|%2|%3|%4")
                .arg(QString::fromLatin1(context), QString::fromLatin1(source),
                     QString::fromLatin1(disambiguation))
                .arg(n);
        }
    };
    QCOMPARE(CertificateStore::tr("text", "hint", 7), QStringLiteral("text"));
    Translator translator;
    QCoreApplication::installTranslator(&translator);
    QCOMPARE(CertificateStore::tr("text", "hint", 7),
             QStringLiteral("vela::CertificateStore|text|hint|7"));
}

void CertificateStoreTest::newStoreHoldsNothing()
{
    const ScriptedStore store;
    QCOMPARE(store.parent(), nullptr);
    QCOMPARE(store.objectName(), QString());
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_a), -1);
    QCOMPARE(&store[m_a], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(&store[QStringLiteral("Alpha")], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(&store[QString()], &CertificateStore::EMPTY_CHAIN);
    compareRecord(store.trustInfo(m_a), 0, 4, -1);
    QCOMPARE(CertificateStore::EMPTY_CHAIN.size(), 0);
}

void CertificateStoreTest::parentOwnsTheStore()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<CertificateStore> store = new ScriptedStore(parent.get());
    QCOMPARE(store->parent(), parent.get());
    parent.reset();
    QVERIFY(!store);
}

void CertificateStoreTest::chainsStandInTheOrderOfAdding()
{
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(m_b), 0);
    QCOMPARE(store.addCertificateChain(chainOf({m_a, m_r})), 1);
    QCOMPARE(store.addOneCertificate(m_c), 2);
    QCOMPARE(store.count(), 3);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(store.indexOf(m_a), 1);
    QCOMPARE(store.indexOf(m_c), 2);
    QCOMPARE(store[0].size(), 1);
    QCOMPARE(store[0].endCert(), m_b);
    QCOMPARE(store[1].size(), 2);
    QCOMPARE(store[1].rootCert(), m_r);
}

void CertificateStoreTest::chainWithTheSameEndCertificateIsReplacedInPlace()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    store.addOneCertificate(m_c);
    const SslCertificatePtr again = parse(m_beta.certificatePem());
    QCOMPARE(store.addCertificateChain(chainOf({again, m_r})), 1);
    QCOMPARE(store.count(), 3);
    QCOMPARE(store[1].size(), 2);
    QCOMPARE(store[1].endCert(), again);
    QCOMPARE(store.indexOf(m_b), 1);
    QCOMPARE(store.indexOf(m_c), 2);
    QCOMPARE(store.addOneCertificate(m_b), 1);
    QCOMPARE(store[1].size(), 1);
}

void CertificateStoreTest::chainWithoutEndCertificateIsRefused_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("no element") << 0;
    QTest::newRow("null first") << 1;
    QTest::newRow("first without X.509 data") << 2;
}

void CertificateStoreTest::chainWithoutEndCertificateIsRefused()
{
    QFETCH(int, kind);
    const SslCertificatePtr empty(new SslCertificate);
    const QList<SslCertificateChain> chains = {
        SslCertificateChain(), chainOf({SslCertificatePtr(), m_a}), chainOf({empty, m_a})};
    ScriptedStore store;
    store.addOneCertificate(m_b);
    QCOMPARE(store.addCertificateChain(chains.at(kind)), -1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_a), -1);
    QCOMPARE(store.indexOf(empty), -1);
}

void CertificateStoreTest::nullCertificateIsRefused()
{
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(SslCertificatePtr()), -1);
    QCOMPARE(store.addOneCertificate(SslCertificatePtr(new SslCertificate)), -1);
    QCOMPARE(store.count(), 0);
    store.addOneCertificate(m_a);
    QCOMPARE(store.indexOf(SslCertificatePtr()), -1);
    QCOMPARE(&qAsConst(store)[SslCertificatePtr()], &CertificateStore::EMPTY_CHAIN);
}

void CertificateStoreTest::onlyTheEndCertificateIdentifiesAChain()
{
    ScriptedStore store;
    QCOMPARE(store.addCertificateChain(chainOf({m_a, m_r})), 0);
    QCOMPARE(store.indexOf(m_r), -1);
    QCOMPARE(store.addCertificateChain(chainOf({m_b, m_r})), 1);
    QCOMPARE(store.addOneCertificate(m_r), 2);
    QCOMPARE(store.indexOf(m_r), 2);
}

void CertificateStoreTest::certificatesWithEqualFingerprintsAreOne()
{
    const auto* shared = new Relabelled(m_alpha.x509(), false);
    const SslCertificatePtr same(const_cast<Relabelled*>(shared));
    auto* const other = new Relabelled(m_alpha.x509(), false);
    const SslCertificatePtr otherMd5(other);
    other->setMd5Digest("another");
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(m_a), 0);
    QCOMPARE(store.addOneCertificate(same), 0);
    QCOMPARE(store.addOneCertificate(otherMd5), 1);
    QCOMPARE(store.indexOf(m_a), 0);
    QCOMPARE(store.indexOf(otherMd5), 1);
}

void CertificateStoreTest::storedChainMayBeAddedAgain()
{
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_a, m_r}));
    QCOMPARE(store.addCertificateChain(qAsConst(store)[0]), 0);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store[0].size(), 2);
    QCOMPARE(store[0].endCert(), m_a);
}

void CertificateStoreTest::removalMovesLaterChainsDown()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    store.addOneCertificate(m_c);
    QCOMPARE(store.removeCertificate(0), 0);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store[0].endCert(), m_b);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(store.indexOf(m_c), 1);
    QCOMPARE(store.indexOf(m_a), -1);
    QCOMPARE(store.removeCertificate(1), 1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_b), 0);
}

void CertificateStoreTest::removalOutOfRangeChangesNothing()
{
    ScriptedStore store;
    QCOMPARE(store.removeCertificate(0), -1);
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    QCOMPARE(store.removeCertificate(store.count()), -1);
    QCOMPARE(store.removeCertificate(-1), -1);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.indexOf(m_b), 1);
}

void CertificateStoreTest::removalByCertificate()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    QCOMPARE(store.removeCertificate(m_c), -1);
    QCOMPARE(store.removeCertificate(SslCertificatePtr()), -1);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.removeCertificate(parse(m_beta.certificatePem())), 1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_a), 0);
}

void CertificateStoreTest::removedCertificateIsAppendedWhenItComesAgain()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    store.removeCertificate(0);
    QCOMPARE(store.addOneCertificate(m_a), 1);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(store.indexOf(m_a), 1);
}

void CertificateStoreTest::clearDropsChainsAndRecords()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.addOneCertificate(m_b);
    store.trustInfo(m_a).mark = 5;
    store.clear();
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_a), -1);
    QCOMPARE(&qAsConst(store)[QStringLiteral("Alpha")], &CertificateStore::EMPTY_CHAIN);
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, -1);
    QCOMPARE(store.addOneCertificate(m_b), 0);
    QCOMPARE(store.indexOf(m_b), 0);
    store.clear();
    store.clear();
    QCOMPARE(store.count(), 0);
}

void CertificateStoreTest::freshRecordReadsZeroFourMinusOne()
{
    ScriptedStore store;
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, -1);
    CertTrust& record = store.trustInfo(m_a);
    compareRecord(record, 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, -1);
    record.state = 0xFFFFFFFFU;
    record.accept = vela::AcceptSession;
    record.mark = -7;
    compareRecord(qAsConst(store).trustInfo(m_a), 0xFFFFFFFFU, 2, -7);
    QCOMPARE(&store.trustInfo(m_a), &record);
    compareRecord(qAsConst(store).trustInfo(m_b), 0, 4, -1);
}

void CertificateStoreTest::recordsAreKeyedBySha1Alone()
{
    ScriptedStore store;
    CertTrust& record = store.trustInfo(m_a);
    QCOMPARE(&store.trustInfo(parse(m_alpha.certificatePem())), &record);
    auto* const other = new Relabelled(m_alpha.x509(), false);
    const SslCertificatePtr otherMd5(other);
    other->setMd5Digest("another");
    QCOMPARE(&store.trustInfo(otherMd5), &record);
    other->setSha1Digest("another");
    QVERIFY(&store.trustInfo(otherMd5) != &record);
}

void CertificateStoreTest::recordsOfChainsAreThoseOfEndCertificates()
{
    ScriptedStore store;
    const SslCertificateChain chain = chainOf({m_a, m_r});
    CertTrust& record = store.trustInfo(chain);
    QCOMPARE(&store.trustInfo(m_a), &record);
    record.mark = 9;
    compareRecord(qAsConst(store).trustInfo(chain), 0, 4, 9);
    compareRecord(qAsConst(store).trustInfo(chainOf({m_a})), 0, 4, 9);
    compareRecord(qAsConst(store).trustInfo(chainOf({m_r, m_a})), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(SslCertificateChain()), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(chainOf({SslCertificatePtr(), m_a})), 0, 4, -1);
}

void CertificateStoreTest::recordKeepsWhatWasWrittenWhileOthersComeAndGo()
{
    ScriptedStore store;
    CertTrust& record = store.trustInfo(m_a);
    record.mark = 11;
    const CertTrust copy = qAsConst(store).trustInfo(m_a);
    store.trustInfo(m_b).mark = 12;
    store.trustInfo(m_c).mark = 13;
    store.addOneCertificate(m_a);
    QCOMPARE(&store.trustInfo(m_a), &record);
    record.mark = 14;
    compareRecord(copy, 0, 4, 11);
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, 14);
    compareRecord(qAsConst(store).trustInfo(m_b), 0, 4, 12);
    compareRecord(qAsConst(store).trustInfo(m_c), 0, 4, 13);
}

void CertificateStoreTest::recordSurvivesRemovalButNotClear()
{
    ScriptedStore store;
    store.addOneCertificate(m_a);
    store.trustInfo(m_a).accept = vela::AcceptAlways;
    store.removeCertificate(m_a);
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 3, -1);
    store.addOneCertificate(m_a);
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 3, -1);
    store.clear();
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, -1);
}

void CertificateStoreTest::recordNeedsNoStoredChain()
{
    ScriptedStore store;
    store.trustInfo(m_a).mark = 3;
    compareRecord(qAsConst(store).trustInfo(m_a), 0, 4, 3);
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_a), -1);
}

void CertificateStoreTest::certificateWithoutHandleHasNoReadableRecord()
{
    ScriptedStore store;
    const SslCertificatePtr empty(new SslCertificate);
    store.trustInfo(empty).mark = 3;
    compareRecord(store.trustInfo(SslCertificatePtr(new SslCertificate)), 0, 4, 3);
    compareRecord(qAsConst(store).trustInfo(empty), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(chainOf({empty})), 0, 4, -1);
}

void CertificateStoreTest::nullHasNoReadableRecord()
{
    const ScriptedStore store;
    compareRecord(store.trustInfo(SslCertificatePtr()), 0, 4, -1);
}

void CertificateStoreTest::nameIsFoundExactly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("index");
    QTest::newRow("first") << QStringLiteral("Alpha") << 0;
    QTest::newRow("second") << QStringLiteral("Beta") << 1;
    QTest::newRow("other case") << QStringLiteral("alpha") << -1;
    QTest::newRow("part") << QStringLiteral("Alph") << -1;
    QTest::newRow("longer") << QStringLiteral("Alpha ") << -1;
    QTest::newRow("of a root") << QStringLiteral("Root") << -1;
    QTest::newRow("empty") << QString() << -1;
}

void CertificateStoreTest::nameIsFoundExactly()
{
    QFETCH(QString, name);
    QFETCH(int, index);
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_a, m_r}));
    store.addOneCertificate(m_b);
    const SslCertificateChain& expected =
        index < 0 ? CertificateStore::EMPTY_CHAIN : qAsConst(store)[index];
    QCOMPARE(&qAsConst(store)[name], &expected);
    const SslCertificateChain copy = store[name];
    QCOMPARE(copy.size(), expected.size());
    QCOMPARE(copy.endCert(), expected.endCert());
}

void CertificateStoreTest::firstOfSeveralWithOneNameIsFound()
{
    const QString name = QStringLiteral("Alpha");
    const SslCertificatePtr second = parse(makeNamed(name).certificatePem());
    const SslCertificatePtr third = parse(makeNamed(name).certificatePem());
    ScriptedStore store;
    store.addOneCertificate(m_b);
    store.addOneCertificate(m_a);
    store.addOneCertificate(second);
    store.addOneCertificate(third);
    QCOMPARE(store[name].endCert(), m_a);
    store.removeCertificate(m_a);
    QCOMPARE(store[name].endCert(), second);
    store.addOneCertificate(m_a);
    QCOMPARE(store[name].endCert(), second);
    store.removeCertificate(second);
    QCOMPARE(store[name].endCert(), third);
}

void CertificateStoreTest::emptyNameFindsTheFirstWithout()
{
    const SslCertificatePtr nameless = parse(makeNameless().certificatePem());
    const SslCertificatePtr another = parse(makeNameless().certificatePem());
    QCOMPARE(nameless->subjectCommonName(), QString());
    ScriptedStore store;
    store.addOneCertificate(m_a);
    QCOMPARE(&qAsConst(store)[QString()], &CertificateStore::EMPTY_CHAIN);
    store.addOneCertificate(nameless);
    store.addOneCertificate(another);
    QCOMPARE(store[QString()].endCert(), nameless);
    QCOMPARE(store[QStringLiteral("")].endCert(), nameless);
    QCOMPARE(qAsConst(store)[QStringLiteral("")].endCert(), nameless);
}

void CertificateStoreTest::chainsByIndexAreCopiesOrReferences()
{
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_a, m_r}));
    store.addOneCertificate(m_b);
    SslCertificateChain copy = store[0];
    copy.removeLast();
    const SslCertificateChain& reference = qAsConst(store)[0];
    QCOMPARE(reference.size(), 2);
    QCOMPARE(&qAsConst(store)[0], &reference);
    QCOMPARE(store[1].endCert(), m_b);
    QCOMPARE(&qAsConst(store)[0], &reference);
}

void CertificateStoreTest::chainsByCertificateAreCopiesOrReferences()
{
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_a, m_r}));
    SslCertificateChain copy = store[parse(m_alpha.certificatePem())];
    QCOMPARE(copy.size(), 2);
    copy.removeLast();
    QCOMPARE(&qAsConst(store)[m_a], &qAsConst(store)[0]);
    QCOMPARE(qAsConst(store)[m_a].size(), 2);
    QCOMPARE(&qAsConst(store)[m_b], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(store[m_b].size(), 0);
}

void CertificateStoreTest::unknownCertificateFails()
{
    ScriptedStore store;
    QCOMPARE(store.verify(m_a), vela::VerifyFailed);
    store.addCertificateChain(chainOf({m_b, m_a}));
    QCOMPARE(store.verify(m_a), vela::VerifyFailed);
    QCOMPARE(store.verify(SslCertificatePtr()), vela::VerifyFailed);
    QCOMPARE(store.verify(SslCertificatePtr(new SslCertificate)), vela::VerifyFailed);
    QVERIFY(store.judged.isEmpty());

    vela::GenericCertStore generic(nullptr);
    QCOMPARE(generic.verify(m_a), vela::VerifyFailed);
    generic.addOneCertificate(m_a);
    QCOMPARE(generic.verify(m_a), vela::VerifyUnknown);
}

void CertificateStoreTest::knownCertificateIsJudgedThroughItsChain()
{
    ScriptedStore store;
    store.addOneCertificate(m_b);
    store.addCertificateChain(chainOf({m_a, m_r}));
    QCOMPARE(store.verify(parse(m_alpha.certificatePem())), vela::VerifyExpired);
    QCOMPARE(store.judged.size(), 1);
    QCOMPARE(store.judged.first().size(), 2);
    QCOMPARE(store.judged.first().endCert(), m_a);
    QCOMPARE(store.judged.first().rootCert(), m_r);
    QCOMPARE(store.verify(chainOf({m_c})), vela::VerifyExpired);
    QCOMPARE(store.judged.size(), 2);
}

void CertificateStoreTest::clearedCertificatesAreSkipped()
{
    const QString name = QStringLiteral("Alpha");
    const SslCertificatePtr victim = parse(m_alpha.certificatePem());
    const SslCertificatePtr namesake = parse(makeNamed(name).certificatePem());
    ScriptedStore store;
    store.addOneCertificate(victim);
    store.addOneCertificate(m_b);
    store.addOneCertificate(namesake);
    victim->clear();
    QCOMPARE(store.count(), 3);
    QCOMPARE(store.indexOf(m_a), -1);
    QCOMPARE(store.indexOf(victim), -1);
    QCOMPARE(store.verify(m_a), vela::VerifyFailed);
    QCOMPARE(store.verify(victim), vela::VerifyFailed);
    QVERIFY(store.judged.isEmpty());
    QCOMPARE(store[name].endCert(), namesake);
    QCOMPARE(&qAsConst(store)[QString()], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(store.removeCertificate(m_a), -1);
}

void CertificateStoreTest::clearedCertificateCanBeReplacedAndRemoved()
{
    const SslCertificatePtr victim = parse(m_alpha.certificatePem());
    ScriptedStore store;
    store.addOneCertificate(victim);
    store.addOneCertificate(m_b);
    victim->clear();
    QCOMPARE(store.addOneCertificate(m_a), 2);
    QCOMPARE(store.indexOf(m_a), 2);
    QCOMPARE(store[QStringLiteral("Alpha")].endCert(), m_a);
    QCOMPARE(store.removeCertificate(0), 0);
    QCOMPARE(store.indexOf(m_b), 0);
    QCOMPARE(store.indexOf(m_a), 1);
    QCOMPARE(store[QStringLiteral("Alpha")].endCert(), m_a);
}

void CertificateStoreTest::noOperationEmitsASignal()
{
    ScriptedStore store;
    const QSignalSpy added(&store, &CertificateStore::added);
    const QSignalSpy updated(&store, &CertificateStore::updated);
    const QSignalSpy removed(&store, &CertificateStore::removed);
    const QSignalSpy systemUpdated(&store, &CertificateStore::systemUpdated);
    store.addOneCertificate(m_a);
    store.addCertificateChain(chainOf({m_a, m_r}));
    store.addOneCertificate(m_b);
    store.addOneCertificate(m_c);
    store.trustInfo(m_a).accept = vela::AcceptOnce;
    store.verify(m_a);
    store.removeCertificate(0);
    store.removeCertificate(m_b);
    store.clear();
    QCoreApplication::processEvents();
    QCOMPARE(added.count() + updated.count() + removed.count() + systemUpdated.count(), 0);

    Q_EMIT store.added(m_a);
    Q_EMIT store.updated(m_a);
    Q_EMIT store.removed(m_a);
    Q_EMIT store.systemUpdated();
    QCOMPARE(added.count() + updated.count() + removed.count() + systemUpdated.count(), 4);
}

void CertificateStoreTest::signalsTravelThroughQueuedConnections()
{
    ScriptedStore emitter;
    ScriptedStore relay;
    SslCertificatePtr received;
    connect(&emitter, SIGNAL(added(SslCertificatePtr)), &relay,
                             SIGNAL(removed(SslCertificatePtr)), Qt::QueuedConnection);
    connect(&relay, &CertificateStore::removed,
            [&](SslCertificatePtr certificate) { received = certificate; });
    Q_EMIT emitter.added(m_a);
    QVERIFY(!received);
    QCoreApplication::processEvents();
    QCOMPARE(received, m_a);
}

void CertificateStoreTest::mutexIsRecursive()
{
    vela::RecursiveMutex mutex;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    mutex.unlock();
}

void CertificateStoreTest::destroyedCertificateMayCallBack_data()
{
    QTest::addColumn<int>("operation");
    QTest::newRow("removed") << 0;
    QTest::newRow("replaced") << 1;
    QTest::newRow("cleared") << 2;
}

void CertificateStoreTest::destroyedCertificateMayCallBack()
{
    QFETCH(int, operation);
    ScriptedStore store;
    SslCertificatePtr victim = parse(m_alpha.certificatePem());
    QObject* const object = victim.get();
    store.addOneCertificate(victim);
    store.addOneCertificate(m_b);
    victim.reset();
    QList<int> answers;
    connect(object, &QObject::destroyed, &store, [&] {
        answers << store.indexOf(m_b) << store.addOneCertificate(m_c) << store.indexOf(m_c)
                << store.count();
    });
    const QList<std::function<void()>> operations = {[&] { store.removeCertificate(0); },
                                                     [&] { store.addOneCertificate(m_a); },
                                                     [&] { store.clear(); }};
    const QList<QList<int>> expected = {{0, 1, 1, 2}, {1, 2, 2, 3}, {-1, 0, 0, 1}};
    operations.at(operation)();
    QCOMPARE(answers, expected.at(operation));
    QCOMPARE(store.count(), expected.at(operation).last());
    for (int i = 0; i < store.count(); ++i)
        QCOMPARE(store.indexOf(store[i].endCert()), i);
}

void CertificateStoreTest::globalInstancesAreNullAtStart()
{
    QCOMPARE(sizeof ScriptedStore::gGlobalInstance, 2 * sizeof(CertificateStore*));
    QCOMPARE(ScriptedStore::gGlobalInstance[0], nullptr);
    QCOMPARE(ScriptedStore::gGlobalInstance[1], nullptr);
}

void CertificateStoreTest::destroyedStoreLeavesTheGlobalInstances_data()
{
    QTest::addColumn<bool>("first");
    QTest::addColumn<bool>("second");
    QTest::newRow("neither") << false << false;
    QTest::newRow("the first") << true << false;
    QTest::newRow("the second") << false << true;
    QTest::newRow("both") << true << true;
}

void CertificateStoreTest::destroyedStoreLeavesTheGlobalInstances()
{
    QFETCH(bool, first);
    QFETCH(bool, second);
    ScriptedStore staying;
    auto going = std::make_unique<ScriptedStore>();
    ScriptedStore::gGlobalInstance[0] = first ? going.get() : &staying;
    ScriptedStore::gGlobalInstance[1] = second ? going.get() : &staying;
    going.reset();
    QCOMPARE(ScriptedStore::gGlobalInstance[0], first ? nullptr : &staying);
    QCOMPARE(ScriptedStore::gGlobalInstance[1], second ? nullptr : &staying);
}

QTEST_GUILESS_MAIN(CertificateStoreTest)
#include "tst_certificatestore.moc"

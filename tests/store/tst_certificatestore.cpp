// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedStore.h"

#include <Ferrule/GenericCertStore.h>

#include <QtTest/QtTest>

using namespace test;
using vela::CertificateStore;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

class CertificateStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newStoreHoldsNothing();
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

private:
    const KnownCertificates m_known;
};

void CertificateStoreTest::newStoreHoldsNothing()
{
    const ScriptedStore store;
    QCOMPARE(store.parent(), nullptr);
    QCOMPARE(store.objectName(), QString());
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_known.a), -1);
    QCOMPARE(&store[m_known.a], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(&store[QStringLiteral("Alpha")], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(&store[QString()], &CertificateStore::EMPTY_CHAIN);
    compareRecord(store.trustInfo(m_known.a), 0, 4, -1);
    QCOMPARE(CertificateStore::EMPTY_CHAIN.size(), 0);
}

void CertificateStoreTest::chainsStandInTheOrderOfAdding()
{
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(m_known.b), 0);
    QCOMPARE(store.addCertificateChain(chainOf({m_known.a, m_known.r})), 1);
    QCOMPARE(store.addOneCertificate(m_known.c), 2);
    QCOMPARE(store.count(), 3);
    QCOMPARE(store.indexOf(m_known.b), 0);
    QCOMPARE(store.indexOf(m_known.a), 1);
    QCOMPARE(store.indexOf(m_known.c), 2);
    QCOMPARE(store[0].size(), 1);
    QCOMPARE(store[0].endCert(), m_known.b);
    QCOMPARE(store[1].size(), 2);
    QCOMPARE(store[1].rootCert(), m_known.r);
}

void CertificateStoreTest::chainWithTheSameEndCertificateIsReplacedInPlace()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    store.addOneCertificate(m_known.c);
    const SslCertificatePtr again = parse(m_known.beta.certificatePem());
    QCOMPARE(store.addCertificateChain(chainOf({again, m_known.r})), 1);
    QCOMPARE(store.count(), 3);
    QCOMPARE(store[1].size(), 2);
    QCOMPARE(store[1].endCert(), again);
    QCOMPARE(store.indexOf(m_known.b), 1);
    QCOMPARE(store.indexOf(m_known.c), 2);
    QCOMPARE(store.addOneCertificate(m_known.b), 1);
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
    const QList<SslCertificateChain> chains = {SslCertificateChain(),
                                               chainOf({SslCertificatePtr(), m_known.a}),
                                               chainOf({empty, m_known.a})};
    ScriptedStore store;
    store.addOneCertificate(m_known.b);
    QCOMPARE(store.addCertificateChain(chains.at(kind)), -1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_known.a), -1);
    QCOMPARE(store.indexOf(empty), -1);
}

void CertificateStoreTest::nullCertificateIsRefused()
{
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(SslCertificatePtr()), -1);
    QCOMPARE(store.addOneCertificate(SslCertificatePtr(new SslCertificate)), -1);
    QCOMPARE(store.count(), 0);
    store.addOneCertificate(m_known.a);
    QCOMPARE(store.indexOf(SslCertificatePtr()), -1);
    QCOMPARE(&qAsConst(store)[SslCertificatePtr()], &CertificateStore::EMPTY_CHAIN);
}

void CertificateStoreTest::onlyTheEndCertificateIdentifiesAChain()
{
    ScriptedStore store;
    QCOMPARE(store.addCertificateChain(chainOf({m_known.a, m_known.r})), 0);
    QCOMPARE(store.indexOf(m_known.r), -1);
    QCOMPARE(store.addCertificateChain(chainOf({m_known.b, m_known.r})), 1);
    QCOMPARE(store.addOneCertificate(m_known.r), 2);
    QCOMPARE(store.indexOf(m_known.r), 2);
}

void CertificateStoreTest::certificatesWithEqualFingerprintsAreOne()
{
    const SslCertificatePtr same(new SslCertificate(m_known.alpha.x509(), false));
    auto* const other = new Relabelled(m_known.alpha.x509(), false);
    const SslCertificatePtr otherMd5(other);
    other->setMd5Digest("another");
    ScriptedStore store;
    QCOMPARE(store.addOneCertificate(m_known.a), 0);
    QCOMPARE(store.addOneCertificate(same), 0);
    QCOMPARE(store.addOneCertificate(otherMd5), 1);
    QCOMPARE(store.indexOf(m_known.a), 0);
    QCOMPARE(store.indexOf(otherMd5), 1);
}

void CertificateStoreTest::storedChainMayBeAddedAgain()
{
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    QCOMPARE(store.addCertificateChain(qAsConst(store)[0]), 0);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store[0].size(), 2);
    QCOMPARE(store[0].endCert(), m_known.a);
}

void CertificateStoreTest::removalMovesLaterChainsDown()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    store.addOneCertificate(m_known.c);
    QCOMPARE(store.removeCertificate(0), 0);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store[0].endCert(), m_known.b);
    QCOMPARE(store.indexOf(m_known.b), 0);
    QCOMPARE(store.indexOf(m_known.c), 1);
    QCOMPARE(store.indexOf(m_known.a), -1);
    QCOMPARE(store.removeCertificate(1), 1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_known.b), 0);
}

void CertificateStoreTest::removalOutOfRangeChangesNothing()
{
    ScriptedStore store;
    QCOMPARE(store.removeCertificate(0), -1);
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    QCOMPARE(store.removeCertificate(store.count()), -1);
    QCOMPARE(store.removeCertificate(-1), -1);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.indexOf(m_known.b), 1);
}

void CertificateStoreTest::removalByCertificate()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    QCOMPARE(store.removeCertificate(m_known.c), -1);
    QCOMPARE(store.removeCertificate(SslCertificatePtr()), -1);
    QCOMPARE(store.count(), 2);
    QCOMPARE(store.removeCertificate(parse(m_known.beta.certificatePem())), 1);
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(m_known.a), 0);
}

void CertificateStoreTest::removedCertificateIsAppendedWhenItComesAgain()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    store.removeCertificate(0);
    QCOMPARE(store.addOneCertificate(m_known.a), 1);
    QCOMPARE(store.indexOf(m_known.b), 0);
    QCOMPARE(store.indexOf(m_known.a), 1);
}

void CertificateStoreTest::clearDropsChainsAndRecords()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(m_known.b);
    store.trustInfo(m_known.a).mark = 5;
    store.clear();
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_known.a), -1);
    QCOMPARE(&qAsConst(store)[QStringLiteral("Alpha")], &CertificateStore::EMPTY_CHAIN);
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, -1);
    QCOMPARE(store.addOneCertificate(m_known.b), 0);
    QCOMPARE(store.indexOf(m_known.b), 0);
    store.clear();
    store.clear();
    QCOMPARE(store.count(), 0);
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
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    store.addOneCertificate(m_known.b);
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
    store.addOneCertificate(m_known.b);
    store.addOneCertificate(m_known.a);
    store.addOneCertificate(second);
    store.addOneCertificate(third);
    QCOMPARE(store[name].endCert(), m_known.a);
    store.removeCertificate(m_known.a);
    QCOMPARE(store[name].endCert(), second);
    store.addOneCertificate(m_known.a);
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
    store.addOneCertificate(m_known.a);
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
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    store.addOneCertificate(m_known.b);
    SslCertificateChain copy = store[0];
    copy.removeLast();
    const SslCertificateChain& reference = qAsConst(store)[0];
    QCOMPARE(reference.size(), 2);
    QCOMPARE(&qAsConst(store)[0], &reference);
    QCOMPARE(store[1].endCert(), m_known.b);
    QCOMPARE(&qAsConst(store)[0], &reference);
}

void CertificateStoreTest::chainsByCertificateAreCopiesOrReferences()
{
    ScriptedStore store;
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    SslCertificateChain copy = store[parse(m_known.alpha.certificatePem())];
    QCOMPARE(copy.size(), 2);
    copy.removeLast();
    QCOMPARE(&qAsConst(store)[m_known.a], &qAsConst(store)[0]);
    QCOMPARE(qAsConst(store)[m_known.a].size(), 2);
    QCOMPARE(&qAsConst(store)[m_known.b], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(store[m_known.b].size(), 0);
}

void CertificateStoreTest::unknownCertificateFails()
{
    ScriptedStore store;
    QCOMPARE(store.verify(m_known.a), vela::VerifyFailed);
    store.addCertificateChain(chainOf({m_known.b, m_known.a}));
    QCOMPARE(store.verify(m_known.a), vela::VerifyFailed);
    QCOMPARE(store.verify(SslCertificatePtr()), vela::VerifyFailed);
    QCOMPARE(store.verify(SslCertificatePtr(new SslCertificate)), vela::VerifyFailed);
    QVERIFY(store.judged.isEmpty());

    vela::GenericCertStore generic(nullptr);
    QCOMPARE(generic.verify(m_known.a), vela::VerifyFailed);
    generic.addOneCertificate(m_known.a);
    QCOMPARE(generic.verify(m_known.a), vela::VerifyUnknown);
}

void CertificateStoreTest::knownCertificateIsJudgedThroughItsChain()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.b);
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    QCOMPARE(store.verify(parse(m_known.alpha.certificatePem())), vela::VerifyExpired);
    QCOMPARE(store.judged.size(), 1);
    QCOMPARE(store.judged.first().size(), 2);
    QCOMPARE(store.judged.first().endCert(), m_known.a);
    QCOMPARE(store.judged.first().rootCert(), m_known.r);
    QCOMPARE(store.verify(chainOf({m_known.c})), vela::VerifyExpired);
    QCOMPARE(store.judged.size(), 2);
}

void CertificateStoreTest::clearedCertificatesAreSkipped()
{
    const QString name = QStringLiteral("Alpha");
    const SslCertificatePtr victim = parse(m_known.alpha.certificatePem());
    const SslCertificatePtr namesake = parse(makeNamed(name).certificatePem());
    ScriptedStore store;
    store.addOneCertificate(victim);
    store.addOneCertificate(m_known.b);
    store.addOneCertificate(namesake);
    victim->clear();
    QCOMPARE(store.count(), 3);
    QCOMPARE(store.indexOf(m_known.a), -1);
    QCOMPARE(store.indexOf(victim), -1);
    QCOMPARE(store.verify(m_known.a), vela::VerifyFailed);
    QCOMPARE(store.verify(victim), vela::VerifyFailed);
    QVERIFY(store.judged.isEmpty());
    QCOMPARE(store[name].endCert(), namesake);
    QCOMPARE(&qAsConst(store)[QString()], &CertificateStore::EMPTY_CHAIN);
    QCOMPARE(store.removeCertificate(m_known.a), -1);
}

void CertificateStoreTest::clearedCertificateCanBeReplacedAndRemoved()
{
    const SslCertificatePtr victim = parse(m_known.alpha.certificatePem());
    ScriptedStore store;
    store.addOneCertificate(victim);
    store.addOneCertificate(m_known.b);
    victim->clear();
    QCOMPARE(store.addOneCertificate(m_known.a), 2);
    QCOMPARE(store.indexOf(m_known.a), 2);
    QCOMPARE(store[QStringLiteral("Alpha")].endCert(), m_known.a);
    QCOMPARE(store.removeCertificate(0), 0);
    QCOMPARE(store.indexOf(m_known.b), 0);
    QCOMPARE(store.indexOf(m_known.a), 1);
    QCOMPARE(store[QStringLiteral("Alpha")].endCert(), m_known.a);
}

QTEST_GUILESS_MAIN(CertificateStoreTest)
#include "tst_certificatestore.moc"

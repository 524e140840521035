// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedStore.h"

#include <QtTest/QtTest>

#include <cstddef>

using namespace test;
using vela::CertificateStore;
using vela::CertTrust;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

class TrustRecordsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void trustRecordIsThreeWordsOf32Bits();
    void freshRecordReadsZeroFourMinusOne();
    void recordsAreKeyedBySha1Alone();
    void recordsOfChainsAreThoseOfEndCertificates();
    void recordKeepsWhatWasWrittenWhileOthersComeAndGo();
    void recordSurvivesRemovalButNotClear();
    void recordNeedsNoStoredChain();
    void certificateWithoutHandleHasNoReadableRecord();
    void nullHasNoReadableRecord();

private:
    const KnownCertificates m_known;
};

void TrustRecordsTest::trustRecordIsThreeWordsOf32Bits()
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

void TrustRecordsTest::freshRecordReadsZeroFourMinusOne()
{
    ScriptedStore store;
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, -1);
    CertTrust& record = store.trustInfo(m_known.a);
    compareRecord(record, 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, -1);
    record.state = 0xFFFFFFFFU;
    record.accept = vela::AcceptSession;
    record.mark = -7;
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0xFFFFFFFFU, 2, -7);
    QCOMPARE(&store.trustInfo(m_known.a), &record);
    compareRecord(qAsConst(store).trustInfo(m_known.b), 0, 4, -1);
}

void TrustRecordsTest::recordsAreKeyedBySha1Alone()
{
    ScriptedStore store;
    CertTrust& record = store.trustInfo(m_known.a);
    QCOMPARE(&store.trustInfo(parse(m_known.alpha.certificatePem())), &record);
    auto* const other = new Relabelled(m_known.alpha.x509(), false);
    const SslCertificatePtr otherMd5(other);
    other->setMd5Digest("another");
    QCOMPARE(&store.trustInfo(otherMd5), &record);
    other->setSha1Digest("another");
    QVERIFY(&store.trustInfo(otherMd5) != &record);
}

void TrustRecordsTest::recordsOfChainsAreThoseOfEndCertificates()
{
    ScriptedStore store;
    const SslCertificateChain chain = chainOf({m_known.a, m_known.r});
    CertTrust& record = store.trustInfo(chain);
    QCOMPARE(&store.trustInfo(m_known.a), &record);
    record.mark = 9;
    compareRecord(qAsConst(store).trustInfo(chain), 0, 4, 9);
    compareRecord(qAsConst(store).trustInfo(chainOf({m_known.a})), 0, 4, 9);
    compareRecord(qAsConst(store).trustInfo(chainOf({m_known.r, m_known.a})), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(SslCertificateChain()), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(chainOf({SslCertificatePtr(), m_known.a})), 0, 4, -1);
}

void TrustRecordsTest::recordKeepsWhatWasWrittenWhileOthersComeAndGo()
{
    ScriptedStore store;
    CertTrust& record = store.trustInfo(m_known.a);
    record.mark = 11;
    const CertTrust copy = qAsConst(store).trustInfo(m_known.a);
    store.trustInfo(m_known.b).mark = 12;
    store.trustInfo(m_known.c).mark = 13;
    store.addOneCertificate(m_known.a);
    QCOMPARE(&store.trustInfo(m_known.a), &record);
    record.mark = 14;
    compareRecord(copy, 0, 4, 11);
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, 14);
    compareRecord(qAsConst(store).trustInfo(m_known.b), 0, 4, 12);
    compareRecord(qAsConst(store).trustInfo(m_known.c), 0, 4, 13);
}

void TrustRecordsTest::recordSurvivesRemovalButNotClear()
{
    ScriptedStore store;
    store.addOneCertificate(m_known.a);
    store.trustInfo(m_known.a).accept = vela::AcceptAlways;
    store.removeCertificate(m_known.a);
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 3, -1);
    store.addOneCertificate(m_known.a);
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 3, -1);
    store.clear();
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, -1);
}

void TrustRecordsTest::recordNeedsNoStoredChain()
{
    ScriptedStore store;
    store.trustInfo(m_known.a).mark = 3;
    compareRecord(qAsConst(store).trustInfo(m_known.a), 0, 4, 3);
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.indexOf(m_known.a), -1);
}

void TrustRecordsTest::certificateWithoutHandleHasNoReadableRecord()
{
    ScriptedStore store;
    const SslCertificatePtr empty(new SslCertificate);
    store.trustInfo(empty).mark = 3;
    compareRecord(store.trustInfo(SslCertificatePtr(new SslCertificate)), 0, 4, 3);
    compareRecord(qAsConst(store).trustInfo(empty), 0, 4, -1);
    compareRecord(qAsConst(store).trustInfo(chainOf({empty})), 0, 4, -1);
}

void TrustRecordsTest::nullHasNoReadableRecord()
{
    const ScriptedStore store;
    compareRecord(store.trustInfo(SslCertificatePtr()), 0, 4, -1);
}

QTEST_GUILESS_MAIN(TrustRecordsTest)
#include "tst_trustrecords.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedSystem.h"

#include <QtTest/QtTest>

#include <memory>

using namespace test;
using vela::CertificateStore;

class CertificateStoreInstancesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void processHasOneStoreForEachPurpose();
    void storesAreSystemStores();
    void storeIsMadeByTheFirstCall();
    void deletedStoreIsReplaced();
    void deletingOneLeavesTheOther();
    void newStoreIsTheCallersAlone();

private:
    std::unique_ptr<ScriptedSystem> m_system;
};

void CertificateStoreInstancesTest::init()
{
    m_system = std::make_unique<ScriptedSystem>();
}

void CertificateStoreInstancesTest::cleanup()
{
    delete CertificateStore::sslCertStore();
    delete CertificateStore::signCertStore();
    m_system.reset();
}

void CertificateStoreInstancesTest::processHasOneStoreForEachPurpose()
{
    CertificateStore* const ssl = CertificateStore::sslCertStore();
    CertificateStore* const sign = CertificateStore::signCertStore();
    QVERIFY(ssl && sign && ssl != sign);
    QCOMPARE(CertificateStore::sslCertStore(), ssl);
    QCOMPARE(CertificateStore::signCertStore(), sign);
    QCOMPARE(ssl->objectName(), QStringLiteral("SSL Certificate Store"));
    QCOMPARE(sign->objectName(), QStringLiteral("Signature Certificate Store"));
    QVERIFY(!ssl->parent());
    QVERIFY(!sign->parent());
}

void CertificateStoreInstancesTest::storesAreSystemStores()
{
    QVERIFY(qobject_cast<vela::WinCertStore*>(CertificateStore::sslCertStore()));
    QVERIFY(qobject_cast<vela::WinCertStore*>(CertificateStore::signCertStore()));
    const std::unique_ptr<CertificateStore> store(CertificateStore::newCertStore());
    QVERIFY(qobject_cast<vela::WinCertStore*>(store.get()));
    m_system->platform.setReport({CERT_TRUST_IS_NOT_TIME_VALID, 0, {}});
    QCOMPARE(store->verify(wrapAll({m_system->certificates.leaf})), vela::VerifyExpired);
}

void CertificateStoreInstancesTest::storeIsMadeByTheFirstCall()
{
    QCOMPARE(m_system->platform.takeCalls(), QStringList());
    CertificateStore::signCertStore();
    QCOMPARE(m_system->platform.takeCalls().size(), 6);
    CertificateStore::signCertStore();
    QCOMPARE(m_system->platform.takeCalls(), QStringList());
}

void CertificateStoreInstancesTest::deletedStoreIsReplaced()
{
    CertificateStore* const first = CertificateStore::sslCertStore();
    first->addOneCertificate(wrap(m_system->certificates.leaf));
    delete first;
    CertificateStore* const second = CertificateStore::sslCertStore();
    QCOMPARE(second->objectName(), QStringLiteral("SSL Certificate Store"));
    QCOMPARE(second->count(), 0);
    QCOMPARE(CertificateStore::sslCertStore(), second);

    delete CertificateStore::signCertStore();
    QCOMPARE(CertificateStore::signCertStore()->objectName(),
             QStringLiteral("Signature Certificate Store"));
}

void CertificateStoreInstancesTest::deletingOneLeavesTheOther()
{
    CertificateStore* const sign = CertificateStore::signCertStore();
    delete CertificateStore::sslCertStore();
    QCOMPARE(CertificateStore::signCertStore(), sign);
}

void CertificateStoreInstancesTest::newStoreIsTheCallersAlone()
{
    CertificateStore* const ssl = CertificateStore::sslCertStore();
    const std::unique_ptr<CertificateStore> first(CertificateStore::newCertStore());
    const std::unique_ptr<CertificateStore> second(CertificateStore::newCertStore());
    QVERIFY(first != second);
    QVERIFY(first.get() != ssl);
    QCOMPARE(first->objectName(), QString());
    QVERIFY(!first->parent());
    QCOMPARE(CertificateStore::sslCertStore(), ssl);
}

QTEST_GUILESS_MAIN(CertificateStoreInstancesTest)
#include "tst_certificatestoreinstances.moc"

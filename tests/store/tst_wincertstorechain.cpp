// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedSystem.h"

#include <QtTest/QtTest>

using namespace test;

class WinCertStoreChainTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullGivesAnEmptyChain();
    void reportWithoutChainsGivesAnEmptyChain();
    void certificatesOfAllChainsComeInOrder();
    void chainOutlivesTheReport();
    void undecodableElementIsAnEmptyCertificate();
};

void WinCertStoreChainTest::nullGivesAnEmptyChain()
{
    const ScriptedSystem system;
    ExposedStore store;
    QCOMPARE(store.toCertChain(nullptr).size(), 0);
}

void WinCertStoreChainTest::reportWithoutChainsGivesAnEmptyChain()
{
    const ScriptedSystem system;
    ExposedStore store;
    QCOMPARE(store.toCertChain(ScriptedChain({0, 0, {}}).get()).size(), 0);
    QCOMPARE(store.toCertChain(ScriptedChain({0, 0, {{0, {}}}}).get()).size(), 0);
}

void WinCertStoreChainTest::certificatesOfAllChainsComeInOrder()
{
    const ScriptedSystem system;
    const TestChain& made = system.certificates;
    ExposedStore store;
    const ScriptedChain context(
        {0, 0, {{0, {{0, made.leaf.der()}, {0, made.middle.der()}}}, {0, {{0, made.root.der()}}}}});
    const vela::SslCertificateChain chain = store.toCertChain(context.get());
    QVERIFY(chain == wrapAll({made.leaf, made.middle, made.root}));
    QCOMPARE(chain.endCert()->subjectCommonName(), QStringLiteral("localhost"));
    QCOMPARE(chain.rootCert()->subjectCommonName(), QStringLiteral("root"));
}

void WinCertStoreChainTest::chainOutlivesTheReport()
{
    ScriptedSystem system;
    vela::SslCertificateChain chain;
    {
        ExposedStore store;
        system.platform.setReport({0, 0, {{0, {{0, system.certificates.leaf.der()}}}}});
        const auto context = store.createWinCryptChain(wrapAll({system.certificates.leaf}));
        chain = store.toCertChain(context);
        system.platform.freeCertificateChain(context);
    }
    QCOMPARE(chain.size(), 1);
    QCOMPARE(vela::SslCertificate::encodeDer(chain.endCert()->x509()),
             system.certificates.leaf.der());
}

void WinCertStoreChainTest::undecodableElementIsAnEmptyCertificate()
{
    const ScriptedSystem system;
    ExposedStore store;
    const ScriptedChain context(
        {0, 0, {{0, {{0, system.certificates.leaf.der()}, {0, QByteArray("garbage")}}}}});
    const vela::SslCertificateChain chain = store.toCertChain(context.get());
    QCOMPARE(chain.size(), 2);
    QVERIFY(!chain.at(0)->isEmpty());
    QVERIFY(chain.at(1)->isEmpty());
}

QTEST_GUILESS_MAIN(WinCertStoreChainTest)
#include "tst_wincertstorechain.moc"

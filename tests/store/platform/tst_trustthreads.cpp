// SPDX-License-Identifier: BSD-3-Clause

/*
    The Linux trust platform under several threads at once. Most of what this test has to say it
    says through the thread sanitizer.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "SignalCounter.h"
#include "TrustedRoots.h"

#include <QtTest/QtTest>

#include <functional>
#include <future>
#include <vector>

using test::authorityPlan;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

constexpr int THREADS = 4;
constexpr int ROUNDS = 40;

//! Runs \a round ROUNDS times in each of THREADS threads; returns how often it returned false.
int failuresOf(const std::function<bool()>& round)
{
    std::vector<std::future<int>> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.push_back(std::async(std::launch::async, [&round] {
            int failures = 0;
            for (int j = 0; j < ROUNDS; ++j)
                failures += round() ? 0 : 1;
            return failures;
        }));
    }
    int failures = 0;
    for (std::future<int>& thread : threads)
        failures += thread.get();
    return failures;
}

} // namespace

class TrustThreadsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void oneEngineVerifiesInSeveralThreads();
    void eachThreadHasAnEngineOfItsOwn();
    void issuersAreAddedMeanwhile();
    void rootsChangeMeanwhile();
    void storesComeAndGo();

private:
    QByteArray m_root;
    QByteArray m_intermediate;
    QByteArray m_leaf;
};

void TrustThreadsTest::initTestCase()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    m_root = root.der();
    m_intermediate = intermediate.der();
    m_leaf = PlannedCertificate(leafPlan(QStringLiteral("leaf")), &intermediate).der();
}

void TrustThreadsTest::oneEngineVerifiesInSeveralThreads()
{
    test::TrustedRoots roots;
    roots.setRoots({m_root});
    test::ChainClient client;
    client.add(m_intermediate);
    QCOMPARE(failuresOf([&] { return client.ask(m_leaf).errors == CERT_TRUST_NO_ERROR; }), 0);
}

void TrustThreadsTest::eachThreadHasAnEngineOfItsOwn()
{
    test::TrustedRoots roots;
    roots.setRoots({m_root});
    QCOMPARE(failuresOf([this] {
                 test::ChainClient client;
                 client.add(m_intermediate);
                 return client.ask(m_leaf).errors == CERT_TRUST_NO_ERROR;
             }),
             0);
}

void TrustThreadsTest::issuersAreAddedMeanwhile()
{
    test::TrustedRoots roots;
    roots.setRoots({m_root});
    test::ChainClient client;
    QCOMPARE(failuresOf([&] {
                 client.add(m_intermediate);
                 return client.ask(m_leaf).errors == CERT_TRUST_NO_ERROR;
             }),
             0);
}

void TrustThreadsTest::rootsChangeMeanwhile()
{
    test::TrustedRoots roots;
    roots.setRoots({m_root});
    std::atomic<bool> isOver{false};
    auto changes = std::async(std::launch::async, [&] {
        while (!isOver) {
            roots.setRoots({m_intermediate});
            roots.setRoots({m_root});
        }
    });
    // Either of the two leads to a trusted certificate.
    const int failures = failuresOf([this] {
        test::ChainClient client;
        client.add(m_intermediate);
        return client.ask(m_leaf).errors == CERT_TRUST_NO_ERROR;
    });
    isOver = true;
    changes.get();
    QCOMPARE(failures, 0);
}

void TrustThreadsTest::storesComeAndGo()
{
    test::TrustedRoots roots;
    roots.setRoots({m_root});
    test::WatchedStore lasting;
    QCOMPARE(failuresOf([] {
                 test::WatchedStore store;
                 store.resynchronise();
                 return true;
             }),
             0);
    roots.setRoots({m_intermediate});
    QVERIFY(lasting.waitFor(1));
}

QTEST_GUILESS_MAIN(TrustThreadsTest)
#include "tst_trustthreads.moc"

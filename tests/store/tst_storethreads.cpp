// SPDX-License-Identifier: BSD-3-Clause
#include "StoreCertificates.h"

#include <Ferrule/GenericCertStore.h>

#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <future>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

using namespace test;
using vela::GenericCertStore;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

constexpr int THREADS = 8;
constexpr int CERTIFICATES = 40;
constexpr int ROUNDS = 2000;

//! Runs \a work(thread) on all threads at once and returns what it counted.
QList<int> runOnThreads(const std::function<int(int)>& work)
{
    std::atomic<int> waiting{THREADS};
    std::vector<std::future<int>> futures;
    for (int thread = 0; thread < THREADS; ++thread) {
        futures.push_back(std::async(std::launch::async, [&waiting, &work, thread] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            return work(thread);
        }));
    }
    QList<int> results;
    for (std::future<int>& future : futures)
        results.append(future.get());
    return results;
}

} // namespace

class StoreThreadsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void chainsAddedAtOnceAreStoredOnce();
    void chainsRemovedAtOnceAreRemovedOnce();
    void everyChangeAtOnceLeavesAWholeStore();

private:
    void checkWhole(const GenericCertStore& store) const;

    QList<QByteArray> m_pems;
    QList<SslCertificatePtr> m_certificates;
};

void StoreThreadsTest::initTestCase()
{
    for (int i = 0; i < CERTIFICATES; ++i) {
        m_pems.append(makeNamed(QStringLiteral("Name %1").arg(i % 4)).certificatePem());
        m_certificates.append(parse(m_pems.last()));
    }
}

//! The store holds no certificate twice and finds each where it stands, by both ways.
void StoreThreadsTest::checkWhole(const GenericCertStore& store) const
{
    for (int i = 0; i < store.count(); ++i) {
        QCOMPARE(store.indexOf(store[i].endCert()), i);
        const SslCertificateChain& namesake = store[store[i].endCert()->subjectCommonName()];
        const int first = store.indexOf(namesake.endCert());
        QVERIFY(first >= 0 && first <= i);
    }
    for (const SslCertificatePtr& certificate : m_certificates) {
        const int index = store.indexOf(certificate);
        QCOMPARE(&store[certificate],
                 index < 0 ? &GenericCertStore::EMPTY_CHAIN : &qAsConst(store)[index]);
    }
}

void StoreThreadsTest::chainsAddedAtOnceAreStoredOnce()
{
    GenericCertStore store(nullptr);
    const QList<int> failures = runOnThreads([&](int thread) {
        int failed = 0;
        for (int i = 0; i < CERTIFICATES; ++i) {
            const int number = (i * (2 * thread + 1)) % CERTIFICATES;
            // Half of the objects are the thread's own.
            const SslCertificatePtr certificate =
                thread % 2 ? m_certificates.at(number) : parse(m_pems.at(number));
            const int index = store.addOneCertificate(certificate);
            failed += index < 0 || index >= CERTIFICATES ? 1 : 0;
        }
        return failed;
    });
    QCOMPARE(failures.count(0), THREADS);
    QCOMPARE(store.count(), CERTIFICATES);
    checkWhole(store);
}

void StoreThreadsTest::chainsRemovedAtOnceAreRemovedOnce()
{
    GenericCertStore store(nullptr);
    for (const SslCertificatePtr& certificate : qAsConst(m_certificates))
        store.addOneCertificate(certificate);
    const QList<int> removed = runOnThreads([&](int) {
        int count = 0;
        while (store.removeCertificate(0) == 0)
            ++count;
        return count;
    });
    QCOMPARE(std::accumulate(removed.begin(), removed.end(), 0), CERTIFICATES);
    QCOMPARE(store.count(), 0);
    checkWhole(store);
}

void StoreThreadsTest::everyChangeAtOnceLeavesAWholeStore()
{
    GenericCertStore store(nullptr);
    const QList<int> failures = runOnThreads([&](int thread) {
        std::mt19937 generator(static_cast<unsigned int>(thread));
        int failed = 0;
        for (int round = 0; round < ROUNDS; ++round) {
            const int number = static_cast<int>(generator() % CERTIFICATES);
            const SslCertificatePtr& certificate = m_certificates.at(number);
            const unsigned int action = static_cast<unsigned int>(generator() % 64);
            if (action == 0) {
                store.clear();
            } else if (action < 9) {
                const int index = store.removeCertificate(number);
                failed += index == -1 || index == number ? 0 : 1;
            } else if (action < 12) {
                failed += store.addOneCertificate(parse(m_pems.at(number))) < 0 ? 1 : 0;
            } else {
                const SslCertificateChain chain = chainOf({certificate, m_certificates.first()});
                failed += store.addCertificateChain(chain) < 0 ? 1 : 0;
            }
        }
        return failed;
    });
    QCOMPARE(failures.count(0), THREADS);
    checkWhole(store);
    store.clear();
    QCOMPARE(store.count(), 0);
    QCOMPARE(store.addOneCertificate(m_certificates.first()), 0);
    checkWhole(store);
}

QTEST_GUILESS_MAIN(StoreThreadsTest)
#include "tst_storethreads.moc"

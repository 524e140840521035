// SPDX-License-Identifier: BSD-3-Clause
// Whose callbacks an engine locks with that cannot lock by itself.
#include "support/OpenSslLocking.h"

#include <QtTest/QtTest>

#include <openssl/crypto.h>

using vela::installOpenSslLocking;
using vela::removeOpenSslLocking;

namespace {

using LockingCallback = void (*)(int, int, const char*, int);

constexpr int LOCK = CRYPTO_LOCK_RSA_BLINDING; // Of no concern to anything else here.

int hostsCalls;

void hostsLocking(int, int, const char*, int)
{
    ++hostsCalls;
}

unsigned long hostsThreadId()
{
    return 4711;
}

LockingCallback installed()
{
    return CRYPTO_get_locking_callback();
}

} // namespace

class OpenSslLockingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void locksAreOursWhereThereAreNone();
    void locksOfTheHostStayInUse();
    void threadIdsOfTheHostStayInUse();
    void locksThatReplacedOursAreLeftAlone();
    void heldLocksOutliveTheEnd();
    void locksCanBeHadAgain();
};

void OpenSslLockingTest::init()
{
    CRYPTO_set_locking_callback(nullptr);
    CRYPTO_set_id_callback(nullptr);
    hostsCalls = 0;
}

void OpenSslLockingTest::locksAreOursWhereThereAreNone()
{
    installOpenSslLocking();
    QVERIFY(installed());
    QVERIFY(CRYPTO_get_id_callback());
    removeOpenSslLocking();
    QVERIFY(!installed());
    QVERIFY(!CRYPTO_get_id_callback());
}

// The host holds a lock while the library is loaded and releases it after it has gone.
void OpenSslLockingTest::locksOfTheHostStayInUse()
{
    CRYPTO_set_locking_callback(hostsLocking);
    CRYPTO_w_lock(LOCK);
    installOpenSslLocking();
    QVERIFY(installed() == hostsLocking);
    QVERIFY(!CRYPTO_get_id_callback());
    removeOpenSslLocking();
    QVERIFY(installed() == hostsLocking);
    CRYPTO_w_unlock(LOCK);
    QCOMPARE(hostsCalls, 2);
}

void OpenSslLockingTest::threadIdsOfTheHostStayInUse()
{
    CRYPTO_set_id_callback(hostsThreadId);
    installOpenSslLocking();
    QVERIFY(installed());
    QVERIFY(CRYPTO_get_id_callback() == hostsThreadId);
    removeOpenSslLocking();
    QVERIFY(!installed());
    QVERIFY(CRYPTO_get_id_callback() == hostsThreadId);
}

void OpenSslLockingTest::locksThatReplacedOursAreLeftAlone()
{
    installOpenSslLocking();
    CRYPTO_set_locking_callback(hostsLocking);
    removeOpenSslLocking();
    QVERIFY(installed() == hostsLocking);
}

void OpenSslLockingTest::heldLocksOutliveTheEnd()
{
    installOpenSslLocking();
    const LockingCallback ours = installed();
    CRYPTO_w_lock(LOCK);
    removeOpenSslLocking();
    QVERIFY(installed() == ours);
    CRYPTO_w_unlock(LOCK);
    removeOpenSslLocking();
    QVERIFY(!installed());
}

void OpenSslLockingTest::locksCanBeHadAgain()
{
    for (int round = 0; round < 2; ++round) {
        installOpenSslLocking();
        CRYPTO_w_lock(LOCK);
        CRYPTO_w_unlock(LOCK);
        removeOpenSslLocking();
    }
    QVERIFY(!installed());
}

QTEST_GUILESS_MAIN(OpenSslLockingTest)
#include "tst_openssllocking.moc"

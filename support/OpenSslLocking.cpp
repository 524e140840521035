// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslLocking.h"

#include "support/OpenSslCompat.h"
#include "support/ThreadAnnotations.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QMutex>
#include <QtCore/QThread>

#include <openssl/crypto.h>

#include <atomic>
#include <memory>

namespace vela {

namespace {

// Locks are held for moments. Who holds one much longer will not release it before we go.
constexpr int LONGEST_WAIT_MSECS = 250;

using LockSlot = std::atomic<QMutex*>;

std::atomic<LockSlot*> lockTable{nullptr};

// Guards the table's allocation and the creation of its mutexes. Made on first use and left to the
// process: OpenSSL may call during the static initialisation of any library.
QMutex& lockTableGuard()
{
    static QMutex* const guard = new QMutex;
    return *guard;
}

LockSlot* fetchLockTable()
{
    LockSlot* table = lockTable.load(std::memory_order_acquire);
    if (table)
        return table;
    const QMutexLocker locker(&lockTableGuard());
    table = lockTable.load(std::memory_order_relaxed);
    if (!table) {
        table = new LockSlot[static_cast<std::size_t>(CRYPTO_num_locks())]();
        lockTable.store(table, std::memory_order_release);
    }
    return table;
}

QMutex* fetchLock(int number)
{
    LockSlot& slot = fetchLockTable()[number];
    QMutex* lock = slot.load(std::memory_order_acquire);
    if (lock)
        return lock;
    const QMutexLocker locker(&lockTableGuard());
    lock = slot.load(std::memory_order_relaxed);
    if (!lock) {
        lock = new QMutex;
        slot.store(lock, std::memory_order_release);
    }
    return lock;
}

void lockingCallback(int mode, int number, const char*, int)
{
    QMutex* lock = fetchLock(number);
    if (mode & CRYPTO_LOCK) {
        lock->lock();
        annotateAcquire(lock);
    } else {
        annotateRelease(lock);
        lock->unlock();
    }
}

unsigned long threadIdCallback()
{
    return static_cast<unsigned long>(reinterpret_cast<quintptr>(QThread::currentThreadId()));
}

//! Holds all locks that there are, as soon as nobody else does; fewer when that takes too long.
class AllLocks
{
public:
    explicit AllLocks(LockSlot* table)
        : m_table(table)
    {
        const QDeadlineTimer deadline(LONGEST_WAIT_MSECS);
        for (; m_count < CRYPTO_num_locks(); ++m_count) {
            QMutex* const lock = m_table[m_count].load();
            if (lock && !lock->tryLock(static_cast<int>(deadline.remainingTime())))
                return;
        }
    }

    ~AllLocks()
    {
        while (m_count > 0) {
            if (QMutex* const lock = m_table[--m_count].load())
                lock->unlock();
        }
    }

    bool areHeld() const { return m_count == CRYPTO_num_locks(); }

private:
    Q_DISABLE_COPY(AllLocks)

    LockSlot* m_table;
    int m_count = 0;
};

//! Withdraws the callbacks, where they are ours, at a moment at which nobody holds a lock.
bool withdrawCallbacks(LockSlot* table)
{
    const AllLocks locks(table);
    if (!locks.areHeld())
        return false;
    withdrawOpenSslCallbacks(lockingCallback, threadIdCallback);
    return true;
}

} // namespace

void installOpenSslLocking()
{
    installOpenSslCallbacks(lockingCallback, threadIdCallback);
}

void removeOpenSslLocking()
{
    const QMutexLocker locker(&lockTableGuard());
    LockSlot* const table = lockTable.load();
    if (!table) {
        withdrawOpenSslCallbacks(lockingCallback, threadIdCallback);
        return;
    }
    if (!withdrawCallbacks(table))
        return; // Whoever holds a lock is going to release it, and needs it for that.
    lockTable.store(nullptr);
    const std::unique_ptr<LockSlot[]> owned(table);
    for (int number = 0; number < CRYPTO_num_locks(); ++number)
        delete table[number].load();
}

} // namespace vela

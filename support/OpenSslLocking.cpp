// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslLocking.h"

#include "support/OpenSslCompat.h"
#include "support/ThreadAnnotations.h"

#include <QtCore/QMutex>
#include <QtCore/QThread>

#include <openssl/crypto.h>

#include <atomic>
#include <memory>

namespace vela {

namespace {

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

} // namespace

void installOpenSslLocking()
{
    installOpenSslCallbacks(lockingCallback, threadIdCallback);
}

void removeOpenSslLocking()
{
    withdrawOpenSslCallbacks(lockingCallback, threadIdCallback);
    const std::unique_ptr<LockSlot[]> table(lockTable.exchange(nullptr));
    if (!table)
        return;
    for (int number = 0; number < CRYPTO_num_locks(); ++number)
        delete table[static_cast<std::size_t>(number)].load();
}

} // namespace vela

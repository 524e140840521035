// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SessionCache.h"

#include "socket/ConnectionSession.h"
#include "socket/SessionPool.h"
#include "socket/SslContext.h"
#include "support/OpenSslCompat.h"

#include <QtCore/QDebug>
#include <QtCore/QElapsedTimer>

#include <atomic>
#include <ctime>
#include <mutex>
#include <set>

namespace vela {

namespace {

constexpr long SESSION_TIMEOUT_SECONDS = 600;
constexpr int LINES_AT_ONCE = 64;
constexpr std::size_t EXPIRED_AT_ONCE = 64;

using Lock = std::lock_guard<RecursiveMutex>;

//! When sessions in the cache end, each second once. Never destroyed: OpenSSL's cache is not
//! either.
struct Calendar
{
    RecursiveMutex mutex;
    std::set<std::time_t> ends;
    QElapsedTimer sinceTidied;
};

Calendar& calendar()
{
    static auto* const instance = new Calendar;
    return *instance;
}

std::atomic<int> removalsToReport{0};

// Says that a session was announced, so that its end is announced, too. Newer engines copy it with
// the session: it points to what lives as long as this library.
char announced;

int sessionCreated(SSL* ssl, SSL_SESSION* session)
{
    ConnectionSession* connection = ConnectionSession::of(ssl);
    if (!connection)
        return 0;
    const SessionHandle reference(session); // It came with the call.
    SSL_SESSION_set_ex_data(session, 0, &announced);
    {
        const Lock lock(calendar().mutex);
        calendar().ends.insert(SSL_SESSION_get_time(session) + SSL_SESSION_get_timeout(session));
    }
    connection->makeAvailable(ssl, session);
    qDebug("session added to cache");
    return 1;
}

// Called while OpenSSL holds a lock of its cache: no place for anything but this.
void sessionRemoved(SSL_CTX*, SSL_SESSION* session)
{
    gSessionPool.remove(session);
    if (SSL_SESSION_get_ex_data(session, 0) != &announced)
        return;
    SSL_SESSION_set_ex_data(session, 0, nullptr);
    ++removalsToReport;
}

bool takeOneRemoval()
{
    int waiting = removalsToReport;
    while (waiting > 0 && !removalsToReport.compare_exchange_weak(waiting, waiting - 1)) {
    }
    return waiting > 0;
}

//! Returns the earliest second in which sessions have ended, 0 without one; forgets it.
std::time_t takeEndBefore(std::time_t now)
{
    const Lock lock(calendar().mutex);
    std::set<std::time_t>& ends = calendar().ends;
    if (ends.empty() || *ends.begin() >= now)
        return 0;
    return ends.extract(ends.begin()).value();
}

bool hasEndBefore(std::time_t now)
{
    const Lock lock(calendar().mutex);
    return !calendar().ends.empty() && *calendar().ends.begin() < now;
}

//! Returns false when the last time is too short ago.
bool beginTidying()
{
    const Lock lock(calendar().mutex);
    QElapsedTimer& since = calendar().sinceTidied;
    if (since.isValid() && since.elapsed() < SessionCache::tidyInterval())
        return false;
    since.start();
    return true;
}

} // namespace

void SessionCache::attach(SSL_CTX* context)
{
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_BOTH | SSL_SESS_CACHE_NO_AUTO_CLEAR);
    SSL_CTX_set_timeout(context, SESSION_TIMEOUT_SECONDS);
    SSL_CTX_sess_set_new_cb(context, sessionCreated);
    SSL_CTX_sess_set_remove_cb(context, sessionRemoved);
}

void SessionCache::detach(SSL_CTX* context)
{
    SSL_CTX_sess_set_new_cb(context, nullptr);
    SSL_CTX_sess_set_remove_cb(context, nullptr);
}

void SessionCache::drop(SSL_SESSION* session)
{
    SSL_CTX_remove_session(SslContext::get(), session);
}

bool SessionCache::tidy()
{
    const std::time_t now = std::time(nullptr);
    if (beginTidying()) {
        for (const SessionHandle& expired : gSessionPool.takeExpired(now, EXPIRED_AT_ONCE))
            drop(expired.get());
        if (const std::time_t end = takeEndBefore(now))
            SSL_CTX_flush_sessions(SslContext::get(), end + 1);
        reportRemovals();
    }
    return removalsToReport > 0 || hasEndBefore(now);
}

void SessionCache::reportRemovals()
{
    for (int i = 0; i < LINES_AT_ONCE && takeOneRemoval(); ++i)
        qDebug("session removed from cache");
}

} // namespace vela

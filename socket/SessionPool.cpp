// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SessionPool.h"

#include "support/OpenSslCompat.h"

#include <mutex>

namespace vela {

using Lock = std::lock_guard<RecursiveMutex>;

SessionPool::SessionPool() = default;

SessionPool::~SessionPool()
{
    // At the end of the process OpenSSL may have ended before us: its sessions are left to it,
    // where a leak checker finds them.
    static auto* const survivors = new std::vector<SSL_SESSION*>;
    for (auto& entry : m_entries)
        survivors->push_back(entry.second.pooled.session.release());
}

SessionPool::Sessions SessionPool::add(const SessionOrigin& origin, PooledSession session)
{
    Sessions surplus;
    SSL_SESSION* const key = session.session.get();
    const Lock lock(m_mutex);
    const auto added = m_entries.try_emplace(key);
    if (!added.second)
        return surplus;
    Entry& entry = added.first->second;
    entry.server = m_servers.try_emplace(origin).first;
    Line& line = entry.server->second;
    entry.inLine = line.insert(line.end(), key);
    entry.inAge = m_age.insert(m_age.end(), key);
    entry.end = SSL_SESSION_get_time(key) + SSL_SESSION_get_timeout(key);
    m_ends.insert({entry.end, key});
    m_size += session.size;
    entry.pooled = std::move(session);
    takeOutSurplus(line, surplus);
    return surplus;
}

void SessionPool::takeOutSurplus(const Line& line, Sessions& surplus)
{
    if (line.size() > MOST_SESSIONS_OF_A_SERVER)
        surplus.push_back(takeOut(m_entries.find(line.front())).session);
    while (m_size > MOST_BYTES)
        surplus.push_back(takeOut(m_entries.find(m_age.front())).session);
}

PooledSession SessionPool::take(const SessionOrigin& origin, const Suits& suits)
{
    const Lock lock(m_mutex);
    const auto server = m_servers.find(origin);
    if (server == m_servers.end())
        return {};
    for (SSL_SESSION* session : server->second) {
        const auto entry = m_entries.find(session);
        if (suits(session, entry->second.pooled.terms))
            return takeOut(entry);
    }
    return {};
}

void SessionPool::remove(SSL_SESSION* session)
{
    PooledSession removed; // Freed when the lock is not held any more.
    const Lock lock(m_mutex);
    const auto entry = m_entries.find(session);
    if (entry != m_entries.end())
        removed = takeOut(entry);
}

bool SessionPool::contains(SSL_SESSION* session) const
{
    const Lock lock(m_mutex);
    return m_entries.count(session) > 0;
}

SessionPool::Sessions SessionPool::takeExpired(std::time_t now, std::size_t limit)
{
    Sessions expired;
    const Lock lock(m_mutex);
    while (expired.size() < limit && !m_ends.empty() && m_ends.begin()->first < now)
        expired.push_back(takeOut(m_entries.find(m_ends.begin()->second)).session);
    return expired;
}

qint64 SessionPool::size() const
{
    const Lock lock(m_mutex);
    return m_size;
}

PooledSession SessionPool::takeOut(Entries::iterator position)
{
    Entry& entry = position->second;
    PooledSession pooled = std::move(entry.pooled);
    m_size -= pooled.size;
    m_ends.erase({entry.end, position->first});
    m_age.erase(entry.inAge);
    entry.server->second.erase(entry.inLine);
    if (entry.server->second.empty())
        m_servers.erase(entry.server);
    m_entries.erase(position);
    return pooled;
}

} // namespace vela

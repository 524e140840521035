// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SessionPool.h"

#include "support/OpenSslCompat.h"

#include <mutex>

namespace vela {

using Lock = std::lock_guard<RecursiveMutex>;

SessionPool::SessionPool()
    : m_held(new QSet<SSL_SESSION*>)
{
}

SessionPool::~SessionPool()
{
    // Sessions outlive the pool: OpenSSL's cache and connections of the host may still refer to
    // them. The references are kept where a leak checker finds them.
    static auto* const survivors = new QList<const QSet<SSL_SESSION*>*>;
    survivors->append(m_held);
    qDeleteAll(m_available);
    qDeleteAll(m_inUse);
    qDeleteAll(m_keys);
}

void SessionPool::add(const QString& key, SSL_SESSION* session)
{
    const Lock lock(m_mutex);
    if (!m_held->contains(session)) {
        SSL_SESSION_up_ref(session);
        m_held->insert(session);
    }
    makeAvailable(key, session);
}

void SessionPool::adopt(const QString& key, SSL_SESSION* session)
{
    const Lock lock(m_mutex);
    m_held->insert(session);
    makeAvailable(key, session);
}

SSL_SESSION* SessionPool::take(const QString& key)
{
    const Lock lock(m_mutex);
    SessionList* available = m_available.value(key);
    if (!available || available->isEmpty())
        return nullptr;
    SSL_SESSION* session = available->takeFirst();
    SessionList* inUse = listFor(m_inUse, key);
    if (inUse->lastIndexOf(session) < 0)
        inUse->append(session);
    return session;
}

void SessionPool::remove(const QString& key, SSL_SESSION* session)
{
    const Lock lock(m_mutex);
    for (SessionMap* map : {&m_available, &m_inUse}) {
        if (SessionList* list = map->value(key))
            list->removeAll(session);
    }
}

const QString* SessionPool::internKey(const QString& key)
{
    const Lock lock(m_mutex);
    const QString*& interned = m_keys[key];
    if (!interned)
        interned = new QString(key);
    return interned;
}

SessionPool::SessionList* SessionPool::listFor(SessionMap& map, const QString& key)
{
    SessionList*& list = map[key];
    if (!list)
        list = new SessionList;
    return list;
}

void SessionPool::makeAvailable(const QString& key, SSL_SESSION* session)
{
    if (SessionList* inUse = m_inUse.value(key))
        inUse->removeAll(session);
    SessionList* available = listFor(m_available, key);
    if (available->lastIndexOf(session) < 0)
        available->append(session);
}

} // namespace vela

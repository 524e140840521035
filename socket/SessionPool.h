// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SESSIONPOOL_H
#define FERRULE_SESSIONPOOL_H

#include "support/RecursiveMutex.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <openssl/ssl.h>

namespace vela {

/*!
    The process's reusable TLS sessions, by the host name and port they were made with.

    A session is available, or in use by the connection that took it, or both forgotten: dropped by
    OpenSSL's cache. Every session that ever entered is kept alive by a reference of the pool's own
    until the process ends, so that a pointer handed out is always good. All operations may be
    called from any thread.
*/
class SessionPool
{
public:
    SessionPool();
    ~SessionPool();

    /*!
        Makes \a session available under \a key. The pool takes a reference of its own unless it
        has one already.
    */
    void add(const QString& key, SSL_SESSION* session);

    /*!
        As add(), for a session that comes with a reference for the pool.
    */
    void adopt(const QString& key, SSL_SESSION* session);

    //! Takes the session that has been available longest, or returns null. The pool keeps it alive.
    SSL_SESSION* take(const QString& key);

    //! Forgets \a session, available or in use, without freeing it.
    void remove(const QString& key, SSL_SESSION* session);

    /*!
        Returns a copy of \a key that stays valid until the pool is destroyed, the same one for
        equal keys. OpenSSL objects refer to it, and newer engines copy such references together
        with a session: shared copies need no owner.
    */
    const QString* internKey(const QString& key);

private:
    Q_DISABLE_COPY(SessionPool)

    using SessionList = QList<SSL_SESSION*>;
    using SessionMap = QMap<QString, SessionList*>;

    static SessionList* listFor(SessionMap& map, const QString& key);
    void makeAvailable(const QString& key, SSL_SESSION* session);

    RecursiveMutex m_mutex;
    SessionMap m_available;
    SessionMap m_inUse;
    QSet<SSL_SESSION*>* m_held;
    QMap<QString, const QString*> m_keys;
};

//! The one pool of the process, made when the library is loaded.
extern SessionPool gSessionPool;

} // namespace vela

#endif

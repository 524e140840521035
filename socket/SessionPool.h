// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SESSIONPOOL_H
#define FERRULE_SESSIONPOOL_H

#include "socket/SessionTerms.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/RecursiveMutex.h>

#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vela {

//! A session of the pool's, with what the pool remembers of it.
struct PooledSession
{
    SessionHandle session;
    SessionTerms terms;
    qint64 size = 0; //!< About how much memory it takes, in bytes.
};

/*!
    The sessions that the process's client sockets may resume, by the server they were made with.

    The pool holds a reference to each session for as long as it is available. Who takes one takes
    the reference with it, and gives it back if it is of use to others. What peers can make the pool
    keep has bounds: beyond them the oldest sessions go. No operation takes longer than the
    logarithm of what is kept, and all may be called from any thread.
*/
class SessionPool
{
public:
    //! As many connections to a server can be resumed at a time.
    static constexpr std::size_t MOST_SESSIONS_OF_A_SERVER = 24;
    //! As much memory is spent on all sessions together.
    static constexpr qint64 MOST_BYTES = 8 * 1024 * 1024;

    using Sessions = std::vector<SessionHandle>;
    using Suits = std::function<bool(SSL_SESSION* session, const SessionTerms& terms)>;

    SessionPool();
    ~SessionPool();

    /*!
        Makes \a session available behind those of \a origin that are, unless it is available
        already. Returns the sessions that had to go for it, and should go from OpenSSL's cache as
        well.
    */
    Sessions add(const SessionOrigin& origin, PooledSession session);

    //! Takes the session that has been available longest of those that suit; null without one.
    PooledSession take(const SessionOrigin& origin, const Suits& suits);

    //! Forgets \a session if it is available.
    void remove(SSL_SESSION* session);

    //! Returns whether \a session is available.
    bool contains(SSL_SESSION* session) const;

    //! Takes out at most \a limit sessions whose time was over at \a now.
    Sessions takeExpired(std::time_t now, std::size_t limit);

    qint64 size() const;

private:
    Q_DISABLE_COPY(SessionPool)

    using Line = std::list<SSL_SESSION*>;
    using Servers = std::map<SessionOrigin, Line>;

    struct Entry
    {
        PooledSession pooled;
        Servers::iterator server;
        Line::iterator inLine;
        Line::iterator inAge;
        std::time_t end = 0;
    };
    using Entries = std::unordered_map<SSL_SESSION*, Entry>;

    PooledSession takeOut(Entries::iterator position);
    void takeOutSurplus(const Line& line, Sessions& surplus);

    mutable RecursiveMutex m_mutex;
    Entries m_entries;
    Servers m_servers; //!< The sessions of each, the one that is next in front.
    Line m_age;        //!< All of them, the one that has been available longest in front.
    std::set<std::pair<std::time_t, SSL_SESSION*>> m_ends;
    qint64 m_size = 0;
};

//! The one pool of the process, made when the library is loaded.
extern SessionPool gSessionPool;

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SESSIONCACHE_H
#define FERRULE_SESSIONCACHE_H

#include <openssl/ssl.h>

namespace vela {

/*!
    OpenSSL's own cache of sessions, in the shared context: from it servers resume those of their
    clients that have no ticket, and it knows when a session's time is over.

    OpenSSL would throw out all that has expired at once, in the middle of some connection's
    handshake. Here it goes in pieces that nobody notices.
*/
class SessionCache
{
public:
    //! Sets up the cache of \a context.
    static void attach(SSL_CTX* context);

    //! Stops the cache of \a context from calling back into this library.
    static void detach(SSL_CTX* context);

    //! Throws \a session out, which is not to be resumed any more.
    static void drop(SSL_SESSION* session);

    /*!
        Throws out some of what has expired and reports some of what has left. Returns true when
        there is more to do, in a little while: see tidyInterval().
    */
    static bool tidy();

    //! Milliseconds to leave to others between two calls of tidy().
    static constexpr int tidyInterval() { return 20; }

    /*!
        Writes the lines "session removed from cache" that are due, not more than a few at a time.
        OpenSSL tells of a session while it holds a lock, and a host's message handler may do
        anything; so the lines wait until somebody calls who holds none.
    */
    static void reportRemovals();
};

} // namespace vela

#endif

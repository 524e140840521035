// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CONNECTIONSESSION_H
#define FERRULE_CONNECTIONSESSION_H

#include "socket/PeerWatch.h"
#include "socket/SessionPool.h"
#include "socket/SessionTerms.h"

#include <openssl/ssl.h>

namespace vela {

class ContextLock;

/*!
    What a connection has to do with sessions: which one it is offered, whose sessions it makes,
    and which of them others may resume. Those are the sessions that a client has made in a
    handshake that was completed; servers leave theirs to OpenSSL's cache, the only place where they
    can be found again.
*/
class ConnectionSession
{
public:
    //! Makes ready to find the object of a connection; once, before the first connection.
    static void prepare();

    //! Returns the object that was told of \a ssl, or null.
    static ConnectionSession* of(const SSL* ssl);

    /*!
        Ties this object to \a ssl, a connection with \a origin that was made under \a lock, and if
        \a mayResume offers it a session that suits. Returns false when OpenSSL refuses that, which
        is then forgotten.
    */
    bool begin(const ContextLock& lock, SSL* ssl, const SessionOrigin& origin, bool mayResume);

    /*!
        Tells the role that the next step of the handshake has. Sessions of one role are not
        accepted in the other: whoever answered a client of this process once has the keys that it
        would take.
    */
    void enterRole(SSL* ssl, bool server);

    void handshakeCompleted() { m_completed = true; }

    //! The handshake has failed, which the session that was offered may be to blame for.
    void handshakeFailed() { m_failed = true; }

    //! Gives the session of \a ssl, which is about to be freed, to the pool if it is of use there.
    void end(SSL* ssl);

    //! Gives \a session, which \a ssl has just made, to the pool if it is of use there.
    void makeAvailable(SSL* ssl, SSL_SESSION* session);

    //! Whom the verdict was about. Sessions with others are of no use to anybody.
    PeerWatch peer;

private:
    //! Called by OpenSSL when a client is asked for its certificate, and for every server.
    static int certificateAsked(SSL* ssl, void* session);

    void withdrawOffer(SSL* ssl);
    void pool(PooledSession session);
    void dropOffered();
    bool suits(SSL* ssl, SSL_SESSION* session, const SessionTerms& terms) const;

    SessionOrigin m_origin;
    SessionTerms m_terms;
    PooledSession m_offered;
    bool m_completed = false;
    bool m_failed = false;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLCONTEXT_H
#define FERRULE_SSLCONTEXT_H

#include "socket/AuthorityFiles.h"
#include "socket/ContextLock.h"
#include "socket/IdentityFiles.h"
#include "support/OpenSslHandles.h"

namespace vela {

/*!
    The one TLS context that every socket of the process shares, with all that is known of what was
    loaded into it. It is made when the library is loaded and, by intention, never destroyed: when
    the library's own objects go, static objects of the host's and threads that are still at work
    may have sockets.
*/
class SslContext
{
public:
    //! Returns the context of the process.
    static SslContext& shared();

    /*!
        Makes OpenSSL's context unless it exists, initialising OpenSSL for threads; false on
        failure.
    */
    static bool create();

    //! Returns OpenSSL's context, or null when it could not be made.
    static SSL_CTX* get();

    //! Stops OpenSSL's context from calling back into this library, which is about to be unloaded.
    static void detach();

    //! Waits until no other thread has the context, and gives it to this one.
    ContextLock lock() { return ContextLock(m_mutex, m_context); }

    /*!
        Puts \a list in force for the connections made from now on. Returns false, with the reason
        in OpenSSL's error queue, for a list in which no cipher is known: the one before stays in
        force then.
    */
    bool setCipherList(const ContextLock& lock, const QByteArray& list);

    //! Makes a connection with the list in force; null on failure.
    SSL* newConnection(const ContextLock& lock);

    //! The authorities, and the certificate with its key, that were loaded for all connections.
    AuthorityFiles& authorities() { return m_authorities; }
    IdentityFiles& identity() { return m_identity; }

private:
    SslContext() = default;
    Q_DISABLE_COPY(SslContext)

    RecursiveMutex m_mutex;
    std::atomic<SSL_CTX*> m_context{nullptr};
    AuthorityFiles m_authorities;
    IdentityFiles m_identity;
    //! Where lists are tried out.
    SslContextHandle m_trial;
    //! Empty lists stand for the engine's own choice.
    QByteArray m_listInForce;
    QByteArray m_listOfContext;
    bool m_hasConnections = false;
};

} // namespace vela

#endif

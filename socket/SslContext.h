// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLCONTEXT_H
#define FERRULE_SSLCONTEXT_H

#include <Ferrule/RecursiveMutex.h>

#include <QtCore/QByteArray>

#include <openssl/ssl.h>

namespace vela {

/*!
    The one TLS context that every socket of the process shares. It is made when the library is
    loaded and never freed.
*/
class SslContext
{
public:
    //! Makes the context unless it exists, initialising OpenSSL for threads; false on failure.
    static bool create();

    //! Returns the context, or null when it could not be made.
    static SSL_CTX* get();

    /*!
        Guards everything that changes the context or makes a connection from it. Recursive.
    */
    static RecursiveMutex& mutex();

    /*!
        Puts \a list in force for the connections made from now on; the caller holds the mutex.
        Returns false, with the reason in OpenSSL's error queue, for a list in which no cipher is
        known: the one before stays in force then.
    */
    static bool setCipherList(const QByteArray& list);

    //! Makes a connection with the list in force; null on failure. The caller holds the mutex.
    static SSL* newConnection();

    //! Stops the context from calling back into this library, which is about to be unloaded.
    static void detach();
};

} // namespace vela

#endif

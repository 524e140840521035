// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CONTEXTLOCK_H
#define FERRULE_CONTEXTLOCK_H

#include <Ferrule/RecursiveMutex.h>

#include <openssl/ssl.h>

#include <atomic>

namespace vela {

/*!
    Keeps the shared context to this thread while the object lives. Whatever changes the context or
    makes a connection from it demands one, and only the context hands them out: see
    SslContext::lock(). A thread that has one may take another.
*/
class ContextLock
{
public:
    ~ContextLock() { m_mutex.unlock(); }

    //! Returns OpenSSL's context, or null when it could not be made.
    SSL_CTX* context() const { return m_context.load(std::memory_order_acquire); }

private:
    friend class SslContext;

    ContextLock(RecursiveMutex& mutex, const std::atomic<SSL_CTX*>& context)
        : m_mutex(mutex)
        , m_context(context)
    {
        m_mutex.lock();
    }
    Q_DISABLE_COPY(ContextLock)

    RecursiveMutex& m_mutex;
    const std::atomic<SSL_CTX*>& m_context;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SslContext.h"

#include "socket/ConnectionSession.h"
#include "socket/SessionCache.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslLocking.h"
#include "support/PassPhrase.h"

#include <QtCore/QTime>

#include <openssl/rand.h>

#include <cstring>

namespace vela {

namespace {

// Weak, and only for an OpenSSL that found no entropy of its own.
void seedRandomGenerator()
{
    unsigned char seed[16];
    const qint32 milliseconds = QTime::currentTime().msec();
    const qint32 seconds = QTime::currentTime().second();
    const quint64 address = reinterpret_cast<quintptr>(&seed);
    std::memcpy(seed, &milliseconds, 4);
    std::memcpy(seed + 4, &seconds, 4);
    std::memcpy(seed + 8, &address, 8);
    RAND_seed(seed, sizeof seed);
}

void configure(SSL_CTX* context)
{
    SessionCache::attach(context);
    AuthorityFiles::prepare(context);
    SSL_CTX_set_options(context, SSL_OP_ALL);
    // Without it a read that meets a renegotiation gives up although decrypted data may follow in
    // the same batch, and nothing would ask again.
    SSL_CTX_set_mode(context, SSL_MODE_AUTO_RETRY);
    // What the engine could not take at once may have moved when it is offered again.
    SSL_CTX_set_mode(context, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // An idle connection needs no room for a record: that is most of what it takes.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
    // Newer engines choose a curve by themselves. Without one a server has no ephemeral key
    // exchange, and many of today's clients accept nothing else.
    static_cast<void>(SSL_CTX_set_ecdh_auto(context, 1));
    SSL_CTX_set_default_passwd_cb(context, refusePassPhrase);
}

} // namespace

SslContext& SslContext::shared()
{
    static auto* const context = new SslContext;
    return *context;
}

bool SslContext::create()
{
    if (get())
        return true;
    const ContextLock lock = shared().lock();
    if (lock.context())
        return true;

    SSL_library_init();
    SSL_load_error_strings();
    SSL_library_init();
    installOpenSslLocking();
    if (RAND_status() == 0)
        seedRandomGenerator();

    // Slot 0 is used as it is; but OpenSSL 3 cannot copy a session that has data there unless some
    // slot was asked for, and then every TLS 1.3 server fails.
    SSL_SESSION_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    ConnectionSession::prepare();

    SSL_CTX* context = SSL_CTX_new(SSLv23_method());
    if (!context)
        return false;
    configure(context);
    shared().m_context.store(context, std::memory_order_release);
    return true;
}

SSL_CTX* SslContext::get()
{
    return shared().m_context.load(std::memory_order_acquire);
}

void SslContext::detach()
{
    if (SSL_CTX* context = get())
        SessionCache::detach(context);
}

/*
    Handshakes of other threads read the context's own list without a lock: it changes only as long
    as there has been no connection. Connections with another list parse it for themselves, which is
    spared the usual program, where all have the same. A list is tried out on another context first,
    because a bad one would leave the context without any.
*/
bool SslContext::setCipherList(const ContextLock& lock, const QByteArray& list)
{
    if (list == m_listInForce)
        return true;
    if (!m_trial)
        m_trial.reset(SSL_CTX_new(SSLv23_method()));
    if (!m_trial || SSL_CTX_set_cipher_list(m_trial.get(), list.constData()) != 1)
        return false;
    m_listInForce = list;
    // A list may name a security level, by which the context judges the certificate that it is to
    // load. Connections have their own from the start, so that this one may change at any time.
    copySecurityLevel(lock.context(), m_trial.get());
    if (!m_hasConnections && SSL_CTX_set_cipher_list(lock.context(), list.constData()) == 1)
        m_listOfContext = list;
    return true;
}

SSL* SslContext::newConnection(const ContextLock& lock)
{
    m_hasConnections = true;
    SSL* ssl = SSL_new(lock.context());
    if (!ssl)
        return nullptr;
    // Its own references: the context may have another store before the handshake is over.
    X509_STORE* const authorities = SSL_CTX_get_cert_store(lock.context());
    SSL_set1_verify_cert_store(ssl, authorities);
    SSL_set1_chain_cert_store(ssl, authorities);
    if (m_listInForce != m_listOfContext)
        SSL_set_cipher_list(ssl, m_listInForce.constData());
    return ssl;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/ConnectionSession.h"

#include "socket/SessionCache.h"
#include "socket/SslContext.h"
#include "support/OpenSslCompat.h"

#include <ctime>

namespace vela {

namespace {

constexpr unsigned char CLIENT_CONTEXT[] = "Ferrule client";
constexpr unsigned char SERVER_CONTEXT[] = "Ferrule server";

// A session without certificates, and how much larger a parsed certificate is than an encoded one.
constexpr qint64 PLAIN_SESSION_SIZE = 1024;
constexpr qint64 PARSED_CERTIFICATE_FACTOR = 4;

int connectionIndex = -1;

qint64 ticketSize(const SSL_SESSION* session)
{
    const unsigned char* ticket = nullptr;
    std::size_t length = 0;
    SSL_SESSION_get0_ticket(session, &ticket, &length);
    return static_cast<qint64>(length);
}

//! Returns about how many bytes the session that \a ssl has takes in memory.
qint64 sizeOf(const SSL* ssl, const SSL_SESSION* session)
{
    qint64 certificates = 0;
    STACK_OF(X509)* chain = SSL_get_peer_cert_chain(ssl);
    for (int i = 0; chain && i < sk_X509_num(chain); ++i)
        certificates += i2d_X509(sk_X509_value(chain, i), nullptr);
    return PLAIN_SESSION_SIZE + ticketSize(session) + certificates * PARSED_CERTIFICATE_FACTOR;
}

bool isComplete(const SSL_SESSION* session)
{
    return SSL_SESSION_is_resumable(session) && SSL_SESSION_get_master_key(session, nullptr, 0) > 0;
}

bool isOver(const SSL_SESSION* session)
{
    return SSL_SESSION_get_time(session) + SSL_SESSION_get_timeout(session) < std::time(nullptr);
}

bool hasCipherOf(const SSL* ssl, const SSL_SESSION* session)
{
    const unsigned long id = sessionCipherId(session);
    STACK_OF(SSL_CIPHER)* ciphers = SSL_get_ciphers(ssl);
    for (int i = 0; ciphers && i < sk_SSL_CIPHER_num(ciphers); ++i) {
        if (SSL_CIPHER_get_id(sk_SSL_CIPHER_value(ciphers, i)) == id)
            return true;
    }
    return false;
}

} // namespace

void ConnectionSession::prepare()
{
    // Slot 0, which the reference engine would give out first, is in use as it is.
    while (connectionIndex < 1)
        connectionIndex = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
}

ConnectionSession* ConnectionSession::of(const SSL* ssl)
{
    return static_cast<ConnectionSession*>(SSL_get_ex_data(ssl, connectionIndex));
}

int ConnectionSession::certificateAsked(SSL*, void* session)
{
    static_cast<ConnectionSession*>(session)->m_terms.certificateWasAsked = true;
    return 1;
}

bool ConnectionSession::begin(const ContextLock& lock, SSL* ssl, const SessionOrigin& origin,
                              bool mayResume)
{
    SslContext& context = SslContext::shared();
    *this = ConnectionSession();
    m_origin = origin;
    m_terms.securityLevel = securityLevel(ssl);
    m_terms.localCertificate = context.identity().fingerprint(lock);
    m_terms.authorities = context.authorities().generation(lock);
    SSL_set_ex_data(ssl, 0, &m_origin.key);
    SSL_set_ex_data(ssl, connectionIndex, this);
    SSL_set_cert_cb(ssl, certificateAsked, this);
    if (!mayResume)
        return true;
    m_offered = gSessionPool.take(origin, [&](SSL_SESSION* session, const SessionTerms& terms) {
        return suits(ssl, session, terms);
    });
    if (!m_offered.session || SSL_set_session(ssl, m_offered.session.get()) != 0)
        return true;
    dropOffered();
    return false;
}

bool ConnectionSession::suits(SSL* ssl, SSL_SESSION* session, const SessionTerms& terms) const
{
    return isComplete(session) && !isOver(session) && terms.hold(m_terms)
           && hasCipherOf(ssl, session);
}

void ConnectionSession::enterRole(SSL* ssl, bool server)
{
    if (server) {
        SSL_set_session_id_context(ssl, SERVER_CONTEXT, sizeof SERVER_CONTEXT);
        withdrawOffer(ssl);
    } else {
        SSL_set_session_id_context(ssl, CLIENT_CONTEXT, sizeof CLIENT_CONTEXT);
    }
}

void ConnectionSession::withdrawOffer(SSL* ssl)
{
    if (!m_offered.session)
        return;
    SSL_set_session(ssl, nullptr);
    SSL_set_verify_result(ssl, X509_V_OK); // The session has brought its own.
    pool(std::move(m_offered));
    m_offered = PooledSession();
}

void ConnectionSession::makeAvailable(SSL* ssl, SSL_SESSION* session)
{
    if (SSL_is_server(ssl) || !isComplete(session) || !peer.hasSameCertificate(ssl))
        return;
    PooledSession pooled;
    SSL_SESSION_up_ref(session);
    pooled.session.reset(session);
    pooled.size = sizeOf(ssl, session);
    // A session that came of another has that one's verdict.
    pooled.terms = m_offered.session && SSL_session_reused(ssl) ? m_offered.terms : m_terms;
    if (!SSL_session_reused(ssl))
        pooled.terms.verified = SSL_get_verify_result(ssl) == X509_V_OK;
    pool(std::move(pooled));
}

void ConnectionSession::pool(PooledSession session)
{
    for (const SessionHandle& surplus : gSessionPool.add(m_origin, std::move(session)))
        SessionCache::drop(surplus.get());
}

void ConnectionSession::end(SSL* ssl)
{
    if (m_completed && SSL_is_init_finished(ssl)) {
        if (SSL_SESSION* session = SSL_get_session(ssl))
            makeAvailable(ssl, session);
    } else if (m_offered.session && !m_failed && isComplete(m_offered.session.get())) {
        // It has not been used up.
        pool(std::move(m_offered));
        m_offered = PooledSession();
    }
    if (m_offered.session && !gSessionPool.contains(m_offered.session.get()))
        dropOffered();
    *this = ConnectionSession();
}

void ConnectionSession::dropOffered()
{
    SessionCache::drop(m_offered.session.get());
    m_offered = PooledSession();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/PeerWatch.h"

#include "support/OpenSslCompat.h"

#include <utility>

namespace vela {

void PeerWatch::begin(const SSL* ssl)
{
    m_judged.reset(SSL_get_peer_certificate(ssl));
    m_watching = true;
}

bool PeerWatch::isSamePeer(const SSL* ssl) const
{
    return !SSL_is_init_finished(ssl) || hasSameCertificate(ssl);
}

// Asked for every piece that is read. As long as nothing has happened it is the very same object.
bool PeerWatch::hasSameCertificate(const SSL* ssl) const
{
    X509* const current = peerCertificateOf(ssl);
    if (!m_watching || current == m_judged.get())
        return true;
    return current && m_judged && X509_cmp(current, m_judged.get()) == 0;
}

bool PeerWatch::refuse()
{
    return !std::exchange(m_refused, true);
}

X509* PeerWatch::certificate(const SSL* ssl) const
{
    return m_watching ? m_judged.get() : peerCertificateOf(ssl);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PEERWATCH_H
#define FERRULE_PEERWATCH_H

#include "support/OpenSslHandles.h"

namespace vela {

/*!
    Remembers the certificate that the verdict on a connection's peer was about. Up to TLS 1.2 the
    peer may begin another handshake at any time, and show another one in it; nobody would judge
    that.
*/
class PeerWatch
{
public:
    //! Begins to watch \a ssl, whose peer is being judged.
    void begin(const SSL* ssl);

    /*!
        Returns false when a later handshake of \a ssl was completed with another certificate, or
        none, or with one where there was none. While a handshake goes on, what arrives comes from
        the peer as it was.
    */
    bool isSamePeer(const SSL* ssl) const;

    /*!
        Returns whether \a ssl has the certificate that was judged, whatever it is in the middle of;
        true before the verdict.
    */
    bool hasSameCertificate(const SSL* ssl) const;

    //! Remembers that the peer was refused; returns false when it had been already.
    bool refuse();
    bool hasRefused() const { return m_refused; }

    //! Returns the certificate that was judged, or before that the one \a ssl has; borrowed.
    X509* certificate(const SSL* ssl) const;

private:
    X509Handle m_judged;
    bool m_watching = false;
    bool m_refused = false;
};

} // namespace vela

#endif

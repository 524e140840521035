// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PEERVERDICT_H
#define FERRULE_PEERVERDICT_H

#include <Ferrule/CertVerify.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <openssl/x509.h>

namespace vela {

/*!
    Describes \a x509 as "issuer/subject/notBefore/notAfter/version/serial"; see
    SslSocket::peerCertificate().
*/
QString describeCertificate(X509* x509);

/*! Describes \a x509 as "issuer/subject", the first two parts of its description. */
QString describeNames(X509* x509);

/*! What the verdict needs to know of the peer's certificate, read back from its description. */
struct PeerIdentity
{
    explicit PeerIdentity(const QString& description);

    QString hostName; //!< The last common name: the subject's, or the issuer's without one.
    QDateTime validFrom;
    QDateTime validUntil;
};

/*! The verdict on a peer, as SslSocket::connectionVerificationDone() reports it. */
struct PeerVerdict
{
    CertVerify result = VerifyFailed;
    bool hostNameMatched = false;
    QString description;
};

/*! Judges a peer whose chain the engine has verified, by dates and host name. */
PeerVerdict judgeVerifiedPeer(const PeerIdentity& peer, const QString& hostName);

/*! Judges a peer whose chain failed with OpenSSL's \a code; \a text describes the code. */
PeerVerdict judgeFailedPeer(const PeerIdentity& peer, const QString& hostName, long code,
                            const QString& text);

} // namespace vela

#endif

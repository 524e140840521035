// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_DECODEDCERTIFICATE_H
#define FERRULE_DECODEDCERTIFICATE_H

#include "cert/CertificateOutline.h"
#include "store/validation/CertificateExtensions.h"

#include <QtCore/QByteArray>

#include <memory>
#include <mutex>
#include <optional>

namespace vela {

class DecodedCertificate;

/*! Certificates are shared between stores, engines and threads; one encoding is one object. */
using DecodedCertificatePtr = std::shared_ptr<const DecodedCertificate>;

/*! A certificate with everything that path building asks of it, decoded once and never changed. */
class DecodedCertificate
{
public:
    //! How sure an issuer is to be the one that a certificate means, by the key identifiers.
    enum class IssuerMatch {
        None,    //!< The certificate means another key.
        Name,    //!< Nothing but the name can be compared.
        KeyId,   //!< The key identifiers are equal.
        ExactId, //!< Issuer name and serial number are named and right.
    };

    /*!
        Returns the certificate with the encoding \a der; null if it is none, or is beyond what is
        decoded at all. The same encoding gives the same object for as long as it is in use, so that
        pointers can be compared.
    */
    static DecodedCertificatePtr fromDer(const QByteArray& der);
    //! Returns the certificate if it is in use already: that costs nothing.
    static DecodedCertificatePtr known(const QByteArray& der);

    DecodedCertificate(X509Handle x509, const QByteArray& der, const CertificateOutline& outline);

    const QByteArray& der() const { return m_der; }
    X509* x509() const { return m_x509.get(); }
    const CertificateOutline& outline() const { return m_outline; }
    const CertificateExtensions& extensions() const { return m_extensions; }
    unsigned long subjectHash() const { return m_subjectHash; }
    unsigned long issuerHash() const { return m_issuerHash; }

    bool isSelfIssued() const { return m_isSelfIssued; }
    bool isValidAt(qint64 secondsSinceEpoch) const;
    //! Whether the digest in its signature is one for which collisions are made at will.
    bool hasWeakSignature() const { return m_hasWeakSignature; }
    //! Whether it certifies an RSA key so short that it can be factored.
    bool hasWeakKey() const { return m_hasWeakKey; }
    bool hasSubjectAndKeyOf(const DecodedCertificate& other) const;

    bool namesIssuer(const DecodedCertificate& issuer) const;
    IssuerMatch matchIssuer(const DecodedCertificate& issuer) const;
    bool isSignedBy(const DecodedCertificate& issuer) const;
    //! What isSignedBy() costs, in nanoseconds.
    qint64 costOfSignatureBy(const DecodedCertificate& issuer) const;

private:
    bool verifySignature(const DecodedCertificate& issuer) const;

    const QByteArray m_der;
    const CertificateOutline m_outline;
    const X509Handle m_x509;
    const CertificateExtensions m_extensions;
    const EvpPkeyHandle m_key; //!< Null for a key of no kind that the engine knows.
    const QByteArray m_keyDigest;
    const qint64 m_signatureCost; //!< Of a signature by the key.
    const bool m_hasWeakKey;
    const bool m_hasWeakSignature;
    const unsigned long m_subjectHash;
    const unsigned long m_issuerHash;
    const bool m_isSelfIssued;
    const std::optional<qint64> m_notBefore;
    const std::optional<qint64> m_notAfter;
    mutable std::once_flag m_selfSignatureOnce;
    mutable bool m_isSelfSigned = false;
};

} // namespace vela

#endif

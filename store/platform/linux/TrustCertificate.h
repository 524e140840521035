// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TRUSTCERTIFICATE_H
#define FERRULE_TRUSTCERTIFICATE_H

#include "store/platform/linux/CertificateExtensions.h"

#include <QtCore/QByteArray>

#include <memory>
#include <mutex>
#include <optional>

namespace vela {

class TrustCertificate;

/*! Certificates are shared between stores, engines and threads; one encoding is one object. */
using TrustCertificatePtr = std::shared_ptr<const TrustCertificate>;

/*! A certificate with everything that path building asks of it, decoded once and never changed. */
class TrustCertificate
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
        Returns the certificate with the encoding \a der, null if it is none. The same encoding
       gives the same object for as long as it is in use, so that pointers can be compared.
    */
    static TrustCertificatePtr fromDer(const QByteArray& der);

    TrustCertificate(X509Handle x509, const QByteArray& der);

    const QByteArray& der() const { return m_der; }
    X509* x509() const { return m_x509.get(); }
    const CertificateExtensions& extensions() const { return m_extensions; }
    unsigned long subjectHash() const { return m_subjectHash; }
    unsigned long issuerHash() const { return m_issuerHash; }

    bool isSelfIssued() const { return m_isSelfIssued; }
    bool isValidAt(qint64 secondsSinceEpoch) const;
    //! Whether the digest in its signature is one for which collisions are made at will.
    bool hasWeakSignature() const;
    //! Whether it certifies an RSA key so short that it can be factored.
    bool hasWeakKey() const { return m_hasWeakKey; }
    bool hasSubjectAndKeyOf(const TrustCertificate& other) const;

    bool namesIssuer(const TrustCertificate& issuer) const;
    IssuerMatch matchIssuer(const TrustCertificate& issuer) const;
    bool isSignedBy(const TrustCertificate& issuer) const;

private:
    bool verifySignature(const TrustCertificate& issuer) const;

    const QByteArray m_der;
    const X509Handle m_x509;
    const CertificateExtensions m_extensions;
    const QByteArray m_publicKey;
    const bool m_hasWeakKey;
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

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_PLANNEDCERTIFICATE_H
#define FERRULE_TESTS_PLANNEDCERTIFICATE_H

#include "tests/common/TestCertificates.h"

#include <openssl/evp.h>

namespace test {

class PlannedCertificate;

constexpr qint64 DAY = 86400;

/*! What a chain test wants of a certificate. */
struct CertificatePlan
{
    QString name;
    //! When not empty, the whole subject, as (short name, value); the name is not used.
    QList<QPair<QByteArray, QByteArray>> subject;
    //! Name and value as in OpenSSL's configuration files.
    QList<QPair<QByteArray, QByteArray>> extensions;
    QByteArray mailAddress;            //!< In the subject; none if empty.
    qint64 notBeforeOffset = -2 * DAY; //!< Seconds from now.
    qint64 notAfterOffset = 365 * DAY; //!< Seconds from now.
    QByteArray notAfterText;           //!< As encoded, in the place of the offset unless empty.
    int version = 2;                   //!< As encoded.
    QByteArray serialHex = "01";
    KeyType keyType = KeyType::EcP256;
    const EVP_MD* digest = EVP_sha256();          //!< Older ones need an issuer with an RSA key.
    bool isPss = false;                           //!< Signed by RSA with PSS padding.
    const PlannedCertificate* keyOf = nullptr;    //!< Whose key it certifies; a new one without.
    const PlannedCertificate* signedBy = nullptr; //!< Whose key signs it; the issuer's without.
};

/*! Returns the plan of an authority, with \a more extensions. */
CertificatePlan authorityPlan(const QString& name,
                              const QList<QPair<QByteArray, QByteArray>>& more = {});
CertificatePlan leafPlan(const QString& name,
                         const QList<QPair<QByteArray, QByteArray>>& more = {});

/*! A certificate that is allowed to be wrong in any way a test likes. Copies share it. */
class PlannedCertificate
{
public:
    //! Made by \a plan and issued by \a issuer, or by itself without one.
    explicit PlannedCertificate(const CertificatePlan& plan,
                                const PlannedCertificate* issuer = nullptr);

    QByteArray der() const { return m_identity.der(); }
    X509* x509() const { return m_identity.x509(); }
    EVP_PKEY* key() const { return m_keyHolder.key(); }

private:
    Identity m_identity;
    Identity m_keyHolder;
};

} // namespace test

#endif

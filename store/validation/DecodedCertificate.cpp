// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/DecodedCertificate.h"

#include "cert/CertificateCoding.h"
#include "store/validation/CertificatePool.h"
#include "store/validation/SignatureAlgorithm.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslErrorMark.h"

#include <QtCore/QCryptographicHash>

namespace vela {

namespace {

using TimeHandle = std::unique_ptr<ASN1_TIME, OpenSslDeleter<ASN1_STRING_free>>;

constexpr qint64 SECONDS_OF_DAY = 86400;

//! Whether \a time is to the second and in UTC, as it must be. Engines differ in what else they
//! read.
bool isCertificateTime(const ASN1_TIME* time)
{
    constexpr int UTC_TIME_LENGTH = 13;         // YYMMDDHHMMSSZ
    constexpr int GENERALIZED_TIME_LENGTH = 15; // YYYYMMDDHHMMSSZ
    const int length = time->type == V_ASN1_UTCTIME ? UTC_TIME_LENGTH : GENERALIZED_TIME_LENGTH;
    return time->length == length && time->data[length - 1] == 'Z';
}

std::optional<qint64> toSeconds(const ASN1_TIME* time)
{
    if (!isCertificateTime(time))
        return std::nullopt;
    const TimeHandle epoch(ASN1_TIME_set(nullptr, 0));
    int days = 0;
    int seconds = 0;
    if (!epoch || ASN1_TIME_diff(&days, &seconds, epoch.get(), time) != 1)
        return std::nullopt;
    return days * SECONDS_OF_DAY + seconds;
}

//! Keys are compared by it: they can be long, and alike but for their end.
QByteArray digestOfKey(X509* x509)
{
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(x509), &encoded);
    const QByteArray key =
        QByteArray::fromRawData(reinterpret_cast<const char*>(encoded), qMax(length, 0));
    const QByteArray digest = QCryptographicHash::hash(key, QCryptographicHash::Sha256);
    OPENSSL_free(encoded);
    return digest;
}

X509Handle decode(const QByteArray& der)
{
    const auto* const begin = reinterpret_cast<const unsigned char*>(der.constData());
    const unsigned char* cursor = begin;
    X509Handle x509 = readDerCertificate(&cursor, der.size());
    if (!x509 || cursor != begin + der.size())
        return nullptr;
    // Lets the engine read what it keeps beside the certificate before other threads see it.
    X509_check_purpose(x509.get(), -1, 0);
    return x509;
}

} // namespace

DecodedCertificatePtr DecodedCertificate::known(const QByteArray& der)
{
    return certificatePool().find(der);
}

DecodedCertificatePtr DecodedCertificate::fromDer(const QByteArray& der)
{
    if (DecodedCertificatePtr certificate = known(der))
        return certificate;
    const std::optional<CertificateOutline> outline = CertificateOutline::of(der);
    if (!outline || !outline->isDecodable())
        return nullptr;
    const OpenSslErrorMark mark;
    X509Handle x509 = decode(der);
    if (!x509)
        return nullptr;
    return certificatePool().insert(
        std::make_shared<const DecodedCertificate>(std::move(x509), der, *outline));
}

DecodedCertificate::DecodedCertificate(X509Handle x509, const QByteArray& der,
                                       const CertificateOutline& outline)
    : m_der(der)
    , m_outline(outline)
    , m_x509(std::move(x509))
    , m_extensions(m_x509.get())
    , m_key(X509_get_pubkey(m_x509.get()))
    , m_keyDigest(digestOfKey(m_x509.get()))
    , m_signatureCost(costOfSignature(m_key.get()))
    , m_hasWeakKey(isWeakKey(m_key.get()))
    , m_hasWeakSignature(isWeakDigest(signatureDigest(m_x509.get())))
    , m_subjectHash(X509_subject_name_hash(m_x509.get()))
    , m_issuerHash(X509_issuer_name_hash(m_x509.get()))
    , m_isSelfIssued(namesIssuer(*this))
    , m_notBefore(toSeconds(X509_get0_notBefore(m_x509.get())))
    , m_notAfter(toSeconds(X509_get0_notAfter(m_x509.get())))
{
}

bool DecodedCertificate::isValidAt(qint64 secondsSinceEpoch) const
{
    return m_notBefore && m_notAfter && *m_notBefore <= secondsSinceEpoch
           && secondsSinceEpoch <= *m_notAfter;
}

bool DecodedCertificate::hasSubjectAndKeyOf(const DecodedCertificate& other) const
{
    return m_keyDigest == other.m_keyDigest && m_subjectHash == other.m_subjectHash
           && X509_NAME_cmp(X509_get_subject_name(x509()), X509_get_subject_name(other.x509()))
                  == 0;
}

bool DecodedCertificate::namesIssuer(const DecodedCertificate& issuer) const
{
    return X509_NAME_cmp(X509_get_issuer_name(x509()), X509_get_subject_name(issuer.x509())) == 0;
}

DecodedCertificate::IssuerMatch
DecodedCertificate::matchIssuer(const DecodedCertificate& issuer) const
{
    AUTHORITY_KEYID* const id = m_extensions.authorityKeyId.get();
    if (!id)
        return IssuerMatch::Name;
    if (X509_check_akid(issuer.x509(), id) != X509_V_OK)
        return IssuerMatch::None;
    if (id->issuer && id->serial)
        return IssuerMatch::ExactId;
    return id->keyid && issuer.extensions().hasSubjectKeyId ? IssuerMatch::KeyId
                                                            : IssuerMatch::Name;
}

bool DecodedCertificate::isSignedBy(const DecodedCertificate& issuer) const
{
    if (&issuer != this)
        return verifySignature(issuer);
    // Every chain asks this of its root, which stays the same.
    std::call_once(m_selfSignatureOnce, [this] { m_isSelfSigned = verifySignature(*this); });
    return m_isSelfSigned;
}

bool DecodedCertificate::verifySignature(const DecodedCertificate& issuer) const
{
    const OpenSslErrorMark mark;
    return issuer.m_key && X509_verify(x509(), issuer.m_key.get()) == 1;
}

qint64 DecodedCertificate::costOfSignatureBy(const DecodedCertificate& issuer) const
{
    constexpr qint64 PER_BYTE = 8;
    return issuer.m_signatureCost + PER_BYTE * m_der.size();
}

} // namespace vela

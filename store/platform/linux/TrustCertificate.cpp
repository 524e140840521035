// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/TrustCertificate.h"

#include "cert/OpenSslErrorMark.h"
#include "support/OpenSslCompat.h"

#include <QtCore/QHash>

#include <openssl/objects.h>

#include <array>
#include <iterator>
#include <mutex>

namespace vela {

namespace {

using TimeHandle = std::unique_ptr<ASN1_TIME, OpenSslDeleter<ASN1_STRING_free>>;

constexpr qint64 SECONDS_OF_DAY = 86400;

/*!
    The certificates in use, by encoding, and the last that were decoded: hosts meet the same peers
    again, and to decode a certificate can take longer than to judge a chain. Entries of
    certificates that have gone are swept up.
*/
class CertificatePool
{
public:
    TrustCertificatePtr find(const QByteArray& der)
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        return m_certificates.value(der).lock();
    }

    //! Returns \a certificate, or the equal one that another thread was faster with.
    TrustCertificatePtr insert(const TrustCertificatePtr& certificate)
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        std::weak_ptr<const TrustCertificate>& entry = m_certificates[certificate->der()];
        if (const TrustCertificatePtr other = entry.lock())
            return other;
        entry = certificate;
        keep(certificate);
        if (m_certificates.size() > m_sweepAt)
            sweep();
        return certificate;
    }

private:
    void keep(const TrustCertificatePtr& certificate)
    {
        // Peers that send large ones do not get to fill the memory with them.
        if (certificate->der().size() > MAX_KEPT_SIZE)
            return;
        m_kept[m_nextKept] = certificate;
        m_nextKept = (m_nextKept + 1) % m_kept.size();
    }

    void sweep()
    {
        for (auto entry = m_certificates.begin(); entry != m_certificates.end();)
            entry = entry->expired() ? m_certificates.erase(entry) : std::next(entry);
        m_sweepAt = qMax(FIRST_SWEEP, 2 * m_certificates.size());
    }

    static constexpr int FIRST_SWEEP = 512;
    static constexpr std::size_t KEPT = 128;
    static constexpr int MAX_KEPT_SIZE = 8 * 1024;
    std::mutex m_mutex;
    QHash<QByteArray, std::weak_ptr<const TrustCertificate>> m_certificates;
    int m_sweepAt = FIRST_SWEEP;
    std::array<TrustCertificatePtr, KEPT> m_kept;
    std::size_t m_nextKept = 0;
};

CertificatePool pool;

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

QByteArray encodePublicKey(X509* x509)
{
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(x509), &encoded);
    const QByteArray result(reinterpret_cast<const char*>(encoded), qMax(length, 0));
    OPENSSL_free(encoded);
    return result;
}

bool isWeakKey(X509* x509)
{
    constexpr int MIN_RSA_BITS = 1024;
    const EvpPkeyHandle key(X509_get_pubkey(x509));
    return key && EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA
           && EVP_PKEY_bits(key.get()) < MIN_RSA_BITS;
}

X509Handle decode(const QByteArray& der)
{
    const auto* const begin = reinterpret_cast<const unsigned char*>(der.constData());
    const unsigned char* cursor = begin;
    X509Handle x509(d2i_X509(nullptr, &cursor, der.size()));
    if (!x509 || cursor != begin + der.size())
        return nullptr;
    // Lets the engine read what it keeps beside the certificate before other threads see it.
    X509_check_purpose(x509.get(), -1, 0);
    return x509;
}

} // namespace

TrustCertificatePtr TrustCertificate::fromDer(const QByteArray& der)
{
    if (TrustCertificatePtr known = pool.find(der))
        return known;
    const OpenSslErrorMark mark;
    X509Handle x509 = decode(der);
    if (!x509)
        return nullptr;
    return pool.insert(std::make_shared<const TrustCertificate>(std::move(x509), der));
}

TrustCertificate::TrustCertificate(X509Handle x509, const QByteArray& der)
    : m_der(der)
    , m_x509(std::move(x509))
    , m_extensions(m_x509.get())
    , m_publicKey(encodePublicKey(m_x509.get()))
    , m_hasWeakKey(isWeakKey(m_x509.get()))
    , m_subjectHash(X509_subject_name_hash(m_x509.get()))
    , m_issuerHash(X509_issuer_name_hash(m_x509.get()))
    , m_isSelfIssued(namesIssuer(*this))
    , m_notBefore(toSeconds(X509_get0_notBefore(m_x509.get())))
    , m_notAfter(toSeconds(X509_get0_notAfter(m_x509.get())))
{
}

bool TrustCertificate::isValidAt(qint64 secondsSinceEpoch) const
{
    return m_notBefore && m_notAfter && *m_notBefore <= secondsSinceEpoch
           && secondsSinceEpoch <= *m_notAfter;
}

bool TrustCertificate::hasWeakSignature() const
{
    int digest = NID_undef;
    OBJ_find_sigid_algs(X509_get_signature_nid(x509()), &digest, nullptr);
    return digest == NID_md2 || digest == NID_md4 || digest == NID_md5;
}

bool TrustCertificate::hasSubjectAndKeyOf(const TrustCertificate& other) const
{
    return m_publicKey == other.m_publicKey
           && X509_NAME_cmp(X509_get_subject_name(x509()), X509_get_subject_name(other.x509()))
                  == 0;
}

bool TrustCertificate::namesIssuer(const TrustCertificate& issuer) const
{
    return X509_NAME_cmp(X509_get_issuer_name(x509()), X509_get_subject_name(issuer.x509())) == 0;
}

TrustCertificate::IssuerMatch TrustCertificate::matchIssuer(const TrustCertificate& issuer) const
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

bool TrustCertificate::isSignedBy(const TrustCertificate& issuer) const
{
    if (&issuer != this)
        return verifySignature(issuer);
    // Every chain asks this of its root, which stays the same.
    std::call_once(m_selfSignatureOnce, [this] { m_isSelfSigned = verifySignature(*this); });
    return m_isSelfSigned;
}

bool TrustCertificate::verifySignature(const TrustCertificate& issuer) const
{
    const OpenSslErrorMark mark;
    const EvpPkeyHandle key(X509_get_pubkey(issuer.x509()));
    return key && X509_verify(x509(), key.get()) == 1;
}

} // namespace vela

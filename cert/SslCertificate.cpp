// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

#include "cert/CertificateTime.h"
#include "support/NameOneline.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslErrorMark.h"
#include "support/OpenSslHandles.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

namespace vela {

namespace {

constexpr int DIGEST_BUFFER_SIZE = 4096;
constexpr int OBJECT_TEXT_SIZE = 1024;

} // namespace

SslCertificate::SslCertificate() = default;

SslCertificate::SslCertificate(x509_st* x509, bool owned)
{
    setX509(x509, owned);
}

SslCertificate::SslCertificate(const char* data, int length)
{
    setX509(readPem(data, length), true);
}

SslCertificate::SslCertificate(x509_st* x509, const QString& description, const QString& name,
                               int bits, const QString& version)
{
    setX509(x509, false);
    setCipher(name, bits, version);
    setCipherDescription(description);
}

SslCertificate::SslCertificate(const SslCertificate& other)
    : QObject() // NOLINT(readability-redundant-member-init): GCC warns without it.
    , m_sha1Digest(other.m_sha1Digest)
    , m_md5Digest(other.m_md5Digest)
    , m_issuerAttributes(other.m_issuerAttributes)
    , m_subjectAttributes(other.m_subjectAttributes)
    , m_cipher(other.m_cipher)
{
    setX509(other.m_x509, false);
}

SslCertificate& SslCertificate::operator=(const SslCertificate& other)
{
    if (this == &other)
        return *this;
    setX509(other.m_x509, false);
    m_sha1Digest = other.m_sha1Digest;
    m_md5Digest = other.m_md5Digest;
    m_issuerAttributes = other.m_issuerAttributes;
    m_subjectAttributes = other.m_subjectAttributes;
    m_cipher = other.m_cipher;
    return *this;
}

SslCertificate::~SslCertificate()
{
    releaseX509();
}

x509_st* SslCertificate::x509()
{
    return m_x509;
}

const x509_st* SslCertificate::x509() const
{
    return m_x509;
}

bool SslCertificate::isEmpty() const
{
    return !m_x509;
}

void SslCertificate::clear()
{
    m_issuerAttributes.clear();
    m_subjectAttributes.clear();
    const int authenticationBits = m_cipher.authenticationBits;
    m_cipher = CertCipher();
    m_cipher.authenticationBits = authenticationBits;
    m_sha1Digest.clear();
    m_md5Digest.clear();
    releaseX509();
    m_x509 = nullptr;
}

void SslCertificate::releaseX509()
{
    if (m_x509 && m_owned)
        X509_free(m_x509);
}

void SslCertificate::setX509(x509_st* x509, bool owned)
{
    if (x509 == m_x509)
        return;

    releaseX509();
    m_x509 = x509;
    m_owned = owned;
    m_issuerAttributes.clear();
    m_subjectAttributes.clear();
    m_sha1Digest.clear();
    m_md5Digest.clear();
    if (!x509)
        return;

    parseAttributes(nameOneline(X509_get_issuer_name(x509)), m_issuerAttributes);
    parseAttributes(nameOneline(X509_get_subject_name(x509)), m_subjectAttributes);
    m_sha1Digest = sha1Digest(x509);
    m_md5Digest = md5Digest(x509);
    readPublicKey();
}

void SslCertificate::readPublicKey()
{
    const OpenSslErrorMark mark;
    char algorithm[OBJECT_TEXT_SIZE] = "";
    ASN1_OBJECT* object = nullptr;
    X509_PUBKEY_get0_param(&object, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(m_x509));
    OBJ_obj2txt(algorithm, sizeof algorithm, object, 0);
    m_cipher.authentication = QString::fromLatin1(algorithm);

    // No other key is decoded: on a curve that a certificate describes itself, the reference engine
    // can compute for ever.
    if (EVP_PKEY_type(OBJ_obj2nid(object)) != EVP_PKEY_RSA)
        return;
    const EvpPkeyHandle key(X509_get_pubkey(m_x509));
    if (key && EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA)
        m_cipher.authenticationBits = 8 * EVP_PKEY_size(key.get());
}

const QByteArray& SslCertificate::md5Digest() const
{
    return m_md5Digest;
}

const QByteArray& SslCertificate::sha1Digest() const
{
    return m_sha1Digest;
}

void SslCertificate::setMd5Digest(const QByteArray& digest)
{
    m_md5Digest = digest;
}

void SslCertificate::setSha1Digest(const QByteArray& digest)
{
    m_sha1Digest = digest;
}

QByteArray SslCertificate::md5Digest(const x509_st* x509)
{
    return digest(x509, EVP_md5());
}

QByteArray SslCertificate::sha1Digest(const x509_st* x509)
{
    return digest(x509, EVP_sha1());
}

QByteArray SslCertificate::digest(const x509_st* x509, const EVP_MD* digest)
{
    QByteArray bytes;
    if (!x509)
        return bytes;
    const OpenSslErrorMark mark;
    bytes.resize(DIGEST_BUFFER_SIZE);
    auto length = static_cast<unsigned int>(bytes.size());
    if (!X509_digest(x509, digest, reinterpret_cast<unsigned char*>(bytes.data()), &length))
        return QByteArray();
    // A copy, because a truncated array would keep the memory of the whole buffer.
    return bytes.left(static_cast<int>(length));
}

QByteArray SslCertificate::serialNumber() const
{
    return m_x509 ? toByteArray(X509_get_serialNumber(m_x509)) : QByteArray();
}

QByteArray SslCertificate::toByteArray(asn1_string_st* string)
{
    if (!string)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(string->data), string->length);
}

long SslCertificate::version() const
{
    const OpenSslErrorMark mark;
    return m_x509 ? X509_get_version(m_x509) : 0;
}

QDateTime SslCertificate::validFrom() const
{
    return m_x509 ? certificateDateTime(X509_get0_notBefore(m_x509)) : QDateTime();
}

QDateTime SslCertificate::validUntil() const
{
    return m_x509 ? certificateDateTime(X509_get0_notAfter(m_x509)) : QDateTime();
}

bool SslCertificate::operator==(const SslCertificate& other) const
{
    return m_sha1Digest == other.m_sha1Digest && m_md5Digest == other.m_md5Digest;
}

bool SslCertificate::operator!=(const SslCertificate& other) const
{
    return !(*this == other);
}

bool SslCertificate::equals(const SslCertificatePtr& a, const SslCertificatePtr& b)
{
    if (a == b)
        return true;
    if (!a)
        return true; // Not symmetric, and hosts rely on it.
    if (!b)
        return false;
    if (a->isEmpty())
        return b->isEmpty();
    if (b->isEmpty())
        return false;
    return *a == *b;
}

} // namespace vela

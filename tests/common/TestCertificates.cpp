// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/TestCertificates.h"

#include "support/OpenSslHandles.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <ctime>

using vela::BioHandle;
using vela::EvpPkeyHandle;
using vela::OpenSslDeleter;
using vela::X509Handle;

namespace test {

struct Identity::Data
{
    X509Handle x509;
    EvpPkeyHandle key;
};

namespace {

using Asn1Time = std::unique_ptr<ASN1_TIME, OpenSslDeleter<ASN1_TIME_free>>;
using Asn1Integer = std::unique_ptr<ASN1_INTEGER, OpenSslDeleter<ASN1_INTEGER_free>>;
using Asn1BitString = std::unique_ptr<ASN1_BIT_STRING, OpenSslDeleter<ASN1_BIT_STRING_free>>;
using BasicConstraints = std::unique_ptr<BASIC_CONSTRAINTS, OpenSslDeleter<BASIC_CONSTRAINTS_free>>;
using BigNumber = std::unique_ptr<BIGNUM, OpenSslDeleter<BN_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, OpenSslDeleter<EVP_PKEY_CTX_free>>;
using Name = std::unique_ptr<X509_NAME, OpenSslDeleter<X509_NAME_free>>;

constexpr int SECONDS_OF_DAY = 86400;
constexpr int GENERALIZED_TIME_LENGTH = 15;
constexpr int BIT_KEY_CERT_SIGN = 5;

//! A test cannot go on without its certificates.
void require(bool success, const char* what)
{
    if (!success)
        qFatal("TestCertificates: %s failed: %s", what, ERR_error_string(ERR_get_error(), nullptr));
}

EvpPkeyHandle generate(EVP_PKEY_CTX* context)
{
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_keygen(context, &key) > 0, "EVP_PKEY_keygen");
    return EvpPkeyHandle(key);
}

EvpPkeyHandle makeRsaKey(int bits)
{
    const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) > 0
                && EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), bits) > 0,
            "preparing an RSA key");
    return generate(context.get());
}

EvpPkeyHandle makeEcKey()
{
    const KeyContext parameterContext(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    EVP_PKEY* parameters = nullptr;
    // OpenSSL 1.0.2 would write the whole curve instead of its name, which no peer accepts.
    require(
        parameterContext && EVP_PKEY_paramgen_init(parameterContext.get()) > 0
            && EVP_PKEY_CTX_set_ec_paramgen_curve_nid(parameterContext.get(), NID_X9_62_prime256v1)
                   > 0
            && EVP_PKEY_CTX_set_ec_param_enc(parameterContext.get(), OPENSSL_EC_NAMED_CURVE) > 0
            && EVP_PKEY_paramgen(parameterContext.get(), &parameters) > 0,
        "preparing an EC key");
    const EvpPkeyHandle parameterKey(parameters);

    const KeyContext context(EVP_PKEY_CTX_new(parameters, nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) > 0, "EVP_PKEY_keygen_init");
    return generate(context.get());
}

EvpPkeyHandle makeKey(KeyType type)
{
    switch (type) {
    case KeyType::Rsa2048:
        return makeRsaKey(2048);
    case KeyType::Rsa512:
        return makeRsaKey(512);
    default:
        return makeEcKey();
    }
}

Asn1Time makeTime(qint64 offset, const QByteArray& text)
{
    if (text.isEmpty()) {
        return Asn1Time(ASN1_TIME_adj(nullptr, std::time(nullptr), int(offset / SECONDS_OF_DAY),
                                      long(offset % SECONDS_OF_DAY)));
    }
    const int type =
        text.size() == GENERALIZED_TIME_LENGTH ? V_ASN1_GENERALIZEDTIME : V_ASN1_UTCTIME;
    Asn1Time time(ASN1_STRING_type_new(type));
    require(time && ASN1_STRING_set(time.get(), text.constData(), text.size()), "making a time");
    return time;
}

void setValidity(X509* x509, const CertificateSpec& spec)
{
    const Asn1Time notBefore = makeTime(spec.notBeforeOffset, spec.notBeforeText);
    const Asn1Time notAfter = makeTime(spec.notAfterOffset, spec.notAfterText);
    require(notBefore && notAfter && X509_set_notBefore(x509, notBefore.get())
                && X509_set_notAfter(x509, notAfter.get()),
            "setting the validity");
}

void setSerial(X509* x509, const QByteArray& hex)
{
    BIGNUM* number = nullptr;
    require(BN_hex2bn(&number, hex.constData()) > 0, "BN_hex2bn");
    const BigNumber owner(number);
    const Asn1Integer serial(BN_to_ASN1_INTEGER(number, nullptr));
    require(serial && X509_set_serialNumber(x509, serial.get()), "setting the serial number");
}

void setSubject(X509* x509, const CertificateSpec& spec)
{
    QList<QPair<QByteArray, QByteArray>> entries = spec.subject;
    if (entries.isEmpty())
        entries.append({QByteArrayLiteral("CN"), spec.commonName.toUtf8()});
    const Name name(X509_NAME_new());
    for (const auto& entry : qAsConst(entries)) {
        const auto* value = reinterpret_cast<const unsigned char*>(entry.second.constData());
        require(X509_NAME_add_entry_by_txt(name.get(), entry.first.constData(), MBSTRING_UTF8,
                                           value, entry.second.size(), -1, 0),
                "setting the subject");
    }
    require(X509_set_subject_name(x509, name.get()), "X509_set_subject_name");
}

void addBasicConstraints(X509* x509, bool isAuthority)
{
    const BasicConstraints constraints(BASIC_CONSTRAINTS_new());
    constraints->ca = isAuthority ? 0xFF : 0;
    require(X509_add1_ext_i2d(x509, NID_basic_constraints, constraints.get(), 1, X509V3_ADD_DEFAULT)
                > 0,
            "adding basic constraints");
}

void addAuthorityExtensions(X509* x509)
{
    addBasicConstraints(x509, true);
    const Asn1BitString usage(ASN1_BIT_STRING_new());
    require(ASN1_BIT_STRING_set_bit(usage.get(), BIT_KEY_CERT_SIGN, 1)
                && X509_add1_ext_i2d(x509, NID_key_usage, usage.get(), 1, X509V3_ADD_DEFAULT) > 0,
            "adding the key usage");
}

QByteArray contentOf(BIO* bio)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return QByteArray(data, int(size));
}

} // namespace

X509* Identity::x509() const
{
    return m_data ? m_data->x509.get() : nullptr;
}

EVP_PKEY* Identity::key() const
{
    return m_data ? m_data->key.get() : nullptr;
}

QByteArray Identity::certificatePem() const
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(bio.get(), x509()), "PEM_write_bio_X509");
    return contentOf(bio.get());
}

QByteArray Identity::keyPem() const
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PrivateKey(bio.get(), key(), nullptr, nullptr, 0, nullptr, nullptr),
            "PEM_write_bio_PrivateKey");
    return contentOf(bio.get());
}

QByteArray Identity::der() const
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    require(i2d_X509_bio(bio.get(), x509()), "i2d_X509_bio");
    return contentOf(bio.get());
}

Identity makeIdentity(const CertificateSpec& spec, const Identity* issuer)
{
    Identity identity;
    identity.m_data = std::make_shared<Identity::Data>();
    identity.m_data->key = makeKey(spec.keyType);
    identity.m_data->x509.reset(X509_new());

    X509* x509 = identity.x509();
    require(x509 && X509_set_version(x509, spec.version), "X509_set_version");
    setSerial(x509, spec.serialHex);
    setValidity(x509, spec);
    setSubject(x509, spec);
    const Identity& signer = issuer ? *issuer : identity;
    require(X509_set_issuer_name(x509, X509_get_subject_name(signer.x509()))
                && X509_set_pubkey(x509, identity.key()),
            "setting the issuer and the key");
    if (spec.isAuthority)
        addAuthorityExtensions(x509);
    else if (spec.deniesAuthority)
        addBasicConstraints(x509, false);
    require(X509_sign(x509, signer.key(), EVP_sha256()) > 0, "X509_sign");
    return identity;
}

PemDirectory::PemDirectory()
{
    if (!m_directory.isValid())
        qFatal("PemDirectory: %s", qPrintable(m_directory.errorString()));
}

QString PemDirectory::write(const QString& name, const QByteArray& content) const
{
    QFile file(QDir(path()).filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("PemDirectory: %s", qPrintable(file.errorString()));
    return file.fileName();
}

QString PemDirectory::writeCertificate(const QString& name, const Identity& identity) const
{
    return write(name, identity.certificatePem());
}

QString PemDirectory::writeKey(const QString& name, const Identity& identity) const
{
    return write(name, identity.keyPem());
}

QString PemDirectory::path() const
{
    return m_directory.path();
}

} // namespace test

// SPDX-License-Identifier: BSD-3-Clause
#include "PlannedCertificate.h"

#include "support/OpenSslHandles.h"

#include <openssl/conf.h>
#include <openssl/err.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

namespace test {

namespace {

using ConfigurationHandle = std::unique_ptr<CONF, vela::OpenSslDeleter<NCONF_free>>;
using ExtensionHandle = std::unique_ptr<X509_EXTENSION, vela::OpenSslDeleter<X509_EXTENSION_free>>;

void require(bool success, const char* what)
{
    if (!success)
        qFatal("PlannedCertificate: %s: %s", what, ERR_error_string(ERR_get_error(), nullptr));
}

void addExtension(X509* x509, X509* issuer, QByteArray name, QByteArray value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, x509, nullptr, nullptr, 0);
    // Without one, even empty, OpenSSL 3 refuses extensions that could refer to it.
    const ConfigurationHandle configuration(NCONF_new(nullptr));
    X509V3_set_nconf(&context, configuration.get());
    const ExtensionHandle extension(
        X509V3_EXT_nconf(configuration.get(), &context, name.data(), value.data()));
    require(extension != nullptr, value.constData());
    require(X509_add_ext(x509, extension.get(), -1) == 1, "X509_add_ext");
}

void addMailAddress(X509* x509, QByteArray address)
{
    auto* const bytes = reinterpret_cast<unsigned char*>(address.data());
    require(X509_NAME_add_entry_by_NID(X509_get_subject_name(x509), NID_pkcs9_emailAddress,
                                       MBSTRING_ASC, bytes, address.size(), -1, 0)
                == 1,
            "X509_NAME_add_entry_by_NID");
}

void signWithPss(X509* x509, EVP_PKEY* key, const EVP_MD* digest)
{
    EVP_MD_CTX* const context = EVP_MD_CTX_create();
    EVP_PKEY_CTX* padding = nullptr;
    require(EVP_DigestSignInit(context, &padding, digest, nullptr, key) == 1, "EVP_DigestSignInit");
    require(EVP_PKEY_CTX_set_rsa_padding(padding, RSA_PKCS1_PSS_PADDING) == 1, "RSA padding");
    require(X509_sign_ctx(x509, context) > 0, "X509_sign_ctx");
    EVP_MD_CTX_destroy(context);
}

CertificatePlan planOf(const QString& name, QList<QPair<QByteArray, QByteArray>> extensions,
                       const QList<QPair<QByteArray, QByteArray>>& more)
{
    // A planned extension takes the place of the usual one.
    for (const auto& extension : more) {
        for (auto usual = extensions.begin(); usual != extensions.end();)
            usual = usual->first == extension.first ? extensions.erase(usual) : std::next(usual);
    }
    CertificatePlan plan;
    plan.name = name;
    plan.extensions = extensions + more;
    return plan;
}

} // namespace

CertificatePlan authorityPlan(const QString& name, const QList<QPair<QByteArray, QByteArray>>& more)
{
    return planOf(name,
                  {{"basicConstraints", "critical,CA:TRUE"},
                   {"keyUsage", "critical,keyCertSign"},
                   {"subjectKeyIdentifier", "hash"}},
                  more);
}

CertificatePlan leafPlan(const QString& name, const QList<QPair<QByteArray, QByteArray>>& more)
{
    return planOf(name, {{"keyUsage", "critical,digitalSignature"}}, more);
}

PlannedCertificate::PlannedCertificate(const CertificatePlan& plan,
                                       const PlannedCertificate* issuer)
{
    CertificateSpec spec;
    spec.commonName = plan.name;
    spec.subject = plan.subject;
    spec.notBeforeOffset = plan.notBeforeOffset;
    spec.notAfterOffset = plan.notAfterOffset;
    spec.notAfterText = plan.notAfterText;
    spec.version = plan.version;
    spec.serialHex = plan.serialHex;
    spec.keyType = plan.keyType;
    m_identity = makeIdentity(spec);
    m_keyHolder = plan.keyOf ? plan.keyOf->m_keyHolder : m_identity;

    const PlannedCertificate& actualIssuer = issuer ? *issuer : *this;
    require(X509_set_pubkey(x509(), key()) == 1, "X509_set_pubkey");
    require(X509_set_issuer_name(x509(), X509_get_subject_name(actualIssuer.x509())) == 1,
            "X509_set_issuer_name");
    if (!plan.mailAddress.isEmpty())
        addMailAddress(x509(), plan.mailAddress);
    for (const auto& extension : plan.extensions)
        addExtension(x509(), actualIssuer.x509(), extension.first, extension.second);
    const PlannedCertificate& signer = plan.signedBy ? *plan.signedBy : actualIssuer;
    if (plan.isPss)
        signWithPss(x509(), signer.key(), plan.digest);
    else
        require(X509_sign(x509(), signer.key(), plan.digest) > 0, "X509_sign");
}

} // namespace test

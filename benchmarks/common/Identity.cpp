// SPDX-License-Identifier: BSD-3-Clause
#include "common/Identity.h"

#include "common/Options.h"

#include <QtCore/QFile>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <functional>

namespace bench {

namespace {

EVP_PKEY* makeKey()
{
    EVP_PKEY_CTX* generator = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_keygen_init(generator);
    EVP_PKEY_CTX_set_rsa_keygen_bits(generator, 2048);
    if (EVP_PKEY_keygen(generator, &key) != 1)
        fail(QStringLiteral("no key could be made"));
    EVP_PKEY_CTX_free(generator);
    return key;
}

X509* makeCertificate(EVP_PKEY* key)
{
    X509* x509 = X509_new();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
    X509_gmtime_adj(X509_get_notBefore(x509), -86400);
    X509_gmtime_adj(X509_get_notAfter(x509), 86400);
    X509_set_pubkey(x509, key);
    X509_NAME* name = X509_get_subject_name(x509);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(x509, name);
    QByteArray alternative("DNS:localhost,IP:127.0.0.1");
    X509_EXTENSION* extension =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternative.data());
    if (!extension || X509_add_ext(x509, extension, -1) != 1)
        fail(QStringLiteral("the certificate takes no alternative name"));
    X509_EXTENSION_free(extension);
    if (X509_sign(x509, key, EVP_sha256()) == 0)
        fail(QStringLiteral("the certificate could not be signed"));
    return x509;
}

void writePem(const QString& path, const std::function<int(BIO*)>& write)
{
    BIO* bio = BIO_new_file(QFile::encodeName(path).constData(), "w");
    if (!bio || write(bio) != 1 || BIO_flush(bio) != 1)
        fail(path + QStringLiteral(" could not be written"));
    BIO_free(bio);
}

} // namespace

Identity::Identity()
{
    if (!m_directory.isValid())
        fail(QStringLiteral("there is no directory for the certificate"));
    // The reference engine does not find the hash by itself when nothing has been set up yet.
    OpenSSL_add_all_algorithms();
    EVP_PKEY* key = makeKey();
    X509* x509 = makeCertificate(key);
    writePem(certificateFile(), [&](BIO* bio) { return PEM_write_bio_X509(bio, x509); });
    writePem(keyFile(), [&](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
    X509_free(x509);
    EVP_PKEY_free(key);
}

QString Identity::certificateFile() const
{
    return m_directory.filePath(QStringLiteral("certificate.pem"));
}

QString Identity::keyFile() const
{
    return m_directory.filePath(QStringLiteral("key.pem"));
}

} // namespace bench

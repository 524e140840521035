// SPDX-License-Identifier: BSD-3-Clause
#include "socket/IdentityFiles.h"

#include "socket/ContextLock.h"
#include "support/OpenSslErrors.h"

#include <openssl/err.h>
#include <openssl/pem.h>

namespace vela {

namespace {

bool saysEncrypted(unsigned long error)
{
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_BAD_PASSWORD_READ;
}

// The oldest error is what counts, except that newer engines begin with one that tells nobody what
// is wrong with an encrypted key.
QString takeLoadError()
{
    const unsigned long oldest = ERR_get_error();
    unsigned long error = oldest;
    while (error != 0 && !saysEncrypted(error))
        error = ERR_get_error();
    return describeOpenSslError(error != 0 ? error : oldest);
}

QByteArray fingerprintOf(const X509* certificate)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!certificate || X509_digest(certificate, EVP_sha1(), digest, &length) != 1)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(digest), static_cast<int>(length));
}

QString takeErrorUnless(bool succeeded)
{
    // Each error is taken at once: the calls that follow may empty OpenSSL's queue.
    const QString error = succeeded ? QString() : takeLoadError();
    clearOpenSslErrors();
    return error;
}

} // namespace

IdentityFiles::Errors IdentityFiles::load(const ContextLock& lock, const QByteArray& certificate,
                                          const QByteArray& key)
{
    const Source source{certificate, key, FileVersion::of(certificate), FileVersion::of(key)};
    if (source == m_source)
        return {};
    m_source = Source();

    SSL_CTX* const context = lock.context();
    Errors errors;
    errors.certificate = takeErrorUnless(
        SSL_CTX_use_certificate_file(context, certificate.constData(), SSL_FILETYPE_PEM) == 1);
    errors.key = takeErrorUnless(
        SSL_CTX_use_PrivateKey_file(context, key.constData(), SSL_FILETYPE_PEM) == 1);
    errors.match = takeErrorUnless(SSL_CTX_check_private_key(context) == 1);

    m_fingerprint = fingerprintOf(SSL_CTX_get0_certificate(context));
    const bool succeeded =
        errors.certificate.isNull() && errors.key.isNull() && errors.match.isNull();
    if (succeeded && source.isSettled())
        m_source = source;
    return errors;
}

} // namespace vela

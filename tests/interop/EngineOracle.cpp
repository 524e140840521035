// SPDX-License-Identifier: BSD-3-Clause
#include "tests/interop/EngineOracle.h"

#include "support/OpenSslHandles.h"

#include <QtCore/QFile>

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace test {

namespace {

using ContextHandle = std::unique_ptr<SSL_CTX, vela::OpenSslDeleter<SSL_CTX_free>>;
using EngineHandle = std::unique_ptr<SSL, vela::OpenSslDeleter<SSL_free>>;

ContextHandle makeContext()
{
    ContextHandle context(SSL_CTX_new(SSLv23_method()));
    SSL_CTX_set_options(context.get(), SSL_OP_ALL);
    ERR_clear_error();
    return context;
}

//! Returns the oldest error of this thread and forgets the others.
QString takeError()
{
    const QString text = QString::fromLatin1(ERR_error_string(ERR_get_error(), nullptr));
    ERR_clear_error();
    return text;
}

} // namespace

QStringList engineErrors(Role role, const QByteArray& input)
{
    const ContextHandle context = makeContext();
    const EngineHandle ssl(SSL_new(context.get()));
    BIO* incoming = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl.get(), incoming, BIO_new(BIO_s_mem()));
    const auto step = role == Role::Client ? SSL_connect : SSL_accept;
    step(ssl.get());
    ERR_clear_error();
    BIO_write(incoming, input.constData(), input.size());
    if (step(ssl.get()) > 0 || ERR_peek_error() == 0)
        return QStringList();
    QStringList errors{takeError()};
    char byte;
    const int result = SSL_read(ssl.get(), &byte, 1);
    if (result > 0 || SSL_get_error(ssl.get(), result) == SSL_ERROR_ZERO_RETURN)
        return errors;
    return errors << takeError();
}

QString cipherListError(const QByteArray& ciphers)
{
    const ContextHandle context = makeContext();
    SSL_CTX_set_cipher_list(context.get(), ciphers.constData());
    return takeError();
}

QString authoritiesError(const QString& file)
{
    const ContextHandle context = makeContext();
    SSL_CTX_load_verify_locations(context.get(), QFile::encodeName(file).constData(), nullptr);
    return takeError();
}

QString identityError(const QString& certificate, const QString& key)
{
    const ContextHandle context = makeContext();
    SSL_CTX_use_certificate_file(context.get(), QFile::encodeName(certificate).constData(),
                                 SSL_FILETYPE_PEM);
    SSL_CTX_use_PrivateKey_file(context.get(), QFile::encodeName(key).constData(),
                                SSL_FILETYPE_PEM);
    SSL_CTX_check_private_key(context.get());
    return takeError();
}

} // namespace test

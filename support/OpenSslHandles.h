// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLHANDLES_H
#define FERRULE_OPENSSLHANDLES_H

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

namespace vela {

template <auto Free>
struct OpenSslDeleter
{
    template <typename T>
    void operator()(T* handle) const
    {
        Free(handle);
    }
};

inline void freeOpenSslString(char* text)
{
    OPENSSL_free(text);
}

using BioHandle = std::unique_ptr<BIO, OpenSslDeleter<BIO_free>>;
using EvpPkeyHandle = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY_free>>;
using SessionHandle = std::unique_ptr<SSL_SESSION, OpenSslDeleter<SSL_SESSION_free>>;
using SslHandle = std::unique_ptr<SSL, OpenSslDeleter<SSL_free>>;
using SslContextHandle = std::unique_ptr<SSL_CTX, OpenSslDeleter<SSL_CTX_free>>;
using X509Handle = std::unique_ptr<X509, OpenSslDeleter<X509_free>>;
using OpenSslString = std::unique_ptr<char, OpenSslDeleter<freeOpenSslString>>;

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "cert/CertificateCoding.h"

#include "support/PassPhrase.h"

#include <openssl/buffer.h>
#include <openssl/pem.h>

namespace vela {

namespace {

//! Returns what \a Write, one of the engine's writers, makes of \a certificate.
template <auto Write>
QByteArray written(X509* certificate)
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || !certificate || !Write(bio.get(), certificate))
        return QByteArray();
    BUF_MEM* buffer = nullptr;
    BIO_get_mem_ptr(bio.get(), &buffer);
    return buffer ? QByteArray(buffer->data, static_cast<int>(buffer->length)) : QByteArray();
}

} // namespace

BioHandle openMemory(const char* data, int length)
{
    // OpenSSL 1.0.2 takes the memory without saying const.
    return BioHandle(BIO_new_mem_buf(const_cast<char*>(data), length));
}

X509Handle readPemCertificate(BIO* bio)
{
    return X509Handle(PEM_read_bio_X509(bio, nullptr, refusePassPhrase, nullptr));
}

X509Handle readDerCertificate(const unsigned char** cursor, long length)
{
    return X509Handle(d2i_X509(nullptr, cursor, length));
}

QByteArray pemOf(X509* certificate)
{
    return written<PEM_write_bio_X509>(certificate);
}

QByteArray derOf(X509* certificate)
{
    return written<i2d_X509_bio>(certificate);
}

} // namespace vela

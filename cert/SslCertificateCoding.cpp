// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

#include "cert/OpenSslErrorMark.h"
#include "cert/PemText.h"
#include "support/OpenSslHandles.h"
#include "support/PassPhrase.h"

#include <openssl/buffer.h>
#include <openssl/pem.h>

namespace vela {

x509_st* SslCertificate::readPem(const char* data, int length)
{
    const OpenSslErrorMark mark;
    // OpenSSL 1.0.2 takes the memory without saying const.
    const BioHandle bio(BIO_new_mem_buf(const_cast<char*>(data), length));
    return bio ? PEM_read_bio_X509(bio.get(), nullptr, refusePassPhrase, nullptr) : nullptr;
}

x509_st* SslCertificate::readPem(const QString& fileName)
{
    QFile file(fileName);
    const bool isOpen = openQuietly(&file, QIODevice::ReadOnly | QIODevice::Unbuffered);
    const QByteArray text = isOpen ? file.readAll() : QByteArray();
    return readPem(text.constData(), text.size());
}

x509_st* SslCertificate::readDer(const unsigned char* data, int length)
{
    const OpenSslErrorMark mark;
    const unsigned char* cursor = data;
    return d2i_X509(nullptr, &cursor, length);
}

QByteArray SslCertificate::encodeDer(x509_st* x509)
{
    QByteArray der;
    const OpenSslErrorMark mark;
    const BioHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || !x509 || !i2d_X509_bio(bio.get(), x509))
        return der;
    BUF_MEM* buffer = nullptr;
    BIO_get_mem_ptr(bio.get(), &buffer);
    if (buffer)
        der.append(buffer->data, static_cast<int>(buffer->length));
    return der;
}

QString SslCertificate::encodePem(x509_st* x509)
{
    return textOf([x509](QTextStream* stream) { writePem(x509, stream); });
}

void SslCertificate::writePem(x509_st* x509, const QString& fileName)
{
    writeTextTo(fileName, [x509](QTextStream* stream) { writePem(x509, stream); });
}

void SslCertificate::writePem(x509_st* x509, QIODevice* device)
{
    writeTextTo(device, [x509](QTextStream* stream) { writePem(x509, stream); });
}

void SslCertificate::writePem(x509_st* x509, QTextStream* stream)
{
    const OpenSslErrorMark mark;
    const BioHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || !x509 || !PEM_write_bio_X509(bio.get(), x509))
        return;
    BUF_MEM* buffer = nullptr;
    BIO_get_mem_ptr(bio.get(), &buffer);
    if (buffer)
        *stream << QByteArray(buffer->data, static_cast<int>(buffer->length));
}

QString SslCertificate::encodePem() const
{
    return encodePem(m_x509);
}

void SslCertificate::writePem(const QString& fileName) const
{
    writePem(m_x509, fileName);
}

void SslCertificate::writePem(QIODevice* device) const
{
    writePem(m_x509, device);
}

void SslCertificate::writePem(QTextStream* stream) const
{
    writePem(m_x509, stream);
}

} // namespace vela

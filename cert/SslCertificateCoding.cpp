// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

#include "cert/CertificateCoding.h"
#include "cert/PemText.h"
#include "support/OpenSslErrorMark.h"

namespace vela {

x509_st* SslCertificate::readPem(const char* data, int length)
{
    const OpenSslErrorMark mark;
    const BioHandle bio = openMemory(data, length);
    return bio ? readPemCertificate(bio.get()).release() : nullptr;
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
    return readDerCertificate(&cursor, length).release();
}

QByteArray SslCertificate::encodeDer(x509_st* x509)
{
    const OpenSslErrorMark mark;
    return derOf(x509);
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
    const QByteArray pem = pemOf(x509);
    if (!pem.isEmpty())
        *stream << pem;
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

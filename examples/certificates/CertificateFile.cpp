// SPDX-License-Identifier: BSD-3-Clause
#include "certificates/CertificateFile.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

SslCertificatePtr owning(x509_st* handle)
{
    return SslCertificatePtr(new SslCertificate(handle, true));
}

// Counts the lines at which OpenSSL begins to read a certificate.
int countBlocks(const QByteArray& text)
{
    static const QRegularExpression beginning(
        QStringLiteral("^-----BEGIN (X509 )?CERTIFICATE-----\\s*$"),
        QRegularExpression::MultilineOption);
    int count = 0;
    for (auto it = beginning.globalMatch(QString::fromLatin1(text)); it.hasNext(); it.next())
        ++count;
    return count;
}

CertificateFile parsePem(const QByteArray& text, int blocks)
{
    CertificateFile file{QStringLiteral("PEM"), {}, {}};
    const QList<x509_st*> handles = SslCertificateChain::readPem(text.constData(), text.size());
    for (x509_st* handle : handles)
        file.chain << owning(handle);
    if (file.chain.size() < blocks)
        file.damage =
            QStringLiteral("damaged: certificates read before the damage: %1, not read: %2")
                .arg(file.chain.size())
                .arg(blocks - file.chain.size());
    return file;
}

CertificateFile parseDer(const QByteArray& bytes)
{
    CertificateFile file{QStringLiteral("DER"), {}, {}};
    x509_st* handle = SslCertificate::readDer(
        reinterpret_cast<const unsigned char*>(bytes.constData()), bytes.size());
    if (!handle)
        return file;
    file.chain << owning(handle);
    if (SslCertificate::encodeDer(handle) != bytes)
        file.damage = QStringLiteral("damaged: more than one certificate in DER");
    return file;
}

template <typename Write>
QString replaceFile(const QString& fileName, Write write)
{
    QSaveFile file(fileName);
    if (file.open(QIODevice::WriteOnly)) {
        write(&file);
        if (file.commit())
            return QString();
    }
    return QStringLiteral("%1: %2").arg(fileName, file.errorString());
}

} // namespace

CertificateFile parseCertificates(const QByteArray& bytes)
{
    const int blocks = countBlocks(bytes);
    return blocks > 0 ? parsePem(bytes, blocks) : parseDer(bytes);
}

QString writePemFile(const SslCertificateChain& chain, const QString& fileName)
{
    return replaceFile(fileName, [&chain](QIODevice* device) { chain.writePem(device); });
}

QString writeDerFile(const SslCertificatePtr& certificate, const QString& fileName)
{
    const QByteArray der = SslCertificate::encodeDer(certificate->x509());
    return replaceFile(fileName, [&der](QIODevice* device) { device->write(der); });
}

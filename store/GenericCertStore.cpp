// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/GenericCertStore.h>

#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtXml/QDomDocument>

namespace vela {

namespace {

constexpr int CHUNK = 16 * 1024;
constexpr qint64 MAX_SIZE = 64 * 1024 * 1024; // Of what openRootCerts() reads.

} // namespace

GenericCertStore::GenericCertStore(QObject* parent)
    : CertificateStore(parent)
{
}

GenericCertStore::~GenericCertStore() = default;

CertVerify GenericCertStore::verify(const SslCertificateChain&)
{
    return VerifyUnknown;
}

bool GenericCertStore::importSystemRootCert(SslCertificatePtr)
{
    return false;
}

void GenericCertStore::importRootCerts(QIODevice* device, CertAccept accept)
{
    const QString marker = QStringLiteral("-----BEGIN CERTIFICATE-----");
    const QStringList parts = QString::fromUtf8(device->readAll()).split(marker);
    for (const QString& part : parts) {
        const QByteArray text = (marker + part).toLatin1();
        const SslCertificatePtr cert(new SslCertificate(text.constData(), -1));
        addOneCertificate(cert);
        trustInfo(cert).accept = accept;
    }
}

void GenericCertStore::openRootCerts(const QString& fileName, const QString& second)
{
    QFile file(fileName);
    if (file.open(QIODevice::ReadOnly) && second.isEmpty())
        openRootCerts(&file);
}

void GenericCertStore::openRootCerts(QIODevice* device)
{
    // What the form may hold has no effect, so there is nothing to parse, which for elements that
    // are nested deeply would take as much stack.
    QByteArray chunk(CHUNK, '\0');
    qint64 rest = MAX_SIZE;
    while (rest > 0) {
        const qint64 count = device->read(chunk.data(), qMin<qint64>(chunk.size(), rest));
        if (count <= 0)
            break;
        rest -= count;
    }
    openRootCerts(QDomElement());
}

void GenericCertStore::openRootCerts(const QDomElement&)
{
}

void GenericCertStore::saveRootCerts(const QString& fileName, const QString& second)
{
    QFile file(fileName);
    if (file.open(QIODevice::ReadWrite) && second.isEmpty())
        saveRootCerts(&file);
}

void GenericCertStore::saveRootCerts(QIODevice* device)
{
    QDomDocument document;
    document.appendChild(document.createElement(QStringLiteral("CertificateStore")));
    device->write(document.toByteArray(1));
}

} // namespace vela

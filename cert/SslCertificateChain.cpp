// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificateChain.h>

#include "cert/CertificateCoding.h"
#include "cert/PemText.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslErrorMark.h"

#include <QtCore/QSet>
#include <QtCore/QVector>

#include <algorithm>

// With QSet's and QVector's headers at hand the list's conversions are instantiated, too.
template class FERRULE_TEMPLATE_DEFINITION QList<vela::SslCertificatePtr>;

namespace vela {

SslCertificateChain::SslCertificateChain() = default;
SslCertificateChain::SslCertificateChain(const SslCertificateChain& other) = default;
SslCertificateChain& SslCertificateChain::operator=(const SslCertificateChain& other) = default;
SslCertificateChain::~SslCertificateChain() = default;

SslCertificateChain::SslCertificateChain(const QList<SslCertificatePtr>& certificates)
    : QList<SslCertificatePtr>(certificates)
{
}

SslCertificateChain::SslCertificateChain(const QList<x509_st*>& handles)
{
    *this << handles;
}

SslCertificateChain& SslCertificateChain::operator=(const QList<x509_st*>& handles)
{
    clear();
    return *this << handles;
}

SslCertificateChain& SslCertificateChain::operator<<(const QList<x509_st*>& handles)
{
    for (x509_st* handle : handles)
        *this << handle;
    return *this;
}

SslCertificateChain& SslCertificateChain::operator<<(x509_st* handle)
{
    return *this << SslCertificatePtr(new SslCertificate(handle, false));
}

SslCertificateChain& SslCertificateChain::operator<<(const SslCertificatePtr& certificate)
{
    append(certificate);
    return *this;
}

bool SslCertificateChain::operator==(const QList<SslCertificatePtr>& other) const
{
    return size() == other.size()
           && std::equal(begin(), end(), other.begin(), &SslCertificate::equals);
}

bool SslCertificateChain::operator!=(const QList<SslCertificatePtr>& other) const
{
    return !(*this == other);
}

bool SslCertificateChain::isEmpty() const
{
    const SslCertificatePtr certificate = endCert();
    return !certificate || certificate->isEmpty();
}

SslCertificateChain SslCertificateChain::ownedCopy() const
{
    SslCertificateChain copy;
    for (const SslCertificatePtr& certificate : *this) {
        if (certificate && !certificate->isEmpty())
            X509_up_ref(certificate->x509());
        copy << (certificate ? SslCertificatePtr(new SslCertificate(certificate->x509(), true))
                             : SslCertificatePtr());
    }
    return copy;
}

SslCertificatePtr SslCertificateChain::endCert()
{
    detach();
    return qAsConst(*this).endCert();
}

SslCertificatePtr SslCertificateChain::endCert() const
{
    return value(0);
}

SslCertificatePtr SslCertificateChain::rootCert()
{
    detach();
    return qAsConst(*this).rootCert();
}

SslCertificatePtr SslCertificateChain::rootCert() const
{
    return value(size() - 1);
}

QList<x509_st*> SslCertificateChain::readPem(const char* data, int length)
{
    QList<x509_st*> handles;
    const OpenSslErrorMark mark;
    const BioHandle bio = openMemory(data, length);
    if (!bio)
        return handles;
    while (X509Handle handle = readPemCertificate(bio.get()))
        handles.append(handle.release());
    return handles;
}

void SslCertificateChain::release(QList<x509_st*>& handles)
{
    for (x509_st* handle : qAsConst(handles))
        X509_free(handle);
    handles.clear();
}

QString SslCertificateChain::encodePem() const
{
    return textOf([this](QTextStream* stream) { writePem(stream); });
}

void SslCertificateChain::writePem(const QString& fileName) const
{
    writeTextTo(fileName, [this](QTextStream* stream) { writePem(stream); });
}

void SslCertificateChain::writePem(QIODevice* device) const
{
    writeTextTo(device, [this](QTextStream* stream) { writePem(stream); });
}

void SslCertificateChain::writePem(QTextStream* stream) const
{
    for (const SslCertificatePtr& certificate : *this) {
        if (certificate)
            certificate->writePem(stream);
    }
}

QString SslCertificateChain::encodePem(QList<x509_st*> handles)
{
    return textOf([&handles](QTextStream* stream) { writePem(handles, stream); });
}

void SslCertificateChain::writePem(QList<x509_st*> handles, const QString& fileName)
{
    writeTextTo(fileName, [&handles](QTextStream* stream) { writePem(handles, stream); });
}

void SslCertificateChain::writePem(QList<x509_st*> handles, QIODevice* device)
{
    writeTextTo(device, [&handles](QTextStream* stream) { writePem(handles, stream); });
}

void SslCertificateChain::writePem(QList<x509_st*> handles, QTextStream* stream)
{
    for (x509_st* handle : qAsConst(handles))
        SslCertificate::writePem(handle, stream);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/CertificateStore.h>
#include <Ferrule/WinCertStore.h>

namespace vela {

namespace {

CertificateStore* madeOnce(CertificateStore*& instance, const char* name)
{
    if (!instance) {
        instance = new WinCertStore(nullptr);
        instance->setObjectName(QString::fromLatin1(name));
    }
    return instance;
}

} // namespace

CertificateStore* CertificateStore::sslCertStore()
{
    return madeOnce(gGlobalInstance[0], "SSL Certificate Store");
}

CertificateStore* CertificateStore::signCertStore()
{
    return madeOnce(gGlobalInstance[1], "Signature Certificate Store");
}

CertificateStore* CertificateStore::newCertStore()
{
    return new WinCertStore(nullptr);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause

/*
    Everything that must exist before the first exported function runs, in the order in which it is
    made; at unload it goes in the reverse order. The definitions stand together in this one file
    because only within a file does the language fix their order.
*/

#include "resources/ResourceTables.h"
#include "socket/SessionPool.h"
#include "socket/SslContext.h"
#include "support/OpenSslLocking.h"
#include "support/module/ResourceTree.h"

#include <Ferrule/CertificateStore.h>
#include <Ferrule/SslCertificate.h>
#include <Ferrule/SslCertificateChain.h>

#include <QtCore/QIODevice>
#include <QtCore/QMetaType>

namespace vela {

namespace {

const ResourceTree certificatesTree(CERTIFICATES_RESOURCES);
const ResourceTree translationsTree(TRANSLATIONS_RESOURCES);

} // namespace

SessionPool gSessionPool;

namespace {

class TlsContextStartup
{
public:
    TlsContextStartup() { SslContext::create(); }

    ~TlsContextStartup()
    {
        SslContext::detach();
        removeOpenSslLocking();
    }
};

const TlsContextStartup tlsContextStartup;

} // namespace

// Not string literals of this library: hosts keep copies that outlive it.
const QString SslCertificate::ATTR_COUNTRY = QString::fromLatin1("C");
const QString SslCertificate::ATTR_ORGANISATION = QString::fromLatin1("O");
const QString SslCertificate::ATTR_ORGANISATION_UNIT = QString::fromLatin1("OU");
const QString SslCertificate::ATTR_LOCALITY = QString::fromLatin1("L");
const QString SslCertificate::ATTR_STATE = QString::fromLatin1("ST");
const QString SslCertificate::ATTR_COMMON_NAME = QString::fromLatin1("CN");
const QString SslCertificate::ATTR_EMAIL = QString::fromLatin1("EMail");

namespace {

template <typename Type>
int registerType(const char* name)
{
    return qRegisterMetaType<Type>(name);
}

} // namespace

// A list in braces is evaluated from left to right.
const int SslCertificate::g_metaTypes[] = {
    registerType<SslCertificatePtr>("SslCertificatePtr"),
    registerType<SslCertificateChain>("vela::SslCertificateChain"),
    registerType<CertVerify>("vela::CertVerify"),
    registerType<CertAccept>("vela::CertAccept"),
    registerType<CertHostName>("vela::CertHostName"),
};

const int CertificateStore::g_metaTypes[] = {registerType<CertTrust>("vela::CertTrust")};

namespace {

/*
    The types are registered by name and withdrawn again at unload. Q_DECLARE_METATYPE would make
    them permanent, with functions that lie in this library, and the next queued signal after an
    unload would call them.
*/
class MetaTypeWithdrawal
{
public:
    MetaTypeWithdrawal()
    {
        // Qt looks this up by name when connectToHost() is called from another thread. As an alias
        // of a type that Qt brings along it may stay when the library goes.
        static_assert(sizeof(QIODevice::OpenMode) == sizeof(int), "an alias must have the size");
        QMetaType::registerNormalizedTypedef(QByteArray("OpenMode"), QMetaType::Int);
    }

    ~MetaTypeWithdrawal()
    {
        for (int id : SslCertificate::g_metaTypes)
            QMetaType::unregisterType(id);
        for (int id : CertificateStore::g_metaTypes)
            QMetaType::unregisterType(id);
    }
};

const MetaTypeWithdrawal metaTypeWithdrawal;

} // namespace

const SslCertificateChain CertificateStore::EMPTY_CHAIN;
const CertTrust CertificateStore::EMPTY_TRUST;

CertificateStore* CertificateStore::gGlobalInstance[2] = {nullptr, nullptr};

} // namespace vela

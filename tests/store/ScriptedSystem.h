// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SCRIPTEDSYSTEM_H
#define FERRULE_TESTS_SCRIPTEDSYSTEM_H

#include "ScriptedTrustPlatform.h"
#include "StoreCertificates.h"

#include "tests/common/LogStream.h"

#include <Ferrule/WinCertStore.h>

namespace test {

/*! Three certificates of one chain, made once. */
struct TestChain
{
    Identity root = makeIdentity(authority(QStringLiteral("root")));
    Identity middle = makeIdentity(authority(QStringLiteral("middle")), &root);
    Identity leaf = makeIdentity(CertificateSpec(), &middle);

    static const TestChain& instance()
    {
        static const TestChain chain;
        return chain;
    }

private:
    static CertificateSpec authority(const QString& commonName)
    {
        CertificateSpec spec;
        spec.commonName = commonName;
        spec.isAuthority = true;
        return spec;
    }
};

/*! What a test of a system store begins with: a scripted system that knows the certificates' names.
 */
struct ScriptedSystem
{
    ScriptedSystem()
    {
        platform.nameCertificate(certificates.root.der(), QStringLiteral("root"));
        platform.nameCertificate(certificates.middle.der(), QStringLiteral("middle"));
        platform.nameCertificate(certificates.leaf.der(), QStringLiteral("leaf"));
    }

    const TestChain& certificates = TestChain::instance();
    ScriptedTrustPlatform platform;
    LogStream log;
};

/*! A store whose protected operations a test may call. */
class ExposedStore : public vela::WinCertStore
{
public:
    ExposedStore()
        : WinCertStore(nullptr)
    {
    }

    using WinCertStore::createChainEngine;
    using WinCertStore::createWinCryptCert;
    using WinCertStore::createWinCryptChain;
    using WinCertStore::resetChainEngine;
    using WinCertStore::toCertChain;
};

//! A line of the log, as a failure of \a function with \a text makes it.
inline QString failureLine(const char* function, const QString& text)
{
    return QStringLiteral("Ferrule failure: [vela::WinCertStore::%1] %2\n")
        .arg(QString::fromLatin1(function), text);
}

} // namespace test

#endif

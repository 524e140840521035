// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SCRIPTEDSTORE_H
#define FERRULE_TESTS_SCRIPTEDSTORE_H

#include "StoreCertificates.h"

#include <Ferrule/CertificateStore.h>

#include <QtTest/QtTest>

namespace test {

//! A store that says what a test wants and remembers what it was asked.
class ScriptedStore : public vela::CertificateStore
{
public:
    explicit ScriptedStore(QObject* parent = nullptr)
        : CertificateStore(parent)
    {
    }

    using CertificateStore::gGlobalInstance;
    using CertificateStore::verify;

    vela::CertVerify verify(const vela::SslCertificateChain& chain) override
    {
        judged.append(chain);
        return vela::VerifyExpired;
    }

    bool importSystemRootCert(vela::SslCertificatePtr) override { return true; }

    QList<vela::SslCertificateChain> judged;
};

//! A certificate whose fingerprints a test can choose.
struct Relabelled : vela::SslCertificate
{
    using SslCertificate::setMd5Digest;
    using SslCertificate::setSha1Digest;
    using SslCertificate::SslCertificate;
};

//! Certificates that a test can store, each with the identity it was parsed from.
struct KnownCertificates
{
    Identity alpha = makeNamed(QStringLiteral("Alpha"));
    Identity beta = makeNamed(QStringLiteral("Beta"));
    vela::SslCertificatePtr a = parse(alpha.certificatePem());
    vela::SslCertificatePtr b = parse(beta.certificatePem());
    vela::SslCertificatePtr c = parse(makeNamed(QStringLiteral("Gamma")).certificatePem());
    vela::SslCertificatePtr r = parse(makeNamed(QStringLiteral("Root")).certificatePem());
};

inline void compareRecord(const vela::CertTrust& record, quint32 state, int accept, qint32 mark)
{
    QCOMPARE(record.state, state);
    QCOMPARE(static_cast<int>(record.accept), accept);
    QCOMPARE(record.mark, mark);
}

} // namespace test

#endif

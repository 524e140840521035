// SPDX-License-Identifier: BSD-3-Clause

/*
    The authorities of this machine, each judged by the system's store.
*/

#include "StoreCertificates.h"
#include "platform/TrustedRoots.h"

#include "tests/common/OpenSslCommand.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <openssl/x509.h>

#include <memory>

using namespace test;
using vela::WinCertStore;

namespace {

constexpr const char* BUNDLE = "/etc/ssl/certs/ca-certificates.crt";

QList<QByteArray> blocksOf(const QByteArray& pem)
{
    const QByteArray begin = "-----BEGIN CERTIFICATE-----";
    const QByteArray end = "-----END CERTIFICATE-----\n";
    QList<QByteArray> blocks;
    for (int from = pem.indexOf(begin); from >= 0; from = pem.indexOf(begin, from + 1))
        blocks.append(pem.mid(from, pem.indexOf(end, from) + end.size() - from));
    return blocks;
}

//! Whether OpenSSL's own comparison puts now between the two dates.
bool isValidNow(X509* x509)
{
    return X509_cmp_current_time(X509_get_notBefore(x509)) < 0
           && X509_cmp_current_time(X509_get_notAfter(x509)) > 0;
}

} // namespace

class WinCertStoreBundleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void eachAuthorityOfTheMachineIsTrusted_data();
    void eachAuthorityOfTheMachineIsTrusted();
    void noneIsTrustedWithoutTheBundle();
    void expiredAuthorityIsWhatItsBitsSay();

private:
    QList<QByteArray> m_blocks;
    std::unique_ptr<TrustedRoots> m_roots;
    std::unique_ptr<WinCertStore> m_store;
};

void WinCertStoreBundleTest::initTestCase()
{
    QFile bundle(QString::fromLatin1(BUNDLE));
    if (!bundle.open(QIODevice::ReadOnly)) {
        if (isContinuousIntegration())
            QFAIL("ca-certificates is not installed");
        QSKIP("this system keeps its authorities elsewhere");
    }
    m_blocks = blocksOf(bundle.readAll());
    QVERIFY(m_blocks.size() > 50);
    m_roots = std::make_unique<TrustedRoots>();
    m_roots->environment().set("SSL_CERT_FILE", QByteArray());
    m_store = std::make_unique<WinCertStore>(nullptr);
}

void WinCertStoreBundleTest::cleanupTestCase()
{
    m_store.reset();
    m_roots.reset();
}

void WinCertStoreBundleTest::eachAuthorityOfTheMachineIsTrusted_data()
{
    QTest::addColumn<QByteArray>("pem");
    for (const QByteArray& pem : qAsConst(m_blocks)) {
        const vela::SslCertificatePtr root = parse(pem);
        const QString name = root->subjectCommonName() + root->subjectOrganisationUnit();
        QTest::addRow("%d %s", m_blocks.indexOf(pem), qPrintable(name)) << pem;
    }
}

void WinCertStoreBundleTest::eachAuthorityOfTheMachineIsTrusted()
{
    QFETCH(QByteArray, pem);
    const vela::SslCertificatePtr root = parse(pem);
    QVERIFY(root->x509());
    // All of them are self-signed, which comes before the dates in the verdict.
    const vela::CertVerify expected =
        isValidNow(root->x509()) ? vela::VerifyOk : vela::VerifySelfSigned;
    QCOMPARE(m_store->verify(chainOf({root})), expected);
}

void WinCertStoreBundleTest::noneIsTrustedWithoutTheBundle()
{
    TrustedRoots none;
    none.environment().set("SSL_CERT_FILE", "");
    WinCertStore store(nullptr);
    for (const QByteArray& pem : qAsConst(m_blocks))
        QCOMPARE(store.verify(chainOf({parse(pem)})), vela::VerifySelfSigned);
}

void WinCertStoreBundleTest::expiredAuthorityIsWhatItsBitsSay()
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Expired Root");
    spec.notAfterOffset = -3600;
    const Identity root = makeIdentity(spec);
    const Identity leaf = makeIdentity(CertificateSpec(), &root);
    TrustedRoots roots;
    roots.setRoots({root.der()});
    WinCertStore store(nullptr);
    QCOMPARE(store.verify(wrapAll({root})), vela::VerifySelfSigned);
    QCOMPARE(store.verify(wrapAll({leaf, root})), vela::VerifyExpired);
    QCOMPARE(store.verify(wrapAll({leaf})), vela::VerifyExpired);
}

QTEST_GUILESS_MAIN(WinCertStoreBundleTest)
#include "tst_wincertstorebundle.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    OpenSSL functions that fail although nothing is wrong with the certificate, as they do when
    memory runs out or a policy forbids a digest.
*/

#include "tests/common/ErrorQueue.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <QtTest/QtTest>

#include <cstring>

using vela::SslCertificate;

namespace {

int failingDigest = NID_undef;
bool memoryBioFails = false;

} // namespace

extern "C" {

int __real_X509_digest(const X509* x509, const EVP_MD* type, unsigned char* bytes,
                       unsigned int* length);

int __wrap_X509_digest(const X509* x509, const EVP_MD* type, unsigned char* bytes,
                       unsigned int* length)
{
    if (EVP_MD_type(type) != failingDigest)
        return __real_X509_digest(x509, type, bytes, length);
    // What a half-done digest may leave behind, an entry in the error queue included.
    std::memset(bytes, 0xA5, *length);
    test::leaveOpenSslErrors();
    return 0;
}

// The engines disagree about const, which makes no difference to a C function.
BIO* __real_BIO_new_mem_buf(const void* data, int length);

BIO* __wrap_BIO_new_mem_buf(const void* data, int length)
{
    return memoryBioFails ? nullptr : __real_BIO_new_mem_buf(data, length);
}
}

class CertificateFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void failedDigestGivesAnEmptyFingerprint_data();
    void failedDigestGivesAnEmptyFingerprint();
    void failedDigestLeavesNothingOfThePreviousCertificate();
    void missingMemoryForPemGivesAnEmptyObject();

private:
    test::Identity m_identity;
};

void CertificateFaultsTest::initTestCase()
{
    m_identity = test::makeIdentity(test::CertificateSpec());
}

void CertificateFaultsTest::cleanup()
{
    failingDigest = NID_undef;
    memoryBioFails = false;
}

void CertificateFaultsTest::failedDigestGivesAnEmptyFingerprint_data()
{
    QTest::addColumn<int>("digest");
    QTest::addColumn<int>("sha1Size");
    QTest::addColumn<int>("md5Size");
    QTest::newRow("none fails") << int(NID_undef) << 20 << 16;
    QTest::newRow("SHA-1") << int(NID_sha1) << 0 << 16;
    QTest::newRow("MD5") << int(NID_md5) << 20 << 0;
}

void CertificateFaultsTest::failedDigestGivesAnEmptyFingerprint()
{
    QFETCH(int, digest);
    failingDigest = digest;
    const SslCertificate certificate(m_identity.x509(), false);
    QTEST(certificate.sha1Digest().size(), "sha1Size");
    QTEST(certificate.md5Digest().size(), "md5Size");
    QTEST(SslCertificate::sha1Digest(m_identity.x509()).size(), "sha1Size");
    QTEST(SslCertificate::md5Digest(m_identity.x509()).size(), "md5Size");
    QCOMPARE(certificate.subjectCommonName(), QStringLiteral("localhost"));
    QCOMPARE(ERR_peek_error(), 0UL);
}

void CertificateFaultsTest::failedDigestLeavesNothingOfThePreviousCertificate()
{
    SslCertificate certificate(m_identity.x509(), false);
    const test::Identity other = test::makeIdentity(test::CertificateSpec());
    failingDigest = NID_sha1;
    certificate = SslCertificate(other.x509(), false);
    QVERIFY(certificate.sha1Digest().isEmpty());
}

void CertificateFaultsTest::missingMemoryForPemGivesAnEmptyObject()
{
    const QByteArray pem = m_identity.certificatePem();
    memoryBioFails = true;
    QVERIFY(SslCertificate(pem.constData(), pem.size()).isEmpty());
    memoryBioFails = false;
    QVERIFY(!SslCertificate(pem.constData(), pem.size()).isEmpty());
}

QTEST_GUILESS_MAIN(CertificateFaultsTest)
#include "tst_certificatefaults.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    OpenSSL functions that fail although nothing is wrong with what they are given, as they do when
    memory runs out.
*/

#include "tests/common/ErrorQueue.h"
#include "tests/common/MessageLog.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificateChain.h>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtCore/QBuffer>
#include <QtTest/QtTest>

using vela::SslCertificate;
using vela::SslCertificateChain;

namespace {

bool memoryBioFails = false;
bool encodingFails = false;

//! Fails as an encoder that runs out of memory half way: a part is written, an error is queued.
int writeHalf(BIO* bio)
{
    BIO_write(bio, "half", 4);
    test::leaveOpenSslErrors();
    return 0;
}

} // namespace

extern "C" {

// The engines disagree about const, which makes no difference to a C function.
BIO* __real_BIO_new_mem_buf(const void* data, int length);
BIO* __real_BIO_new(const void* method);
int __real_i2d_X509_bio(BIO* bio, const void* x509);
int __real_PEM_write_bio_X509(BIO* bio, const void* x509);

BIO* __wrap_BIO_new_mem_buf(const void* data, int length)
{
    return memoryBioFails ? nullptr : __real_BIO_new_mem_buf(data, length);
}

BIO* __wrap_BIO_new(const void* method)
{
    return memoryBioFails ? nullptr : __real_BIO_new(method);
}

int __wrap_i2d_X509_bio(BIO* bio, const void* x509)
{
    return encodingFails ? writeHalf(bio) : __real_i2d_X509_bio(bio, x509);
}

int __wrap_PEM_write_bio_X509(BIO* bio, const void* x509)
{
    return encodingFails ? writeHalf(bio) : __real_PEM_write_bio_X509(bio, x509);
}
}

class CodingFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void missingMemoryReadsNothing();
    void failureWritesNothing_data();
    void failureWritesNothing();

private:
    test::Identity m_identity;
    QByteArray m_pem;
};

void CodingFaultsTest::initTestCase()
{
    m_identity = test::makeIdentity(test::CertificateSpec());
    m_pem = m_identity.certificatePem();
}

void CodingFaultsTest::cleanup()
{
    memoryBioFails = false;
    encodingFails = false;
    QCOMPARE(ERR_peek_error(), 0UL);
}

void CodingFaultsTest::missingMemoryReadsNothing()
{
    const test::PemDirectory directory;
    const QString fileName = directory.write(QStringLiteral("file.pem"), m_pem);
    const test::MessageLog log;
    memoryBioFails = true;
    QVERIFY(!SslCertificate::readPem(m_pem.constData(), m_pem.size()));
    QVERIFY(!SslCertificate::readPem(fileName));
    QVERIFY(SslCertificateChain::readPem(m_pem.constData(), m_pem.size()).isEmpty());
    QCOMPARE(log.messages(), QStringList());
}

void CodingFaultsTest::failureWritesNothing_data()
{
    QTest::addColumn<bool>("memoryFails");
    QTest::newRow("no memory") << true;
    QTest::newRow("encoder fails half way") << false;
}

void CodingFaultsTest::failureWritesNothing()
{
    QFETCH(bool, memoryFails);
    const test::PemDirectory directory;
    const QString fileName = directory.write(QStringLiteral("file.pem"), "content");
    const QList<x509_st*> handles{m_identity.x509(), m_identity.x509()};
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::ReadWrite));
    const test::MessageLog log;

    memoryBioFails = memoryFails;
    encodingFails = !memoryFails;
    QCOMPARE(SslCertificate::encodeDer(m_identity.x509()), QByteArray());
    QCOMPARE(SslCertificate::encodePem(m_identity.x509()), QString());
    QCOMPARE(SslCertificateChain(handles).encodePem(), QString());
    QCOMPARE(SslCertificateChain::encodePem(handles), QString());
    SslCertificate::writePem(m_identity.x509(), fileName);
    SslCertificateChain::writePem(handles, &buffer);

    QCOMPARE(test::contentOf(fileName), QByteArray("content"));
    QCOMPARE(buffer.data(), QByteArray());
    QCOMPARE(log.messages(), QStringList());
}

QTEST_GUILESS_MAIN(CodingFaultsTest)
#include "tst_codingfaults.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <vector>

using vela::SslCertificate;

namespace {

struct Certificate : SslCertificate
{
    using SslCertificate::setMd5Digest;
    using SslCertificate::setSha1Digest;
    using SslCertificate::SslCertificate;
};

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

test::Identity identityOf(test::KeyType keyType = test::KeyType::EcP256)
{
    test::CertificateSpec spec;
    spec.keyType = keyType;
    return test::makeIdentity(spec);
}

} // namespace

class CertificateCopyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void copyLeavesTheObjectPartBehind();
    void copyOfAnEmptyObjectKeepsItsFingerprints();
    void copyComputesAnew();
    void assignmentTakesOverEverything();
    void severalThreadsMayRead();
};

void CertificateCopyTest::copyLeavesTheObjectPartBehind()
{
    QObject parent;
    const test::Identity identity = identityOf();
    SslCertificate source(identity.x509(), false);
    source.setParent(&parent);
    source.setObjectName(text("source"));
    const SslCertificate copy(source);
    QVERIFY(!copy.parent());
    QVERIFY(copy.objectName().isEmpty());

    SslCertificate assigned;
    assigned.setObjectName(text("assigned"));
    assigned = source;
    QVERIFY(!assigned.parent());
    QCOMPARE(assigned.objectName(), text("assigned"));
}

void CertificateCopyTest::copyOfAnEmptyObjectKeepsItsFingerprints()
{
    Certificate source;
    source.setSha1Digest("sha1");
    source.setMd5Digest("md5");
    const SslCertificate copy(source);
    QVERIFY(copy.isEmpty());
    QCOMPARE(copy.sha1Digest(), QByteArray("sha1"));
    QCOMPARE(copy.md5Digest(), QByteArray("md5"));
}

void CertificateCopyTest::copyComputesAnew()
{
    const test::Identity identity = identityOf();
    Certificate source(identity.x509(), false);
    const QByteArray sha1 = source.sha1Digest();
    source.setSha1Digest("sha1");
    source.setCipherDescription(text("A B Kx=C Au=D Enc=E Mac=F export"));
    source.setCipher(text("A"), 128, text("B"));

    const SslCertificate copy(source);
    QCOMPARE(copy.sha1Digest(), sha1);
    QCOMPARE(copy.cipher().authentication, text("id-ecPublicKey"));
    QCOMPARE(copy.cipherDescription(text(",")),
             text("Cipher=A,128 bit,Protocol=B,Key Exchange=C,Authentication=id-ecPublicKey,"
                  "Encryption=E,MAC=F,export"));
}

void CertificateCopyTest::assignmentTakesOverEverything()
{
    const test::Identity identity = identityOf();
    Certificate source(identity.x509(), false);
    source.setSha1Digest("sha1");
    source.setMd5Digest("md5");
    source.setCipherDescription(text("A B Kx=C Au=D"));

    SslCertificate assigned;
    assigned = source;
    QCOMPARE(assigned.sha1Digest(), QByteArray("sha1"));
    QCOMPARE(assigned.md5Digest(), QByteArray("md5"));
    QCOMPARE(assigned.issuerAttributes(), source.issuerAttributes());
    QCOMPARE(assigned.subjectAttributes(), source.subjectAttributes());
    QCOMPARE(assigned.cipher().authentication, text("D"));
    QVERIFY(assigned == source);
}

void CertificateCopyTest::severalThreadsMayRead()
{
    const test::Identity identity = identityOf(test::KeyType::Rsa2048);
    const SslCertificate certificate(identity.x509(), false);
    const auto read = [&certificate] {
        for (int i = 0; i < 100; ++i) {
            const SslCertificate copy(certificate);
            if (copy != certificate || copy.validFrom() != certificate.validFrom()
                || copy.serialNumber() != certificate.serialNumber()
                || copy.version() != certificate.version()
                || copy.subjectString() != certificate.subjectString())
                qFatal("two threads read different things");
        }
    };
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(QThread::create(read));
    for (const auto& thread : threads)
        thread->start();
    for (const auto& thread : threads)
        QVERIFY(thread->wait(60000));
}

QTEST_GUILESS_MAIN(CertificateCopyTest)
#include "tst_certificatecopy.moc"

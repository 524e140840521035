// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/HandleWatch.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/x509.h>

#include <QtTest/QtTest>

#include <memory>

using vela::SslCertificate;

namespace {

struct Certificate : SslCertificate
{
    using SslCertificate::SslCertificate;
    using SslCertificate::setSha1Digest;
    using SslCertificate::setX509;
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

//! Parses \a identity's certificate into a handle whose end is counted in test::freedHandles.
X509* watchedHandle(const test::Identity& identity)
{
    const QByteArray der = identity.der();
    const auto* position = reinterpret_cast<const unsigned char*>(der.constData());
    X509* x509 = d2i_X509(nullptr, &position, der.size());
    return test::watched(x509);
}

} // namespace

class CertificateOwnershipTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void ownedHandleIsFreedByTheDestructor();
    void unownedHandleIsNotFreed();
    void copyDoesNotOwn();
    void copyDanglesOnceItsSourceIsGone();
    void assignmentDoesNotOwn();
    void assignmentFreesWhatWasOwned();
    void assignmentOfAnEmptyObjectFreesWhatWasOwned();
    void assignmentToItselfChangesNothing();
    void settingTheSameHandleChangesNothing();
    void settingAnotherHandleReplacesEverything();
    void settingNullEmptiesAllButTheCipher();
    void keySizeStaysForOtherKeys();
    void clearEmptiesAllButTheKeySize();
    void clearedObjectCanBeUsedAgain();
    void clearOfAnUnownedHandleDoesNotFreeIt();
    void sharedPointerFreesOnce();
};

void CertificateOwnershipTest::init()
{
    test::freedHandles = 0;
}

void CertificateOwnershipTest::ownedHandleIsFreedByTheDestructor()
{
    {
        const SslCertificate certificate(watchedHandle(identityOf()), true);
        QCOMPARE(test::freedHandles, 0);
    }
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::unownedHandleIsNotFreed()
{
    X509* x509 = watchedHandle(identityOf());
    {
        const SslCertificate certificate(x509, false);
    }
    QCOMPARE(test::freedHandles, 0);
    X509_free(x509);
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::copyDoesNotOwn()
{
    const SslCertificate source(watchedHandle(identityOf()), true);
    {
        const SslCertificate copy(source);
        QCOMPARE(copy.x509(), source.x509());
    }
    QCOMPARE(test::freedHandles, 0);
    QCOMPARE(source.serialNumber(), QByteArray(1, '\1'));
}

void CertificateOwnershipTest::copyDanglesOnceItsSourceIsGone()
{
    auto source = std::make_unique<SslCertificate>(watchedHandle(identityOf()), true);
    {
        const SslCertificate copy(*source);
        const x509_st* handle = source->x509();
        source.reset();
        QCOMPARE(test::freedHandles, 1);
        QCOMPARE(copy.x509(), handle);
    }
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::assignmentDoesNotOwn()
{
    const SslCertificate source(watchedHandle(identityOf()), true);
    {
        SslCertificate assigned;
        assigned = source;
        QCOMPARE(assigned.x509(), const_cast<x509_st*>(source.x509()));
    }
    QCOMPARE(test::freedHandles, 0);
}

void CertificateOwnershipTest::assignmentFreesWhatWasOwned()
{
    const test::Identity identity = identityOf();
    const SslCertificate source(identity.x509(), false);
    {
        SslCertificate assigned(watchedHandle(identityOf()), true);
        assigned = source;
        QCOMPARE(test::freedHandles, 1);
    }
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::assignmentOfAnEmptyObjectFreesWhatWasOwned()
{
    SslCertificate assigned(watchedHandle(identityOf(test::KeyType::Rsa2048)), true);
    assigned = SslCertificate();
    QCOMPARE(test::freedHandles, 1);
    QVERIFY(assigned.isEmpty());
    QVERIFY(assigned.subjectAttributes().isEmpty());
    QCOMPARE(assigned.cipher().authenticationBits, 0);
}

void CertificateOwnershipTest::assignmentToItselfChangesNothing()
{
    {
        SslCertificate certificate(watchedHandle(identityOf()), true);
        const QByteArray sha1 = certificate.sha1Digest();
        SslCertificate& same = certificate;
        certificate = same;
        QCOMPARE(test::freedHandles, 0);
        QCOMPARE(certificate.sha1Digest(), sha1);
        QCOMPARE(certificate.subjectCommonName(), text("localhost"));
    }
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::settingTheSameHandleChangesNothing()
{
    X509* x509 = watchedHandle(identityOf());
    {
        Certificate unowned(x509, false);
        unowned.setSha1Digest("sha1");
        unowned.setX509(x509, true);
        QCOMPARE(unowned.sha1Digest(), QByteArray("sha1"));
    }
    QCOMPARE(test::freedHandles, 0);
    {
        Certificate owned(x509, true);
        owned.setX509(x509, false);
        QCOMPARE(test::freedHandles, 0);
    }
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::settingAnotherHandleReplacesEverything()
{
    test::CertificateSpec spec;
    spec.commonName = text("other");
    const test::Identity other = test::makeIdentity(spec);
    Certificate certificate(watchedHandle(identityOf()), true);
    const QByteArray sha1 = certificate.sha1Digest();
    const QByteArray md5 = certificate.md5Digest();

    certificate.setX509(other.x509(), false);
    QCOMPARE(test::freedHandles, 1);
    QCOMPARE(certificate.x509(), other.x509());
    QVERIFY(certificate.sha1Digest() != sha1);
    QVERIFY(certificate.md5Digest() != md5);
    QCOMPARE(certificate.subjectAttributes().values(text("CN")), QStringList(text("other")));
    QCOMPARE(certificate.issuerAttributes().values(text("CN")), QStringList(text("other")));
}

void CertificateOwnershipTest::settingNullEmptiesAllButTheCipher()
{
    Certificate certificate(watchedHandle(identityOf(test::KeyType::Rsa2048)), true);
    certificate.setX509(nullptr, false);
    QCOMPARE(test::freedHandles, 1);
    QVERIFY(certificate.isEmpty());
    QVERIFY(certificate.sha1Digest().isEmpty());
    QVERIFY(certificate.md5Digest().isEmpty());
    QVERIFY(certificate.issuerAttributes().isEmpty());
    QVERIFY(certificate.subjectAttributes().isEmpty());
    QCOMPARE(certificate.cipher().authentication, text("rsaEncryption"));
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
}

void CertificateOwnershipTest::keySizeStaysForOtherKeys()
{
    const test::Identity rsa = identityOf(test::KeyType::Rsa2048);
    const test::Identity ec = identityOf(test::KeyType::EcP256);
    Certificate certificate(ec.x509(), false);
    QCOMPARE(certificate.cipher().authenticationBits, 0);
    certificate.setX509(rsa.x509(), false);
    QCOMPARE(certificate.cipher().authentication, text("rsaEncryption"));
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
    certificate.setX509(ec.x509(), false);
    QCOMPARE(certificate.cipher().authentication, text("id-ecPublicKey"));
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
}

void CertificateOwnershipTest::clearEmptiesAllButTheKeySize()
{
    SslCertificate certificate(watchedHandle(identityOf(test::KeyType::Rsa2048)), true);
    certificate.setCipherDescription(text("A B Kx=C Au=D Enc=E Mac=F export"));
    certificate.setCipher(text("A"), 128, text("B"));
    certificate.clear();
    QCOMPARE(test::freedHandles, 1);
    QVERIFY(certificate.isEmpty());
    QVERIFY(!certificate.x509());
    QVERIFY(certificate.sha1Digest().isEmpty());
    QVERIFY(certificate.md5Digest().isEmpty());
    QVERIFY(certificate.issuerAttributes().isEmpty());
    QVERIFY(certificate.subjectAttributes().isEmpty());
    QVERIFY(certificate.cipherDescription(text(",")).isEmpty());
    QVERIFY(certificate.cipher().protocol.isEmpty());
    QVERIFY(certificate.cipher().name.isEmpty());
    QVERIFY(!certificate.cipher().exportable);
    QCOMPARE(certificate.cipher().bits, 0);
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
    certificate.clear();
    QCOMPARE(test::freedHandles, 1);
}

void CertificateOwnershipTest::clearedObjectCanBeUsedAgain()
{
    X509* x509 = watchedHandle(identityOf());
    {
        Certificate certificate(watchedHandle(identityOf()), true);
        certificate.clear();
        QCOMPARE(test::freedHandles, 1);
        // The flag of the handle that is gone must not free the next one.
        certificate.setX509(x509, false);
        QCOMPARE(certificate.subjectCommonName(), text("localhost"));
    }
    QCOMPARE(test::freedHandles, 1);
    X509_free(x509);
}

void CertificateOwnershipTest::clearOfAnUnownedHandleDoesNotFreeIt()
{
    X509* x509 = watchedHandle(identityOf());
    SslCertificate certificate(x509, false);
    certificate.clear();
    QCOMPARE(test::freedHandles, 0);
    QVERIFY(certificate.isEmpty());
    X509_free(x509);
}

void CertificateOwnershipTest::sharedPointerFreesOnce()
{
    vela::SslCertificatePtr first(new SslCertificate(watchedHandle(identityOf()), true));
    vela::SslCertificatePtr second = first;
    first.reset();
    QCOMPARE(test::freedHandles, 0);
    second.reset();
    QCOMPARE(test::freedHandles, 1);
}

QTEST_GUILESS_MAIN(CertificateOwnershipTest)
#include "tst_certificateownership.moc"

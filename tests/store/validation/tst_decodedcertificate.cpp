// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/DerWriter.h"
#include "tests/common/ErrorQueue.h"
#include "tests/store/platform/PlannedCertificate.h"

#include "store/validation/CertificateIndex.h"
#include "store/validation/CertificatePool.h"
#include "store/validation/SignatureAlgorithm.h"

#include <QtTest/QtTest>

#include <openssl/err.h>

using namespace vela;
using test::authorityPlan;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

DecodedCertificatePtr decoded(const test::CertificatePlan& plan)
{
    return DecodedCertificate::fromDer(PlannedCertificate(plan).der());
}

//! Returns the digest that is read of a certificate with \a algorithm, whose signature is none.
int digestOf(const QByteArray& algorithm)
{
    test::der::Certificate one;
    one.algorithm = algorithm;
    const auto certificate = DecodedCertificate::fromDer(test::der::encode(one));
    return certificate ? signatureDigest(certificate->x509()) : -1;
}

QByteArray pssWith(const QByteArray& parameters)
{
    return test::der::sequence(test::der::object("2a864886f70d01010a") + parameters);
}

QByteArray pssDigest(const char* objectHex)
{
    return test::der::sequence(
        test::der::value(0xA0, test::der::sequence(test::der::object(objectHex))));
}

} // namespace

class DecodedCertificateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void equalEncodingsAreOneObject();
    void unknownEncodingIsNotKnown();
    void whatIsNoneLeavesNoErrors();
    void extensionsAreRead();
    void extensionThatIsNoneIsMalformed();
    void longIdentifiersAreNotWrittenInDigits();
    void digestIsTheParametersWhereTheyHaveOne();
    void weakDigests();
    void indexFindsTheLastAddedFirst();
    void poolSweepsUpWhatIsGone();
};

void DecodedCertificateTest::equalEncodingsAreOneObject()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("one"))).der();
    const auto one = DecodedCertificate::fromDer(der);
    QVERIFY(one);
    QCOMPARE(DecodedCertificate::fromDer(QByteArray(der.constData(), der.size())), one);
    QCOMPARE(DecodedCertificate::known(der), one);
    QVERIFY(one->isSelfIssued());
    QVERIFY(one->isSignedBy(*one));
}

void DecodedCertificateTest::unknownEncodingIsNotKnown()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("unknown"))).der();
    QVERIFY(!DecodedCertificate::known(der));
}

void DecodedCertificateTest::whatIsNoneLeavesNoErrors()
{
    using test::der::sequence;
    ERR_clear_error();
    QVERIFY(!DecodedCertificate::fromDer("none"));
    QVERIFY(!DecodedCertificate::fromDer(
        sequence(sequence(QByteArray("\5\0", 2).repeated(5) + sequence({})) + sequence({})
                 + test::der::bits({}))));
    QCOMPARE(ERR_peek_error(), 0UL);
}

void DecodedCertificateTest::extensionsAreRead()
{
    const auto certificate = decoded(
        authorityPlan(QStringLiteral("one"), {{"basicConstraints", "CA:TRUE,pathlen:3"},
                                              {"keyUsage", "digitalSignature"},
                                              {"certificatePolicies", "1.2.3,1.2.4"},
                                              {"policyConstraints", "requireExplicitPolicy:2"},
                                              {"1.2.3.4", "critical,DER:0500"}}));
    const CertificateExtensions& extensions = certificate->extensions();
    QVERIFY(!extensions.isMalformed);
    QVERIFY(extensions.basicConstraints->isAuthority);
    QCOMPARE(*extensions.basicConstraints->pathLength, 3L);
    QVERIFY(!extensions.mayCertSign);
    QVERIFY(extensions.hasSubjectKeyId);
    QVERIFY(extensions.hasUnsupportedCritical);
    QCOMPARE(extensions.policyCount, std::size_t(2));
    QVERIFY(!extensions.hasRepeatedPolicies);
    QCOMPARE(*extensions.requiredPolicy, 2L);
    QVERIFY(extensions.nameConstraints.isEmpty());
}

void DecodedCertificateTest::extensionThatIsNoneIsMalformed()
{
    for (const char* name : {"basicConstraints", "keyUsage", "extendedKeyUsage", "nameConstraints",
                             "subjectAltName", "certificatePolicies", "policyConstraints"}) {
        const auto certificate = decoded(leafPlan(QStringLiteral("one"), {{name, "DER:0101FF"}}));
        QVERIFY2(certificate->extensions().isMalformed, name);
    }
}

void DecodedCertificateTest::longIdentifiersAreNotWrittenInDigits()
{
    const QByteArray usage = test::der::value(test::der::Object, QByteArray(400000, '\xFF') + '\1');
    test::der::Certificate one;
    one.extensions = test::der::extension("551d25", test::der::sequence(usage));
    const auto certificate = DecodedCertificate::fromDer(test::der::encode(one));
    QVERIFY(certificate);
    QCOMPARE(certificate->extensions().extendedUsages->size(), std::size_t(1));
    QCOMPARE(certificate->extensions().extendedUsages->front(), usage);
}

void DecodedCertificateTest::digestIsTheParametersWhereTheyHaveOne()
{
    QCOMPARE(digestOf(pssWith(test::der::sequence({}))), NID_sha1);
    QCOMPARE(digestOf(pssWith(pssDigest("2a864886f70d0205"))), NID_md5);
    QCOMPARE(digestOf(pssWith(pssDigest("2a864886f70d0204"))), NID_md4);
    QCOMPARE(digestOf(pssWith(pssDigest("608648016503040201"))), NID_sha256);
    QCOMPARE(digestOf(pssWith({})), NID_undef);
    QCOMPARE(digestOf(pssWith(test::der::value(test::der::Null, {}))), NID_undef);
    const auto plain = [](const char* objectHex) {
        return test::der::sequence(test::der::object(objectHex)
                                   + test::der::value(test::der::Null, {}));
    };
    QCOMPARE(digestOf(plain("2b0e03020f")), NID_sha); // SHA-0 with RSA.
    QCOMPARE(digestOf(plain("2a864886f70d010104")), NID_md5);
    QCOMPARE(digestOf(plain("2a864886f70d010105")), NID_sha1);
    QCOMPARE(digestOf(plain("2a0304")), NID_undef);
}

void DecodedCertificateTest::weakDigests()
{
    for (int digest : {NID_md2, NID_md4, NID_md5, NID_sha})
        QVERIFY2(isWeakDigest(digest), OBJ_nid2sn(digest));
    for (int digest : {NID_undef, NID_sha1, NID_sha224, NID_sha256, NID_sha384, NID_sha512})
        QVERIFY2(!isWeakDigest(digest), OBJ_nid2sn(digest));
}

void DecodedCertificateTest::indexFindsTheLastAddedFirst()
{
    const PlannedCertificate issuer(authorityPlan(QStringLiteral("Authority")));
    const auto one = DecodedCertificate::fromDer(issuer.der());
    const auto other = decoded(authorityPlan(QStringLiteral("Authority")));
    const auto leaf = DecodedCertificate::fromDer(
        PlannedCertificate(leafPlan(QStringLiteral("leaf")), &issuer).der());
    CertificateIndex index;
    QVERIFY(index.add(one));
    QVERIFY(index.add(other));
    QVERIFY(!index.add(one));
    QVERIFY(index.contains(one) && index.contains(other) && !index.contains(leaf));
    QCOMPARE(index.issuersOf(*leaf), std::vector<DecodedCertificatePtr>({one, other}));
    QVERIFY(index.issuersOf(*one).size() == 2);
}

//! The encodings of strangers' long certificates do not stay when the certificates have gone.
void DecodedCertificateTest::poolSweepsUpWhatIsGone()
{
    constexpr int LONG = 200 * 1024;
    QList<QByteArray> ders;
    for (char i = 0; i < 30; ++i) {
        test::der::Certificate one;
        one.serial = QByteArray("\1", 1) + i;
        one.extensions = test::der::extension("2a030405", QByteArray(LONG, '\xFF'));
        ders.append(test::der::encode(one));
        QVERIFY(DecodedCertificate::fromDer(ders.last()));
    }
    int shared = 0; // With the pool, by which an encoding is found.
    for (const QByteArray& der : ders)
        shared += der.isDetached() ? 0 : 1;
    QVERIFY(shared > 0);
    QVERIFY2(qint64(shared) * LONG <= CertificatePool::MAX_SWEPT_BYTES + LONG,
             qPrintable(QString::number(shared)));
}

QTEST_GUILESS_MAIN(DecodedCertificateTest)
#include "tst_decodedcertificate.moc"

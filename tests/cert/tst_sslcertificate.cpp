// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/OpenSslCommand.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QTimeZone>
#include <QtTest/QtTest>

using vela::SslCertificate;
using vela::SslCertificatePtr;

Q_DECLARE_METATYPE(vela::SslCertificatePtr)

namespace {

struct Certificate : SslCertificate
{
    using SslCertificate::digest;
    using SslCertificate::parseAttributes;
    using SslCertificate::SslCertificate;
    using SslCertificate::setMd5Digest;
    using SslCertificate::setSha1Digest;
    using SslCertificate::toByteArray;
};

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

SslCertificatePtr parse(const QByteArray& pem)
{
    return SslCertificatePtr(new SslCertificate(pem.constData(), pem.size()));
}

test::Identity identityWithTimes(const char* notBefore, const char* notAfter)
{
    test::CertificateSpec spec;
    spec.notBeforeText = notBefore;
    spec.notAfterText = notAfter;
    return test::makeIdentity(spec);
}

QString digits(const QDateTime& dateTime)
{
    return dateTime.toString(Qt::ISODate);
}

//! Returns the value of the line that begins with \a name.
QByteArray line(const QByteArray& output, const QByteArray& name)
{
    const QList<QByteArray> lines = output.split('\n');
    for (const QByteArray& candidate : lines) {
        if (candidate.toLower().startsWith(name.toLower() + '='))
            return candidate.mid(name.size() + 1);
    }
    return QByteArray();
}

QMultiMap<QString, QString> attributes(const QByteArray& oneline)
{
    QMultiMap<QString, QString> map;
    Certificate::parseAttributes(QString::fromLatin1(oneline), map);
    return map;
}

QString openSslDigits(const QByteArray& date)
{
    const QDateTime dateTime = QLocale::c().toDateTime(QString::fromLatin1(date.simplified()),
                                                       text("MMM d hh:mm:ss yyyy 'GMT'"));
    return digits(dateTime);
}

} // namespace

class SslCertificateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void defaultObjectIsEmpty();
    void metaObjectKnowsTheClassByItsFullName();
    void nullHandleGivesAnEmptyObject();
    void handleWithoutContentIsHarmless();
    void fingerprintsAreRawDigestsOfTheDer();
    void digestOfNullIsEmpty();
    void anyDigestCanBeMade();
    void serialNumberIsTheRawMagnitude_data();
    void serialNumberIsTheRawMagnitude();
    void bytesOfAStringAreCopied();
    void versionIsAsEncoded_data();
    void versionIsAsEncoded();
    void validityShowsTheDigitsOfTheCertificate();
    void validityOutsideTheUsualYears();
    void zoneOffsetIsAddedInMinutesAsSeconds();
    void malformedValidityIsTheEpoch();
    void equalityComparesBothFingerprints();
    void equalsOnPointers_data();
    void equalsOnPointers();
    void openSslCommandAgrees_data();
    void openSslCommandAgrees();
};

void SslCertificateTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void SslCertificateTest::defaultObjectIsEmpty()
{
    SslCertificate certificate;
    QVERIFY(certificate.isEmpty());
    QVERIFY(!certificate.x509());
    QVERIFY(!qAsConst(certificate).x509());
    QVERIFY(certificate.sha1Digest().isEmpty());
    QVERIFY(certificate.md5Digest().isEmpty());
    QVERIFY(certificate.serialNumber().isEmpty());
    QCOMPARE(certificate.version(), 0L);
    QVERIFY(!certificate.validFrom().isValid());
    QVERIFY(!certificate.validUntil().isValid());
    QVERIFY(!certificate.parent());
}

void SslCertificateTest::metaObjectKnowsTheClassByItsFullName()
{
    QCOMPARE(SslCertificate().metaObject()->className(), "vela::SslCertificate");
}

void SslCertificateTest::nullHandleGivesAnEmptyObject()
{
    const SslCertificate owned(static_cast<X509*>(nullptr), true);
    QVERIFY(owned.isEmpty());
    const SslCertificate described(nullptr, text("A"), QString(), 0, QString());
    QVERIFY(described.isEmpty());
    QCOMPARE(described.cipher().name, text("A"));
}

void SslCertificateTest::handleWithoutContentIsHarmless()
{
    const SslCertificate certificate(X509_new(), true);
    QVERIFY(!certificate.isEmpty());
    QVERIFY(certificate.subjectAttributes().isEmpty());
    QCOMPARE(certificate.version(), 0L);
    QCOMPARE(certificate.validFrom().toSecsSinceEpoch(), qint64(0));
    QCOMPARE(certificate.cipher().authenticationBits, 0);
}

void SslCertificateTest::fingerprintsAreRawDigestsOfTheDer()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    const SslCertificate certificate(identity.x509(), false);
    const QByteArray sha1 = QCryptographicHash::hash(identity.der(), QCryptographicHash::Sha1);
    const QByteArray md5 = QCryptographicHash::hash(identity.der(), QCryptographicHash::Md5);
    QCOMPARE(certificate.sha1Digest(), sha1);
    QCOMPARE(certificate.md5Digest(), md5);
    QCOMPARE(SslCertificate::sha1Digest(identity.x509()), sha1);
    QCOMPARE(SslCertificate::md5Digest(identity.x509()), md5);
}

void SslCertificateTest::digestOfNullIsEmpty()
{
    QVERIFY(SslCertificate::sha1Digest(nullptr).isEmpty());
    QVERIFY(SslCertificate::md5Digest(nullptr).isEmpty());
}

void SslCertificateTest::anyDigestCanBeMade()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    QCOMPARE(Certificate::digest(identity.x509(), EVP_sha256()),
             QCryptographicHash::hash(identity.der(), QCryptographicHash::Sha256));
}

void SslCertificateTest::serialNumberIsTheRawMagnitude_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::newRow("one byte") << QByteArray("01");
    QTest::newRow("three bytes") << QByteArray("c0ffee");
    QTest::newRow("high bit needs a sign octet in DER") << QByteArray("80");
    QTest::newRow("zero") << QByteArray("00");
    QTest::newRow("20 bytes") << QByteArray("7f00112233445566778899aabbccddeeff001122");
}

void SslCertificateTest::serialNumberIsTheRawMagnitude()
{
    QFETCH(QByteArray, hex);
    test::CertificateSpec spec;
    spec.serialHex = hex;
    const SslCertificatePtr certificate = parse(test::makeIdentity(spec).certificatePem());
    QCOMPARE(certificate->serialNumber().toHex(), hex);
}

void SslCertificateTest::bytesOfAStringAreCopied()
{
    QVERIFY(Certificate::toByteArray(nullptr).isEmpty());
    ASN1_STRING* string = ASN1_STRING_new();
    QVERIFY(Certificate::toByteArray(string).isEmpty());
    QVERIFY(ASN1_STRING_set(string, "a\0b", 3));
    const QByteArray bytes = Certificate::toByteArray(string);
    ASN1_STRING_free(string);
    QCOMPARE(bytes, QByteArray("a\0b", 3));
}

void SslCertificateTest::versionIsAsEncoded_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 1") << 0;
    QTest::newRow("version 2") << 1;
    QTest::newRow("version 3") << 2;
}

void SslCertificateTest::versionIsAsEncoded()
{
    QFETCH(int, version);
    test::CertificateSpec spec;
    spec.version = version;
    QCOMPARE(parse(test::makeIdentity(spec).certificatePem())->version(), long(version));
}

void SslCertificateTest::validityShowsTheDigitsOfTheCertificate()
{
    const test::Identity identity = identityWithTimes("200115103045Z", "200715103045Z");
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.validFrom().timeSpec(), Qt::LocalTime);
    QCOMPARE(digits(certificate.validFrom()), text("2020-01-15T10:30:45"));
    QCOMPARE(digits(certificate.validUntil()), text("2020-07-15T10:30:45"));
}

void SslCertificateTest::validityOutsideTheUsualYears()
{
    const test::Identity edges = identityWithTimes("500101000000Z", "491231235959Z");
    const SslCertificate certificate(edges.x509(), false);
    // Not by its digits: before 1970 Qt shows local time without the zone's history.
    const QDateTime start(QDate(1950, 1, 1), QTime(0, 0), QTimeZone::systemTimeZone());
    QCOMPARE(certificate.validFrom().toSecsSinceEpoch(), start.toSecsSinceEpoch());
    QCOMPARE(digits(certificate.validUntil()), text("2049-12-31T23:59:59"));

    const test::Identity generalized = identityWithTimes("200115103045Z", "20600101000000Z");
    QCOMPARE(digits(SslCertificate(generalized.x509(), false).validUntil()),
             text("2024-12-01T01:00:00"));
}

void SslCertificateTest::zoneOffsetIsAddedInMinutesAsSeconds()
{
    const test::Identity identity = identityWithTimes("200115103045+0100", "200115103045-0100");
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(digits(certificate.validFrom()), text("2020-01-15T10:31:45"));
    QCOMPARE(certificate.validUntil().toSecsSinceEpoch(), qint64(0));
}

void SslCertificateTest::malformedValidityIsTheEpoch()
{
    const test::Identity identity = identityWithTimes("garbage", "2001");
    const SslCertificate certificate(identity.x509(), false);
    QVERIFY(certificate.validFrom().isValid());
    QCOMPARE(certificate.validFrom().toSecsSinceEpoch(), qint64(0));
    QCOMPARE(certificate.validUntil().toSecsSinceEpoch(), qint64(0));
}

void SslCertificateTest::equalityComparesBothFingerprints()
{
    const QByteArray pem = test::makeIdentity(test::CertificateSpec()).certificatePem();
    const SslCertificatePtr one = parse(pem);
    const SslCertificatePtr two = parse(pem);
    QVERIFY(one->x509() != two->x509());
    QVERIFY(*one == *two);
    QVERIFY(!(*one != *two));
    QVERIFY(SslCertificate() == SslCertificate());
    QVERIFY(*one != SslCertificate());

    Certificate sha1Differs(pem.constData(), pem.size());
    sha1Differs.setSha1Digest("other");
    QVERIFY(sha1Differs != *one);
    Certificate md5Differs(pem.constData(), pem.size());
    md5Differs.setMd5Digest("other");
    QVERIFY(md5Differs != *one);
    Certificate longer(pem.constData(), pem.size());
    longer.setSha1Digest(one->sha1Digest() + '\0');
    QVERIFY(longer != *one);
}

void SslCertificateTest::equalsOnPointers_data()
{
    const QByteArray pem = test::makeIdentity(test::CertificateSpec()).certificatePem();
    const SslCertificatePtr null;
    const SslCertificatePtr empty(new SslCertificate);
    const SslCertificatePtr one = parse(pem);
    const SslCertificatePtr other =
        parse(test::makeIdentity(test::CertificateSpec()).certificatePem());
    auto* marked = new Certificate;
    marked->setSha1Digest(one->sha1Digest());
    marked->setMd5Digest(one->md5Digest());
    const SslCertificatePtr emptyWithFingerprints(marked);

    QTest::addColumn<SslCertificatePtr>("a");
    QTest::addColumn<SslCertificatePtr>("b");
    QTest::addColumn<bool>("equal");
    QTest::newRow("null, null") << null << null << true;
    QTest::newRow("null matches anything") << null << one << true;
    QTest::newRow("null matches empty") << null << empty << true;
    QTest::newRow("but not the other way round") << one << null << false;
    QTest::newRow("empty, null") << empty << null << false;
    QTest::newRow("same pointer") << one << one << true;
    QTest::newRow("two parses") << one << parse(pem) << true;
    QTest::newRow("two certificates") << one << other << false;
    QTest::newRow("empty, empty") << empty << SslCertificatePtr(new SslCertificate) << true;
    QTest::newRow("empty, certificate") << empty << one << false;
    QTest::newRow("certificate, empty") << one << empty << false;
    QTest::newRow("handles count before fingerprints") << empty << emptyWithFingerprints << true;
    QTest::newRow("certificate, empty with its fingerprints")
        << one << emptyWithFingerprints << false;
}

void SslCertificateTest::equalsOnPointers()
{
    QFETCH(SslCertificatePtr, a);
    QFETCH(SslCertificatePtr, b);
    QTEST(SslCertificate::equals(a, b), "equal");
}

void SslCertificateTest::openSslCommandAgrees_data()
{
    QTest::addColumn<QByteArray>("pem");
    test::CertificateSpec authoritySpec;
    authoritySpec.isAuthority = true;
    authoritySpec.keyType = test::KeyType::Rsa2048;
    authoritySpec.subject = {{"C", "DE"}, {"O", "Acme, Inc."}, {"CN", "M\xC3\xBCller"}};
    authoritySpec.serialHex = "FF00112233445566778899AABBCCDDEE";
    authoritySpec.notBeforeText = "200115103045Z";
    authoritySpec.notAfterText = "491231235959Z";
    const test::Identity authority = test::makeIdentity(authoritySpec);
    QTest::newRow("authority") << authority.certificatePem();

    test::CertificateSpec spec;
    spec.version = 0;
    spec.serialHex = "C0FFEE";
    spec.notBeforeText = "800115000000Z";
    spec.notAfterText = "200715103045Z";
    QTest::newRow("issued, version 1") << test::makeIdentity(spec, &authority).certificatePem();
}

void SslCertificateTest::openSslCommandAgrees()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(QByteArray, pem);
    const SslCertificatePtr certificate = parse(pem);

    QByteArray output = test::runOpenSsl(
        text("x509 -noout -serial -subject -issuer -dates -nameopt compat").split(QLatin1Char(' ')),
        pem);
    QCOMPARE(certificate->serialNumber().toHex().toUpper(), line(output, "serial"));
    QCOMPARE(certificate->issuerAttributes(), attributes(line(output, "issuer")));
    QCOMPARE(certificate->subjectAttributes(), attributes(line(output, "subject")));
    QCOMPARE(digits(certificate->validFrom()), openSslDigits(line(output, "notBefore")));
    QCOMPARE(digits(certificate->validUntil()), openSslDigits(line(output, "notAfter")));

    output = test::runOpenSsl(text("x509 -noout -fingerprint -sha1").split(QLatin1Char(' ')), pem);
    QCOMPARE(certificate->sha1Digest().toHex(':').toUpper(), line(output, "sha1 Fingerprint"));
    output = test::runOpenSsl(text("x509 -noout -fingerprint -md5").split(QLatin1Char(' ')), pem);
    QCOMPARE(certificate->md5Digest().toHex(':').toUpper(), line(output, "md5 Fingerprint"));
}

QTEST_GUILESS_MAIN(SslCertificateTest)
#include "tst_sslcertificate.moc"

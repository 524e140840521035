// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/DerWriter.h"
#include "tests/common/TestCertificates.h"

#include "cert/CertificateOutline.h"
#include "store/validation/DecodedCertificate.h"

#include <QtTest/QtTest>

using vela::CertificateOutline;

namespace {

constexpr int MANY_NAMES = 5000;
const char* const CURVE_KEY = "2a8648ce3d0201";
const char* const CURVE = "2a8648ce3d030107";

QByteArray withKey(const QByteArray& parameters, const QByteArray& point)
{
    test::der::Certificate one;
    one.key = test::der::sequence(test::der::sequence(test::der::object(CURVE_KEY) + parameters)
                                  + test::der::bits(point));
    return test::der::encode(one);
}

} // namespace

class CertificateOutlineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void certificateHasOne();
    void otherThingsHaveNone_data();
    void otherThingsHaveNone();
    void everyTruncationHasNone();
    void elementsAreCountedInsideOfOctets();
    void elementsThatCannotBeReadCountAsTheMostThereCouldBe();
    void elementsInOtherFormsAreCounted_data();
    void elementsInOtherFormsAreCounted();
    void tooManyElementsAreNotDecoded();
    void formOfTheKeyIsSeen();
    void keyInAnotherFormIsNotDecoded_data();
    void keyInAnotherFormIsNotDecoded();
};

void CertificateOutlineTest::certificateHasOne()
{
    const QByteArray der = test::makeIdentity(test::CertificateSpec()).der();
    const auto outline = CertificateOutline::of(der);
    QVERIFY(outline);
    QCOMPARE(outline->bytes, std::size_t(der.size()));
    QVERIFY(outline->elements > 20 && outline->elements < 100);
    QVERIFY(outline->isDecodable());
    QVERIFY(outline->hasCurveKey);
    QVERIFY(!outline->hasCurveParameters && !outline->hasCompressedPoint);
}

void CertificateOutlineTest::otherThingsHaveNone_data()
{
    QTest::addColumn<QByteArray>("der");
    const QByteArray der = test::der::encode({});
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("text") << QByteArray("certificate");
    QTest::newRow("empty sequence") << test::der::sequence({});
    QTest::newRow("one octet more") << der + 'x';
    QTest::newRow("no signature") << test::der::sequence(test::der::sequence({}));
    QTest::newRow("length without end")
        << QByteArray("\x30\x80", 2) + der.mid(4) + QByteArray(2, 0);
    QTest::newRow("length of five octets") << QByteArray("\x30\x85\1\0\0\0\0", 7);
}

void CertificateOutlineTest::otherThingsHaveNone()
{
    QFETCH(QByteArray, der);
    QVERIFY(!CertificateOutline::of(der));
}

void CertificateOutlineTest::everyTruncationHasNone()
{
    const QByteArray der = test::der::encode({});
    QVERIFY(CertificateOutline::of(der));
    for (int size = 0; size < der.size(); ++size)
        QVERIFY2(!CertificateOutline::of(der.left(size)), qPrintable(QString::number(size)));
}

void CertificateOutlineTest::elementsAreCountedInsideOfOctets()
{
    constexpr std::size_t NAMES = 1000;
    test::der::Certificate one;
    const std::size_t before = CertificateOutline::of(test::der::encode(one))->elements;
    QByteArray names;
    for (std::size_t i = 0; i < NAMES; ++i)
        names += test::der::value(test::der::DnsName, "a");
    one.extensions = test::der::extension("551d11", test::der::sequence(names));
    QVERIFY(CertificateOutline::of(test::der::encode(one))->elements >= before + NAMES);
}

//! A length that leads beyond its place does not hide what comes behind it.
void CertificateOutlineTest::elementsThatCannotBeReadCountAsTheMostThereCouldBe()
{
    constexpr int HIDDEN = 40000;
    test::der::Certificate one;
    one.subject = test::der::sequence(QByteArray("\x30\x84\x7F\xFF\xFF\xFF", 6)
                                      + QByteArray("\x05\0", 2).repeated(HIDDEN));
    const auto outline = CertificateOutline::of(test::der::encode(one));
    QVERIFY(outline);
    QVERIFY(outline->elements >= HIDDEN);
    // The same behind octets that only look like an element: those that follow are counted.
    one.subject = test::der::sequence(test::der::value(test::der::OctetString, "\x30\x7F")
                                      + QByteArray("\x05\0", 2).repeated(HIDDEN));
    QVERIFY(CertificateOutline::of(test::der::encode(one))->elements >= HIDDEN);
}

void CertificateOutlineTest::elementsInOtherFormsAreCounted_data()
{
    using namespace test::der;
    QTest::addColumn<QByteArray>("extension");
    QByteArray names;
    for (int i = 0; i < MANY_NAMES; ++i)
        names += value(DnsName, "a");
    const auto octets = [](const QByteArray& content) { return value(OctetString, content); };
    const auto withOctets = [](const QByteArray& encoded) {
        return sequence(object("551d11") + encoded);
    };
    const QByteArray usual = sequence(names);
    QTest::newRow("without a length")
        << withOctets(octets(QByteArray("\x30\x80", 2) + names + QByteArray(2, '\0')));
    QTest::newRow("octets without a length")
        << withOctets(QByteArray("\x24\x80", 2) + octets(usual) + QByteArray(2, '\0'));
    QTest::newRow("octets in pieces")
        << withOctets(value(0x24, octets(usual.left(1)) + octets(usual.mid(1))));
    QTest::newRow("list whose tag says otherwise") << withOctets(octets(value(0x10, names)));
    QTest::newRow("length with zeros before it")
        << withOctets(octets(QByteArray("\x30\x88\0\0\0\0\0\0", 8) + char(names.size() >> 8)
                             + char(names.size()) + names));
}

//! An engine reads them all the same.
void CertificateOutlineTest::elementsInOtherFormsAreCounted()
{
    QFETCH(QByteArray, extension);
    test::der::Certificate one;
    one.extensions = extension;
    const QByteArray der = test::der::encode(one);
    const auto certificate = vela::DecodedCertificate::fromDer(der);
    QVERIFY(certificate);
    QCOMPARE(certificate->extensions().names.size(), std::size_t(MANY_NAMES));
    QVERIFY(CertificateOutline::of(der)->elements >= std::size_t(MANY_NAMES));
}

void CertificateOutlineTest::tooManyElementsAreNotDecoded()
{
    test::der::Certificate one;
    const std::size_t before = CertificateOutline::of(test::der::encode(one))->elements;
    const int more = int(CertificateOutline::MAX_ELEMENTS - before);
    const auto with = [&one](int count) {
        one.subject = test::der::sequence(test::der::attribute("550403", "subject")
                                          + QByteArray("\x05\0", 2).repeated(count));
        return *CertificateOutline::of(test::der::encode(one));
    };
    QCOMPARE(with(more).elements, CertificateOutline::MAX_ELEMENTS);
    QVERIFY(with(more).isDecodable());
    QVERIFY(!with(more + 1).isDecodable());
}

void CertificateOutlineTest::formOfTheKeyIsSeen()
{
    const QByteArray named = test::der::object(CURVE);
    const QByteArray described = test::der::sequence(named);
    const QByteArray whole = '\4' + QByteArray(64, 'x');
    const QByteArray half = '\2' + QByteArray(32, 'x');
    const auto usual = CertificateOutline::of(withKey(named, whole));
    QVERIFY(!usual->hasCompressedPoint && !usual->hasCurveParameters && usual->isDecodable());
    const auto compressed = CertificateOutline::of(withKey(named, half));
    QVERIFY(compressed->hasCompressedPoint && compressed->isDecodable());
    QVERIFY(compressed->cost() > usual->cost() + 500000);
    QVERIFY(!CertificateOutline::of(withKey(described, whole))->isDecodable());
}

void CertificateOutlineTest::keyInAnotherFormIsNotDecoded_data()
{
    using namespace test::der;
    QTest::addColumn<QByteArray>("key");
    const QByteArray name = object(CURVE_KEY);
    const QByteArray described = sequence(object(CURVE));
    const QByteArray point = '\2' + QByteArray(32, 'x');
    const QByteArray unending = QByteArray("\x30\x80", 2);
    const QByteArray end(2, '\0');
    QTest::newRow("curve without a length")
        << sequence(sequence(name + unending + described.mid(2) + end) + bits(point));
    QTest::newRow("algorithm without a length")
        << sequence(unending + name + described + end + bits(point));
    QTest::newRow("point in pieces")
        << sequence(sequence(name + described) + value(0x23, bits(point)));
    QTest::newRow("curve in another kind of value")
        << sequence(sequence(name + value(Set, object(CURVE))) + bits(point));
    QTest::newRow("no object") << sequence(sequence(value(Null, {})) + bits(point));
    QTest::newRow("no key") << sequence(sequence(name + object(CURVE)));
}

//! An engine reads it all the same, and may compute for ever on a curve made for that.
void CertificateOutlineTest::keyInAnotherFormIsNotDecoded()
{
    QFETCH(QByteArray, key);
    test::der::Certificate one;
    one.key = key;
    const auto outline = CertificateOutline::of(test::der::encode(one));
    QVERIFY(!outline || !outline->isDecodable());
}

QTEST_GUILESS_MAIN(CertificateOutlineTest)
#include "tst_certificateoutline.moc"

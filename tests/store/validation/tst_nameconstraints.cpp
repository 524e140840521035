// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/DerWriter.h"
#include "tests/store/platform/PlannedCertificate.h"

#include "store/validation/NameJudge.h"

#include <QtTest/QtTest>

using namespace vela;
using test::authorityPlan;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

constexpr qint64 PLENTY = 1000000000;

DecodedCertificatePtr decoded(const PlannedCertificate& certificate)
{
    return DecodedCertificate::fromDer(certificate.der());
}

DecodedCertificatePtr authority(const QByteArray& constraints)
{
    return decoded(PlannedCertificate(
        authorityPlan(QStringLiteral("Authority"), {{"nameConstraints", constraints}})));
}

DecodedCertificatePtr end(const QString& commonName, const QByteArray& names)
{
    return decoded(PlannedCertificate(leafPlan(commonName, {{"subjectAltName", names}})));
}

QList<QByteArray> textsOf(const test::CertificatePlan& plan,
                          const PlannedCertificate* issuer = nullptr)
{
    QList<QByteArray> texts;
    for (const QByteArray& text : hostTextsOf(PlannedCertificate(plan, issuer).x509()))
        texts.append(text);
    return texts;
}

test::CertificatePlan withSubject(const QList<QPair<QByteArray, QByteArray>>& subject)
{
    test::CertificatePlan plan = leafPlan(QString());
    plan.subject = subject;
    return plan;
}

} // namespace

class NameConstraintsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hostTextsAreThoseOfTheOneLineName();
    void hostTextIsEscapedAsInTheOneLineName();
    void issuersTextsCountWithoutTheSubjects();
    void addressIsReadInItsOneForm_data();
    void addressIsReadInItsOneForm();
    void hostIsReadInLowerCase();
    void onlyTheEndsTextsCount();
    void pairIsComparedOnce();
    void withoutBudgetNamesAreNotComparable();
    void withoutComparisonsNamesAreNotComparable();
};

void NameConstraintsTest::hostTextsAreThoseOfTheOneLineName()
{
    QCOMPARE(textsOf(withSubject({{"CN", "a"}, {"O", "b"}, {"CN", "c"}})),
             QList<QByteArray>({"a", "c"}));
    QCOMPARE(textsOf(withSubject({{"O", "b/CN=c/CN=d/O=e"}})), QList<QByteArray>({"c", "d"}));
    QCOMPARE(textsOf(withSubject({{"CN", "a/b/CN=c"}})), QList<QByteArray>({"a", "c"}));
    QCOMPARE(textsOf(withSubject({{"CN", "a/cn=b"}})), QList<QByteArray>({"a"}));
    QCOMPARE(textsOf(withSubject({{"O", "CN=c"}})), QList<QByteArray>());
}

void NameConstraintsTest::hostTextIsEscapedAsInTheOneLineName()
{
    QCOMPARE(textsOf(leafPlan(QString::fromUtf8("b\xC3\xA4nk.com"))).value(0).left(3),
             QByteArray("b\\x"));
}

void NameConstraintsTest::issuersTextsCountWithoutTheSubjects()
{
    const PlannedCertificate issuer(authorityPlan(QStringLiteral("bank.com")));
    QCOMPARE(textsOf(withSubject({{"O", "b"}}), &issuer), QList<QByteArray>({"bank.com"}));
    QCOMPARE(textsOf(withSubject({{"CN", "a"}}), &issuer), QList<QByteArray>({"a"}));
}

void NameConstraintsTest::addressIsReadInItsOneForm_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("version 4") << QByteArray("192.0.2.1") << QByteArray::fromHex("c0000201");
    QTest::newRow("version 6") << QByteArray("2001:db8::1")
                               << QByteArray::fromHex("20010db8000000000000000000000001");
    for (const char* text :
         {"", "1", "1.2", "1.2.3", "1.2.3.4.5", "1.2.3.256", "01.2.3.4", "1.2.3.4 ", "+1.2.3.4",
          "1.2.3.-4", "a.b.c.d", "::1%lo", "[::1]", ":", "1:2", "0x7f.0.0.1"}) {
        QTest::addRow("\"%s\"", text) << QByteArray(text) << QByteArray();
    }
}

void NameConstraintsTest::addressIsReadInItsOneForm()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, octets);
    const GeneralName name = addressOfText(text);
    QCOMPARE(name.isReadable, !octets.isEmpty());
    QCOMPARE(name.value, octets);
}

void NameConstraintsTest::hostIsReadInLowerCase()
{
    const GeneralName pattern = hostOfText("*.Example.COM");
    QVERIFY(pattern.isReadable && pattern.isPattern);
    QCOMPARE(pattern.value, QByteArray("*.example.com"));
    for (const char* text : {"", ".a", "a.", "a..b", "a b", "*", "*.", "a.*.b", "1.2.3.4", "0x7f",
                             "a.0x1F", "b\\xE4nk.com"})
        QVERIFY2(!hostOfText(text).isReadable, text);
    for (const char* text : {"a", "A.b", "a-b_c.d", "1.a", "0xg"})
        QVERIFY2(hostOfText(text).isReadable, text);
}

void NameConstraintsTest::onlyTheEndsTextsCount()
{
    WorkBudget budget(PLENTY);
    NameJudge judge(1000, &budget);
    const auto constrained = authority("permitted;DNS:example.com");
    const auto certificate = end(QStringLiteral("bank.com"), "DNS:www.example.com");
    QCOMPARE(judge.errorsOf(*certificate, *constrained), PathErrors(NoPathError));
    QCOMPARE(judge.errorsOfEnd(*certificate, *constrained), PathErrors(NameNotPermitted));
}

void NameConstraintsTest::pairIsComparedOnce()
{
    WorkBudget budget(PLENTY);
    NameJudge judge(1000, &budget);
    const auto constrained = authority("permitted;DNS:example.com");
    const auto certificate = end(QStringLiteral("www.example.com"), "DNS:www.example.com");
    QCOMPARE(judge.errorsOfEnd(*certificate, *constrained), PathErrors(NoPathError));
    const qint64 spent = budget.spent();
    QVERIFY(spent > 0);
    QCOMPARE(judge.errorsOfEnd(*certificate, *constrained), PathErrors(NoPathError));
    QCOMPARE(budget.spent(), spent);
}

void NameConstraintsTest::withoutBudgetNamesAreNotComparable()
{
    const auto constrained = authority("permitted;DNS:example.com,excluded;DNS:a.example.com");
    const auto certificate = end(QStringLiteral("www.example.com"), "DNS:www.example.com");
    WorkBudget plenty(PLENTY);
    QCOMPARE(NameJudge(1000, &plenty).errorsOfEnd(*certificate, *constrained),
             PathErrors(NoPathError));
    for (qint64 work = 0; work < plenty.spent(); ++work) {
        WorkBudget budget(work);
        QVERIFY(NameJudge(1000, &budget).errorsOfEnd(*certificate, *constrained)
                & NameNotComparable);
    }
}

void NameConstraintsTest::withoutComparisonsNamesAreNotComparable()
{
    const auto constrained = authority("permitted;DNS:example.com,excluded;DNS:a.example.com");
    const auto certificate = end(QStringLiteral("www.example.com"), "DNS:www.example.com");
    // Two names, the subject being one, and two constraints.
    WorkBudget budget(PLENTY);
    QCOMPARE(NameJudge(4, &budget).errorsOf(*certificate, *constrained), PathErrors(NoPathError));
    QCOMPARE(NameJudge(3, &budget).errorsOf(*certificate, *constrained),
             PathErrors(NameNotComparable));
}

QTEST_GUILESS_MAIN(NameConstraintsTest)
#include "tst_nameconstraints.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/store/platform/PlannedCertificate.h"

#include "store/validation/CertificateIndex.h"
#include "store/validation/PathBuilder.h"
#include "store/validation/PathJudge.h"
#include "store/validation/PathPolicies.h"

#include <QtTest/QtTest>

#include <set>

using namespace vela;
using test::authorityPlan;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

/*! Candidates, and what is said of them. */
class Candidates : public CertificateSource
{
public:
    DecodedCertificatePtr add(const PlannedCertificate& certificate)
    {
        const auto decoded = DecodedCertificate::fromDer(certificate.der());
        m_index.add(decoded);
        return decoded;
    }
    void trust(const PlannedCertificate& certificate) { m_trusted.insert(add(certificate)); }
    //! Without its being shown again.
    void prove(const PlannedCertificate& certificate)
    {
        m_proven.insert(DecodedCertificate::fromDer(certificate.der()));
    }

    bool isTrusted(const DecodedCertificatePtr& certificate) const override
    {
        return m_trusted.count(certificate) != 0;
    }
    bool isProven(const DecodedCertificatePtr& certificate) const override
    {
        return m_proven.count(certificate) != 0;
    }
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override
    {
        return m_index.issuersOf(certificate);
    }

private:
    CertificateIndex m_index;
    std::set<DecodedCertificatePtr> m_trusted;
    std::set<DecodedCertificatePtr> m_proven;
};

PathQuestion questionAbout(const PlannedCertificate& certificate)
{
    PathQuestion question;
    question.certificate = DecodedCertificate::fromDer(certificate.der());
    question.time = QDateTime::currentSecsSinceEpoch();
    return question;
}

PathAnswer ask(const Candidates& candidates, const PathQuestion& question)
{
    return PathBuilder(candidates, question).build();
}

QList<QByteArray> dersOf(const PathAnswer& answer)
{
    QList<QByteArray> ders;
    for (const PathElement& element : answer.best.path.elements)
        ders.append(element.certificate->der());
    return ders;
}

} // namespace

class PathBuilderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wayToTheRootIsFound();
    void errorsAreTheElements();
    void workIsCounted();
    void eachLimitEndsTheSearch();
    void provenComesBeforeNamesakesOfStrangers_data();
    void provenComesBeforeNamesakesOfStrangers();
    void lesserErrorsAreBetter();
    void policyIsWorkedOutWithinTheBudget();
};

void PathBuilderTest::wayToTheRootIsFound()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate middle(authorityPlan(QStringLiteral("Middle")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &middle);
    Candidates candidates;
    candidates.add(middle);
    const PathAnswer without = ask(candidates, questionAbout(leaf));
    QCOMPARE(without.best.errors, PathErrors(PathIncomplete));
    QCOMPARE(dersOf(without), QList<QByteArray>({leaf.der(), middle.der()}));
    candidates.add(root);
    const PathAnswer untrusted = ask(candidates, questionAbout(leaf));
    QCOMPARE(untrusted.best.errors, PathErrors(RootUntrusted));
    QVERIFY(untrusted.best.endsSelfSigned());
    candidates.trust(root);
    const PathAnswer trusted = ask(candidates, questionAbout(leaf));
    QCOMPARE(trusted.best.errors, PathErrors(NoPathError));
    QVERIFY(!trusted.best.endsSelfSigned());
    QCOMPARE(dersOf(trusted), QList<QByteArray>({leaf.der(), middle.der(), root.der()}));
}

void PathBuilderTest::errorsAreTheElements()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    test::CertificatePlan expired = authorityPlan(QStringLiteral("Middle"));
    expired.notAfterOffset = -test::DAY;
    const PlannedCertificate middle(expired, &root);
    test::CertificatePlan forged = leafPlan(QStringLiteral("leaf"));
    forged.signedBy = &root;
    const PlannedCertificate leaf(forged, &middle);
    Candidates candidates;
    candidates.trust(root);
    candidates.add(middle);
    const JudgedPath best = ask(candidates, questionAbout(leaf)).best;
    QCOMPARE(best.elementErrors,
             std::vector<PathErrors>({SignatureInvalid, NotTimeValid, NoPathError}));
    QCOMPARE(best.errors, PathErrors(SignatureInvalid | NotTimeValid));
}

void PathBuilderTest::workIsCounted()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    Candidates candidates;
    candidates.trust(root);
    const PathAnswer answer = ask(candidates, questionAbout(leaf));
    QCOMPARE(answer.signatures, 2);
    QCOMPARE(answer.paths, 1);
    const auto one = DecodedCertificate::fromDer(leaf.der());
    const auto other = DecodedCertificate::fromDer(root.der());
    const qint64 signatures = one->costOfSignatureBy(*other) + other->costOfSignatureBy(*other);
    QVERIFY(signatures > 0);
    QVERIFY(answer.work > signatures && answer.work < 2 * signatures);
}

void PathBuilderTest::eachLimitEndsTheSearch()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate middle(authorityPlan(QStringLiteral("Middle")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &middle);
    Candidates candidates;
    candidates.trust(root);
    candidates.add(middle);
    PathQuestion question = questionAbout(leaf);
    question.limits.length = 3;
    question.limits.paths = 1;
    question.limits.signatures = 3;
    QCOMPARE(ask(candidates, question).best.errors, PathErrors(NoPathError));
    question.limits.length = 2;
    QCOMPARE(ask(candidates, question).best.errors, PathErrors(PathIncomplete));
    question.limits.length = 3;
    question.limits.signatures = 1;
    QCOMPARE(ask(candidates, question).signatures, 1);
    QVERIFY(ask(candidates, question).best.errors != NoPathError);
    question.limits.signatures = 3;
    // It ends with the second of three signatures; the last is the root's own.
    question.limits.work = ask(candidates, question).work / 2;
    QVERIFY(ask(candidates, question).best.errors != NoPathError);
}

void PathBuilderTest::provenComesBeforeNamesakesOfStrangers_data()
{
    QTest::addColumn<QByteArray>("authorityKeyId");
    QTest::newRow("no key identifier") << QByteArray();
    QTest::newRow("the authority's") << QByteArray("keyid:always");
    QTest::newRow("issuer and number") << QByteArray("keyid:always,issuer:always");
}

//! Whoever fakes an authority as often as there are signatures does not keep others from it.
void PathBuilderTest::provenComesBeforeNamesakesOfStrangers()
{
    QFETCH(QByteArray, authorityKeyId);
    QList<QPair<QByteArray, QByteArray>> extensions;
    if (!authorityKeyId.isEmpty())
        extensions = {{"authorityKeyIdentifier", authorityKeyId}};
    const QList<QPair<QByteArray, QByteArray>> sameId = {{"subjectKeyIdentifier", "01020304"}};
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate genuine(authorityPlan(QStringLiteral("Middle"), sameId), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf"), extensions), &genuine);
    const PlannedCertificate key(authorityPlan(QStringLiteral("Other")));
    Candidates candidates;
    candidates.trust(root);
    candidates.add(genuine);
    PathQuestion question = questionAbout(leaf);
    for (int i = 0; i < question.limits.signatures + 1; ++i) {
        test::CertificatePlan plan = authorityPlan(QStringLiteral("Middle"), sameId);
        plan.keyOf = &key;
        plan.notAfterOffset = test::DAY * (i + 1);
        candidates.add(PlannedCertificate(plan, &root));
    }
    QVERIFY(ask(candidates, question).best.errors != NoPathError);
    candidates.prove(genuine);
    const PathAnswer answer = ask(candidates, question);
    QCOMPARE(answer.best.errors, PathErrors(NoPathError));
    QCOMPARE(answer.signatures, 3);
}

void PathBuilderTest::lesserErrorsAreBetter()
{
    JudgedPath good;
    JudgedPath expired = good;
    expired.errors = NotTimeValid;
    expired.elementErrors = {NotTimeValid};
    JudgedPath worse = expired;
    worse.elementErrors = {NotTimeValid | UsageInvalid};
    worse.errors = NotTimeValid | UsageInvalid;
    JudgedPath untrusted = good;
    untrusted.errors = RootUntrusted;
    JudgedPath incomplete = good;
    incomplete.errors = PathIncomplete;
    JudgedPath forged = good;
    forged.errors = SignatureInvalid;
    QCOMPARE(defectsOf(good), 0);
    const JudgedPath* const order[] = {&good, &expired, &worse, &untrusted, &incomplete, &forged};
    for (std::size_t i = 1; i < std::size(order); ++i)
        QVERIFY2(defectsOf(*order[i - 1]) < defectsOf(*order[i]), qPrintable(QString::number(i)));
}

void PathBuilderTest::policyIsWorkedOutWithinTheBudget()
{
    const QList<QPair<QByteArray, QByteArray>> policy = {{"certificatePolicies", "1.2.3"}};
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(
        leafPlan(QStringLiteral("leaf"),
                 policy
                     + QList<QPair<QByteArray, QByteArray>>{{"policyConstraints",
                                                             "critical,requireExplicitPolicy:0"}}),
        &root);
    CertificatePath path;
    path.end = CertificatePath::End::Trusted;
    path.elements = {{DecodedCertificate::fromDer(leaf.der())},
                     {DecodedCertificate::fromDer(root.der())}};
    WorkBudget plenty(1000000);
    QCOMPARE(policyErrorsOf(path, &plenty), PathErrors(NoPathError));
    QVERIFY(plenty.spent() > 0);
    WorkBudget little(plenty.spent() - 1);
    QCOMPARE(policyErrorsOf(path, &little), PathErrors(PolicyInvalid));
}

QTEST_GUILESS_MAIN(PathBuilderTest)
#include "tst_pathbuilder.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    Which way the chain engine finds where there are several, and that it ends where there is none.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include <QtTest/QtTest>

#include <vector>

using test::authorityPlan;
using test::CertificatePlan;
using test::ChainAnswer;
using test::DAY;
using test::errorNames;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

constexpr std::size_t MAX_LENGTH = 20;

CertificatePlan expired(CertificatePlan plan)
{
    plan.notAfterOffset = -DAY;
    return plan;
}

CertificatePlan withKeyOf(CertificatePlan plan, const PlannedCertificate& other,
                          const QByteArray& serialHex)
{
    plan.keyOf = &other;
    plan.serialHex = serialHex;
    return plan;
}

} // namespace

class ChainSearchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void supersededIntermediateGivesWayToItsSuccessor_data();
    void supersededIntermediateGivesWayToItsSuccessor();
    void crossSignedIntermediateLeadsToTheTrustedRoot_data();
    void crossSignedIntermediateLeadsToTheTrustedRoot();
    void crossCertificateOfATrustedRootIsNotNeeded();
    void issuerWithTheSameNameAndAnotherKeyIsPassedOver();
    void issuerThatTheKeyIdentifierDeniesIsTriedLast();
    void errorHighInOnePathLeadsToAnother();
    void withoutAValidPathTheBestOneIsTheAnswer();
    void untrustedRootIsBetterThanNoIssuer();
    void additionalStoreOfTheCallIsUsedForTheCall();
    void issuersAddedLaterAreFound();
    void circleOfAuthoritiesEnds();
    void longestPathIsFound();
    void longerPathIsNot();

private:
    std::unique_ptr<test::TrustedRoots> m_roots;
    std::unique_ptr<test::ChainClient> m_client;

    void trust(const QList<QByteArray>& ders);
    void addInOrder(const QList<QByteArray>& ders, bool isReversed);
};

void ChainSearchTest::init()
{
    m_roots = std::make_unique<test::TrustedRoots>();
    m_client = std::make_unique<test::ChainClient>();
}

void ChainSearchTest::cleanup()
{
    m_client.reset();
    m_roots.reset();
}

void ChainSearchTest::trust(const QList<QByteArray>& ders)
{
    m_roots->setRoots(ders);
    m_client->reset();
}

void ChainSearchTest::addInOrder(const QList<QByteArray>& ders, bool isReversed)
{
    for (int i = 0; i < ders.size(); ++i)
        m_client->add(ders.at(isReversed ? ders.size() - 1 - i : i));
}

void ChainSearchTest::supersededIntermediateGivesWayToItsSuccessor_data()
{
    QTest::addColumn<bool>("isNewFirst");
    QTest::newRow("old one known first") << false;
    QTest::newRow("new one known first") << true;
}

void ChainSearchTest::supersededIntermediateGivesWayToItsSuccessor()
{
    QFETCH(bool, isNewFirst);
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate old(expired(authorityPlan(QStringLiteral("Intermediate"))), &root);
    const PlannedCertificate renewed(
        withKeyOf(authorityPlan(QStringLiteral("Intermediate")), old, "02"), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &old);
    trust({root.der()});
    addInOrder({old.der(), renewed.der()}, isNewFirst);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), renewed.der(), root.der()}));
}

void ChainSearchTest::crossSignedIntermediateLeadsToTheTrustedRoot_data()
{
    QTest::addColumn<bool>("isTrustedFirst");
    QTest::newRow("issued by the untrusted root known first") << false;
    QTest::newRow("issued by the trusted root known first") << true;
}

void ChainSearchTest::crossSignedIntermediateLeadsToTheTrustedRoot()
{
    QFETCH(bool, isTrustedFirst);
    const PlannedCertificate untrusted(authorityPlan(QStringLiteral("Untrusted Root")));
    const PlannedCertificate trusted(authorityPlan(QStringLiteral("Trusted Root")));
    const PlannedCertificate one(authorityPlan(QStringLiteral("Intermediate")), &untrusted);
    const PlannedCertificate other(
        withKeyOf(authorityPlan(QStringLiteral("Intermediate")), one, "02"), &trusted);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &one);
    trust({trusted.der()});
    addInOrder({untrusted.der(), one.der(), other.der()}, isTrustedFirst);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), other.der(), trusted.der()}));
}

void ChainSearchTest::crossCertificateOfATrustedRootIsNotNeeded()
{
    const PlannedCertificate elder(expired(authorityPlan(QStringLiteral("Elder Root"))));
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate cross(withKeyOf(authorityPlan(QStringLiteral("Root")), root, "02"),
                                   &elder);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    trust({elder.der(), root.der()});
    m_client->add(cross.der());
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), root.der()}));
}

void ChainSearchTest::issuerWithTheSameNameAndAnotherKeyIsPassedOver()
{
    const PlannedCertificate namesake(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    trust({namesake.der(), root.der()});
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), root.der()}));
}

//! The key identifier only helps to find the issuer; what proves it is the signature.
void ChainSearchTest::issuerThatTheKeyIdentifierDeniesIsTriedLast()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate stranger(
        authorityPlan(QStringLiteral("Root"), {{"subjectKeyIdentifier", "01020304"}}));
    CertificatePlan plan = leafPlan(QStringLiteral("leaf"), {{"authorityKeyIdentifier", "keyid"}});
    plan.signedBy = &root;
    const PlannedCertificate leaf(plan, &stranger);
    trust({stranger.der(), root.der()});
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), root.der()}));
}

void ChainSearchTest::errorHighInOnePathLeadsToAnother()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate upper(expired(authorityPlan(QStringLiteral("Upper"))), &root);
    const PlannedCertificate lower(authorityPlan(QStringLiteral("Lower")), &upper);
    const PlannedCertificate direct(withKeyOf(authorityPlan(QStringLiteral("Lower")), lower, "02"),
                                    &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &lower);
    trust({root.der()});
    addInOrder({lower.der(), upper.der(), direct.der()}, false);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), direct.der(), root.der()}));
}

void ChainSearchTest::withoutAValidPathTheBestOneIsTheAnswer()
{
    const PlannedCertificate trusted(authorityPlan(QStringLiteral("Trusted Root")));
    const PlannedCertificate untrusted(authorityPlan(QStringLiteral("Untrusted Root")));
    const PlannedCertificate expiredOne(expired(authorityPlan(QStringLiteral("Intermediate"))),
                                        &trusted);
    const PlannedCertificate untrustedOne(
        withKeyOf(authorityPlan(QStringLiteral("Intermediate")), expiredOne, "02"), &untrusted);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &expiredOne);
    trust({trusted.der()});
    addInOrder({untrusted.der(), untrustedOne.der(), expiredOne.der()}, false);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList({QStringLiteral("NOT_TIME_VALID")}));
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), expiredOne.der(), trusted.der()}));
}

void ChainSearchTest::untrustedRootIsBetterThanNoIssuer()
{
    const PlannedCertificate missing(authorityPlan(QStringLiteral("Missing Root")));
    const PlannedCertificate untrusted(authorityPlan(QStringLiteral("Untrusted Root")));
    const PlannedCertificate one(authorityPlan(QStringLiteral("Intermediate")), &missing);
    const PlannedCertificate other(
        withKeyOf(authorityPlan(QStringLiteral("Intermediate")), one, "02"), &untrusted);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &one);
    addInOrder({one.der(), other.der(), untrusted.der()}, false);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList({QStringLiteral("UNTRUSTED_ROOT")}));
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), other.der(), untrusted.der()}));
}

void ChainSearchTest::additionalStoreOfTheCallIsUsedForTheCall()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    trust({root.der()});
    test::ChainClient other;
    other.add(intermediate.der());
    test::ChainQuestion question;
    question.certificate = leaf.der();
    question.additionalStore = other.extraStore();
    QCOMPARE(errorNames(m_client->ask(question).errors), QStringList());
    QCOMPARE(errorNames(m_client->ask(leaf.der()).errors),
             QStringList({QStringLiteral("PARTIAL_CHAIN")}));
}

void ChainSearchTest::issuersAddedLaterAreFound()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    trust({root.der()});
    QVERIFY(m_client->ask(leaf.der()).errors != 0);
    m_client->add(intermediate.der());
    QCOMPARE(errorNames(m_client->ask(leaf.der()).errors), QStringList());
    m_client->reset();
    QCOMPARE(errorNames(m_client->ask(leaf.der()).errors), QStringList());
}

void ChainSearchTest::circleOfAuthoritiesEnds()
{
    const PlannedCertificate key(authorityPlan(QStringLiteral("One")));
    const PlannedCertificate other(authorityPlan(QStringLiteral("Other")), &key);
    const PlannedCertificate one(withKeyOf(authorityPlan(QStringLiteral("One")), key, "02"),
                                 &other);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &one);
    addInOrder({one.der(), other.der()}, false);
    const ChainAnswer answer = m_client->ask(leaf.der());
    QCOMPARE(errorNames(answer.errors),
             QStringList({QStringLiteral("CYCLIC"), QStringLiteral("PARTIAL_CHAIN")}));
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), one.der(), other.der()}));
}

void ChainSearchTest::longestPathIsFound()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    trust({root.der()});
    std::vector<PlannedCertificate> chain = {root};
    while (chain.size() < MAX_LENGTH) {
        const PlannedCertificate issuer = chain.back();
        chain.emplace_back(authorityPlan(QString::number(chain.size())), &issuer);
        m_client->add(chain.back().der());
    }
    const ChainAnswer answer = m_client->ask(chain.back().der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates.size(), int(MAX_LENGTH));
}

void ChainSearchTest::longerPathIsNot()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    trust({root.der()});
    std::vector<PlannedCertificate> chain = {root};
    while (chain.size() < MAX_LENGTH + 1) {
        const PlannedCertificate issuer = chain.back();
        chain.emplace_back(authorityPlan(QString::number(chain.size())), &issuer);
        m_client->add(chain.back().der());
    }
    const ChainAnswer answer = m_client->ask(chain.back().der());
    QCOMPARE(errorNames(answer.errors), QStringList({QStringLiteral("PARTIAL_CHAIN")}));
}

QTEST_GUILESS_MAIN(ChainSearchTest)
#include "tst_chainsearch.moc"

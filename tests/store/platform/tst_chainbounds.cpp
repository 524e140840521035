// SPDX-License-Identifier: BSD-3-Clause

/*
    How much work certificates can make that were made for it. Counted is what costs time: the
    signatures that are verified, and the engine's own evaluations of policies.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <openssl/x509v3.h>

#include <vector>

using test::authorityPlan;
using test::CertificatePlan;
using test::ChainAnswer;
using test::errorNames;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

constexpr int MAX_SIGNATURES = 200;

int verifiedSignatures = 0;
int evaluatedPolicies = 0;

CertificatePlan withKeyOf(CertificatePlan plan, const PlannedCertificate& other,
                          const QByteArray& serialHex)
{
    plan.keyOf = &other;
    plan.serialHex = serialHex;
    return plan;
}

} // namespace

extern "C" {

int __real_X509_verify(X509* certificate, EVP_PKEY* key);
int __wrap_X509_verify(X509* certificate, EVP_PKEY* key)
{
    ++verifiedSignatures;
    return __real_X509_verify(certificate, key);
}

int __real_X509_policy_check(X509_POLICY_TREE** tree, int* isExplicit, STACK_OF(X509) * chain,
                             STACK_OF(ASN1_OBJECT) * policies, unsigned int flags);
int __wrap_X509_policy_check(X509_POLICY_TREE** tree, int* isExplicit, STACK_OF(X509) * chain,
                             STACK_OF(ASN1_OBJECT) * policies, unsigned int flags)
{
    ++evaluatedPolicies;
    return __real_X509_policy_check(tree, isExplicit, chain, policies, flags);
}
}

class ChainBoundsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void straightChainIsVerifiedOnce();
    void mazeOfCrossCertificatesEnds();
    void manyIssuersOfOneNameEnd();
    void longChainEnds();
    void issuersOfferedLastAreTriedFirst();
    void strangersDoNotKeepAStoreFromWhatIsProven();
    void policiesAreEvaluatedOnlyWhereDemanded_data();
    void policiesAreEvaluatedOnlyWhereDemanded();

private:
    std::unique_ptr<test::TrustedRoots> m_roots;
    std::unique_ptr<test::ChainClient> m_client;
    QElapsedTimer m_timer;

    void trust(const PlannedCertificate& root);
    ChainAnswer ask(const PlannedCertificate& certificate);
};

void ChainBoundsTest::init()
{
    m_roots = std::make_unique<test::TrustedRoots>();
    m_client = std::make_unique<test::ChainClient>();
}

void ChainBoundsTest::cleanup()
{
    m_client.reset();
    m_roots.reset();
}

void ChainBoundsTest::trust(const PlannedCertificate& root)
{
    m_roots->setRoots({root.der()});
    m_client->reset();
}

//! Counts what it takes, and says how long.
ChainAnswer ChainBoundsTest::ask(const PlannedCertificate& certificate)
{
    verifiedSignatures = 0;
    evaluatedPolicies = 0;
    m_timer.start();
    const ChainAnswer answer = m_client->ask(certificate.der());
    qInfo("%d signatures, %d evaluations of policies, %.1f ms", verifiedSignatures,
          evaluatedPolicies, double(m_timer.nsecsElapsed()) / 1e6);
    return answer;
}

void ChainBoundsTest::straightChainIsVerifiedOnce()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    trust(root);
    m_client->add(intermediate.der());
    QCOMPARE(errorNames(ask(leaf).errors), QStringList());
    QCOMPARE(verifiedSignatures, 3); // The root's by itself, too.
}

//! Authorities that all certify each other: more paths than anyone could try.
void ChainBoundsTest::mazeOfCrossCertificatesEnds()
{
    constexpr int AUTHORITIES = 20;
    std::vector<PlannedCertificate> keys;
    for (int i = 0; i < AUTHORITIES; ++i)
        keys.emplace_back(authorityPlan(QString::number(i)));
    for (int subject = 0; subject < AUTHORITIES; ++subject) {
        for (int issuer = 0; issuer < AUTHORITIES; ++issuer) {
            if (subject == issuer)
                continue;
            const PlannedCertificate cross(withKeyOf(authorityPlan(QString::number(subject)),
                                                     keys[std::size_t(subject)],
                                                     QByteArray::number(10 + issuer)),
                                           &keys[std::size_t(issuer)]);
            m_client->add(cross.der());
        }
    }
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &keys.front());
    QVERIFY(ask(leaf).errors & CERT_TRUST_IS_PARTIAL_CHAIN);
    QVERIFY(verifiedSignatures > AUTHORITIES);
    QVERIFY(verifiedSignatures <= MAX_SIGNATURES);

    trust(keys.back());
    QCOMPARE(errorNames(ask(leaf).errors), QStringList());
}

void ChainBoundsTest::manyIssuersOfOneNameEnd()
{
    constexpr int NAMESAKES = 2000;
    const PlannedCertificate missing(authorityPlan(QStringLiteral("Intermediate")));
    const PlannedCertificate key(authorityPlan(QStringLiteral("Intermediate")));
    for (int i = 0; i < NAMESAKES; ++i) {
        const PlannedCertificate namesake(withKeyOf(authorityPlan(QStringLiteral("Intermediate")),
                                                    key, QByteArray::number(1000 + i)),
                                          &missing);
        m_client->add(namesake.der());
    }
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &missing);
    const ChainAnswer answer = ask(leaf);
    QVERIFY(answer.errors != CERT_TRUST_NO_ERROR);
    QCOMPARE(answer.certificates.first(), leaf.der());
    QCOMPARE(verifiedSignatures, MAX_SIGNATURES);
}

void ChainBoundsTest::longChainEnds()
{
    constexpr int LENGTH = 100;
    constexpr int MAX_LENGTH = 20;
    std::vector<PlannedCertificate> chain = {
        PlannedCertificate(authorityPlan(QStringLiteral("Root")))};
    while (chain.size() < LENGTH) {
        const PlannedCertificate issuer = chain.back();
        chain.emplace_back(authorityPlan(QString::number(chain.size())), &issuer);
        m_client->add(chain.back().der());
    }
    QCOMPARE(errorNames(ask(chain.back()).errors), QStringList({QStringLiteral("PARTIAL_CHAIN")}));
    QCOMPARE(verifiedSignatures, MAX_LENGTH - 1);
}

/*
    Whoever fills a store with certificates that claim an authority's name and key identifier cannot
    keep it from the authority's own, when that comes along with the chain.
*/
void ChainBoundsTest::issuersOfferedLastAreTriedFirst()
{
    const QList<QPair<QByteArray, QByteArray>> sameId = {{"subjectKeyIdentifier", "01020304"}};
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate genuine(authorityPlan(QStringLiteral("Intermediate"), sameId), &root);
    const PlannedCertificate key(authorityPlan(QStringLiteral("Other")));
    const PlannedCertificate leaf(
        leafPlan(QStringLiteral("leaf"), {{"authorityKeyIdentifier", "keyid:always"}}), &genuine);
    trust(root);
    m_client->add(genuine.der());
    for (int i = 0; i < MAX_SIGNATURES + 1; ++i) {
        const PlannedCertificate fake(
            withKeyOf(authorityPlan(QStringLiteral("Intermediate"), sameId), key,
                      QByteArray::number(1000 + i)),
            &root);
        m_client->add(fake.der());
    }
    m_client->add(genuine.der());
    QCOMPARE(errorNames(ask(leaf).errors), QStringList());
    QCOMPARE(verifiedSignatures, 3);
}

/*
    Namesakes of an intermediate that was in a valid chain: the certificates that it has issued stay
    valid, though nobody sends it along any more.
*/
void ChainBoundsTest::strangersDoNotKeepAStoreFromWhatIsProven()
{
    const QList<QPair<QByteArray, QByteArray>> sameId = {{"subjectKeyIdentifier", "01020304"}};
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate genuine(authorityPlan(QStringLiteral("Intermediate"), sameId), &root);
    const PlannedCertificate key(authorityPlan(QStringLiteral("Other")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &genuine);
    trust(root);
    m_client->add(genuine.der());
    QCOMPARE(errorNames(ask(leaf).errors), QStringList());
    for (int i = 0; i < 3 * MAX_SIGNATURES; ++i) {
        const PlannedCertificate fake(
            withKeyOf(authorityPlan(QStringLiteral("Intermediate"), sameId), key,
                      QByteArray::number(1000 + i)),
            &root);
        m_client->add(fake.der());
    }
    const PlannedCertificate stranger(leafPlan(QStringLiteral("stranger")), &key);
    QVERIFY(ask(stranger).errors != CERT_TRUST_NO_ERROR);
    QCOMPARE(errorNames(ask(leaf).errors), QStringList());
    QCOMPARE(verifiedSignatures, 2); // The root's own is known by now.
}

void ChainBoundsTest::policiesAreEvaluatedOnlyWhereDemanded_data()
{
    QTest::addColumn<bool>("isDemanded");
    QTest::addColumn<int>("policyCount");
    QTest::addColumn<int>("evaluations");
    QTest::addColumn<QStringList>("errors");
    const QStringList invalid = {QStringLiteral("INVALID_POLICY_CONSTRAINTS")};
    QTest::newRow("not demanded") << false << 1 << 0 << QStringList();
    QTest::newRow("not demanded, many") << false << 100 << 0 << QStringList();
    QTest::newRow("demanded") << true << 1 << 1 << QStringList();
    // Two certificates of 31 and of 32: just below, and just above a thousand combinations.
    QTest::newRow("demanded, many") << true << 31 << 1 << QStringList();
    QTest::newRow("demanded, too many") << true << 32 << 0 << invalid;
}

void ChainBoundsTest::policiesAreEvaluatedOnlyWhereDemanded()
{
    QFETCH(bool, isDemanded);
    QFETCH(int, policyCount);
    QFETCH(int, evaluations);
    QFETCH(QStringList, errors);
    QByteArray policies;
    for (int i = 0; i < policyCount; ++i) {
        policies += i > 0 ? ",1.2.3." : "1.2.3.";
        policies += QByteArray::number(i);
    }
    const QList<QPair<QByteArray, QByteArray>> extensions = {{"certificatePolicies", policies}};
    auto more = extensions;
    if (isDemanded)
        more += qMakePair(QByteArray("policyConstraints"),
                          QByteArray("critical,requireExplicitPolicy:0"));
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate"), more),
                                          &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf"), extensions), &intermediate);
    trust(root);
    m_client->add(intermediate.der());
    QCOMPARE(errorNames(ask(leaf).errors), errors);
    QCOMPARE(evaluatedPolicies, evaluations);
}

QTEST_GUILESS_MAIN(ChainBoundsTest)
#include "tst_chainbounds.moc"

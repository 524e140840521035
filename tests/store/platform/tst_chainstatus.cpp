// SPDX-License-Identifier: BSD-3-Clause

/*
    What the chain engine says of chains: each error at the certificate that has it and of the whole
    chain, all of them and not just the first.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include <QtCore/QDateTime>
#include <QtTest/QtTest>

#include <openssl/crypto.h>
#include <openssl/err.h>

using test::authorityPlan;
using test::CertificatePlan;
using test::ChainAnswer;
using test::DAY;
using test::errorNames;
using test::infoNames;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

const QByteArray SERVER_USAGE = "1.3.6.1.5.5.7.3.1";
const QByteArray CLIENT_USAGE = "1.3.6.1.5.5.7.3.2";

CertificatePlan expired(CertificatePlan plan)
{
    plan.notAfterOffset = -DAY;
    return plan;
}

CertificatePlan notYetValid(CertificatePlan plan)
{
    plan.notBeforeOffset = DAY;
    return plan;
}

CertificatePlan ofVersion1(CertificatePlan plan)
{
    plan.version = 0;
    plan.extensions.clear();
    return plan;
}

//! Lets \a issuer sign \a certificate with MD5, which takes an RSA key.
void signWithMd5(CertificatePlan* issuer, CertificatePlan* certificate)
{
    issuer->keyType = test::KeyType::Rsa2048;
    certificate->digest = EVP_md5();
}

//! The same with PSS padding, which keeps its digest in parameters.
CertificatePlan pssSignedWith(const EVP_MD* digest, CertificatePlan* issuer, CertificatePlan plan)
{
    issuer->keyType = test::KeyType::Rsa2048;
    plan.digest = digest;
    plan.isPss = true;
    return plan;
}

//! Returns the digest \a name if the engine can compute it; it may know more than that.
const EVP_MD* digestCalled(const char* name)
{
    OpenSSL_add_all_digests();
    const EVP_MD* const digest = EVP_get_digestbyname(name);
    unsigned char result[EVP_MAX_MD_SIZE];
    const bool isUsable = digest && EVP_Digest("", 0, result, nullptr, digest, nullptr) == 1;
    ERR_clear_error();
    return isUsable ? digest : nullptr;
}

CertificatePlan signedBy(CertificatePlan plan, const PlannedCertificate& stranger)
{
    plan.signedBy = &stranger;
    return plan;
}

using Extensions = QList<QPair<QByteArray, QByteArray>>;

//! A chain of three, each made by its own plan.
struct Plans
{
    CertificatePlan root = authorityPlan(QStringLiteral("Root"));
    CertificatePlan intermediate = authorityPlan(QStringLiteral("Intermediate"));
    CertificatePlan leaf = leafPlan(QStringLiteral("leaf.example"));
    bool isRootTrusted = true;
    QList<QByteArray> usages = {};

    Plans with(const Extensions& rootExtensions, const Extensions& intermediateExtensions,
               const Extensions& leafExtensions) const;
};

Plans Plans::with(const Extensions& rootExtensions, const Extensions& intermediateExtensions,
                  const Extensions& leafExtensions) const
{
    Plans plans = *this;
    plans.root = authorityPlan(root.name, rootExtensions);
    plans.intermediate = authorityPlan(intermediate.name, intermediateExtensions);
    plans.leaf = leafPlan(leaf.name, leafExtensions);
    return plans;
}

QList<QStringList> namesOf(const QList<DWORD>& statuses, QStringList (*names)(DWORD))
{
    QList<QStringList> result;
    for (const DWORD status : statuses)
        result.append(names(status));
    return result;
}

QStringList names(const char* text)
{
    QStringList list = QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    list.sort();
    return list;
}

} // namespace

Q_DECLARE_METATYPE(Plans)

class ChainStatusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyErrorIsReportedWhereItIs_data();
    void everyErrorIsReportedWhereItIs();
    void trustedSelfSignedCertificateIsValid();
    void untrustedSelfSignedCertificateIsSelfSigned();
    void expiredSelfSignedCertificateIsSelfSigned_data();
    void expiredSelfSignedCertificateIsSelfSigned();
    void selfSignatureThatIsWrongIsNone();
    void chainUnderAnUntrustedRootIsSelfSigned();
    void expiredCertificateUnderATrustedRootIsNotSelfSigned();
    void certificateWithoutIssuerEndsThePath();
    void trustedCertificateThatIsNotSelfSignedEndsThePath();
    void trustedEndCertificateThatIsNotSelfSignedIsNoRoot_data();
    void trustedEndCertificateThatIsNotSelfSignedIsNoRoot();
    void issuerWithAnotherKeyIdentifierHasNotSignedIt();
    void validityIncludesBothEnds();
    void issuerMatchIsReported();
    void pathLengthDoesNotCountSelfIssuedCertificates();
    void oneOfSeveralUsagesIsEnoughWhenAskedSo();
    void chainHoldsTheCertificatesEndCertificateFirst();
};

void ChainStatusTest::everyErrorIsReportedWhereItIs_data()
{
    static const PlannedCertificate stranger(authorityPlan(QStringLiteral("Stranger")));
    const QByteArray unknownCritical = "critical,DER:0500";

    QTest::addColumn<Plans>("plans");
    QTest::addColumn<QStringList>("leaf");
    QTest::addColumn<QStringList>("intermediate");
    QTest::addColumn<QStringList>("root");
    QTest::addColumn<QStringList>("onlyChain");
    const auto row = [](const char* name, const Plans& plans, const char* leaf,
                        const char* intermediate = "", const char* root = "",
                        const char* onlyChain = "") {
        QTest::newRow(name) << plans << names(leaf) << names(intermediate) << names(root)
                            << names(onlyChain);
    };
    const auto change = [](auto modify) {
        Plans plans;
        modify(plans);
        return plans;
    };
    const auto withUsage = [](const QByteArray& usage, Plans plans) {
        plans.usages = {usage};
        return plans;
    };

    row("nothing", Plans(), "");
    row("untrusted root", change([](Plans& p) { p.isRootTrusted = false; }), "", "",
        "UNTRUSTED_ROOT");
    row("expired leaf", change([](Plans& p) { p.leaf = expired(p.leaf); }), "NOT_TIME_VALID");
    row("expired intermediate", change([](Plans& p) { p.intermediate = expired(p.intermediate); }),
        "", "NOT_TIME_VALID");
    row("expired root", change([](Plans& p) { p.root = expired(p.root); }), "", "",
        "NOT_TIME_VALID");
    row("leaf of tomorrow", change([](Plans& p) { p.leaf = notYetValid(p.leaf); }),
        "NOT_TIME_VALID");
    row("end that is not to the second",
        change([](Plans& p) { p.leaf.notAfterText = "4901010000Z"; }), "NOT_TIME_VALID");
    row("end that is not in UTC",
        change([](Plans& p) { p.leaf.notAfterText = "490101000000+0100"; }), "NOT_TIME_VALID");
    row("end in UTC", change([](Plans& p) { p.leaf.notAfterText = "490101000000Z"; }), "");
    row("leaf signed by a stranger", change([](Plans& p) { p.leaf = signedBy(p.leaf, stranger); }),
        "NOT_SIGNATURE_VALID");
    row("intermediate signed by a stranger",
        change([](Plans& p) { p.intermediate = signedBy(p.intermediate, stranger); }), "",
        "NOT_SIGNATURE_VALID");
    row("leaf signed with MD5", change([](Plans& p) { signWithMd5(&p.intermediate, &p.leaf); }),
        "HAS_WEAK_SIGNATURE");
    // Newer engines verify such signatures as well, but refuse to make them.
    const bool canMakeThem = SSLeay() < 0x10100000L;
    for (const char* name : {"MD5", "MD4"}) {
        const EVP_MD* const digest = canMakeThem ? digestCalled(name) : nullptr;
        if (digest)
            row(QByteArray("leaf signed by PSS with ").append(name).constData(),
                change([digest](Plans& p) {
                    p.leaf = pssSignedWith(digest, &p.intermediate, p.leaf);
                }),
                "HAS_WEAK_SIGNATURE");
    }
    for (const EVP_MD* digest : {EVP_sha1(), EVP_sha256()})
        row(QByteArray("leaf signed by PSS with ").append(EVP_MD_name(digest)).constData(),
            change([digest](Plans& p) { p.leaf = pssSignedWith(digest, &p.intermediate, p.leaf); }),
            "");
    if (const EVP_MD* const digest = digestCalled("SHA"))
        row("leaf signed with SHA-0", change([digest](Plans& p) {
                p.intermediate.keyType = test::KeyType::Rsa2048;
                p.leaf.digest = digest;
            }),
            "HAS_WEAK_SIGNATURE");
    row("leaf with a short RSA key",
        change([](Plans& p) { p.leaf.keyType = test::KeyType::Rsa512; }), "HAS_WEAK_SIGNATURE");
    row("intermediate with a short RSA key",
        change([](Plans& p) { p.intermediate.keyType = test::KeyType::Rsa512; }), "",
        "HAS_WEAK_SIGNATURE");
    row("root with a short RSA key",
        change([](Plans& p) { p.root.keyType = test::KeyType::Rsa512; }), "", "",
        "HAS_WEAK_SIGNATURE");
    row("leaf with an RSA key long enough",
        change([](Plans& p) { p.leaf.keyType = test::KeyType::Rsa2048; }), "");
    row("root signed with MD5", change([](Plans& p) { signWithMd5(&p.root, &p.root); }), "");

    row("intermediate without basic constraints", change([](Plans& p) {
            p.intermediate = leafPlan(p.intermediate.name, {{"keyUsage", "keyCertSign"}});
        }),
        "", "INVALID_BASIC_CONSTRAINTS");
    row("intermediate that is no authority",
        Plans().with({}, {{"basicConstraints", "critical,CA:FALSE"}}, {}), "",
        "INVALID_BASIC_CONSTRAINTS");
    row("root that is no authority",
        Plans().with({{"basicConstraints", "critical,CA:FALSE"}}, {}, {}), "", "",
        "INVALID_BASIC_CONSTRAINTS");
    row("intermediate of version 1",
        change([](Plans& p) { p.intermediate = ofVersion1(p.intermediate); }), "",
        "INVALID_BASIC_CONSTRAINTS");
    row("root of version 1", change([](Plans& p) { p.root = ofVersion1(p.root); }), "");
    row("untrusted root of version 1", change([](Plans& p) {
            p.root = ofVersion1(p.root);
            p.isRootTrusted = false;
        }),
        "", "", "INVALID_BASIC_CONSTRAINTS UNTRUSTED_ROOT");
    row("root that does not say whether it is an authority", change([](Plans& p) {
            p.root = leafPlan(p.root.name, {{"keyUsage", "keyCertSign"}});
        }),
        "");
    row("untrusted root that does not say whether it is an authority", change([](Plans& p) {
            p.root = leafPlan(p.root.name, {{"keyUsage", "keyCertSign"}});
            p.isRootTrusted = false;
        }),
        "", "", "INVALID_BASIC_CONSTRAINTS UNTRUSTED_ROOT");
    row("no authority allowed below the root",
        Plans().with({{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, {}, {}), "",
        "INVALID_BASIC_CONSTRAINTS");
    row("one authority allowed below the root",
        Plans().with({{"basicConstraints", "critical,CA:TRUE,pathlen:1"}}, {}, {}), "");
    row("intermediate whose key is not for signing certificates",
        Plans().with({}, {{"keyUsage", "critical,digitalSignature"}}, {}), "",
        "NOT_VALID_FOR_USAGE");
    row("root whose key is not for signing certificates",
        Plans().with({{"keyUsage", "critical,digitalSignature"}}, {}, {}), "", "",
        "NOT_VALID_FOR_USAGE");

    row("unknown critical extension of the leaf",
        Plans().with({}, {}, {{"1.2.3.4", unknownCritical}}), "HAS_NOT_SUPPORTED_CRITICAL_EXT");
    row("unknown critical extension of the intermediate",
        Plans().with({}, {{"1.2.3.4", unknownCritical}}, {}), "", "HAS_NOT_SUPPORTED_CRITICAL_EXT");
    row("unknown critical extension of the root",
        Plans().with({{"1.2.3.4", unknownCritical}}, {}, {}), "", "",
        "HAS_NOT_SUPPORTED_CRITICAL_EXT");
    row("unknown extension that is not critical", Plans().with({}, {}, {{"1.2.3.4", "DER:0500"}}),
        "");
    row("proxy certificate",
        Plans().with({}, {}, {{"1.3.6.1.5.5.7.1.14", "critical,DER:300c300a06082b06010505071501"}}),
        "HAS_NOT_SUPPORTED_CRITICAL_EXT");
    row("extension that cannot be decoded",
        Plans().with({}, {}, {{"basicConstraints", "DER:0500"}}), "INVALID_EXTENSION");
    row("extension that occurs twice",
        Plans().with({}, {},
                     {{"extendedKeyUsage", "serverAuth"}, {"extendedKeyUsage", "clientAuth"}}),
        "INVALID_EXTENSION");

    row("usage of the leaf is not asked for",
        Plans().with({}, {}, {{"extendedKeyUsage", "clientAuth"}}), "");
    row("usage of the leaf is another",
        withUsage(SERVER_USAGE, Plans().with({}, {}, {{"extendedKeyUsage", "clientAuth"}})),
        "NOT_VALID_FOR_USAGE");
    row("usage of the leaf is the one",
        withUsage(SERVER_USAGE, Plans().with({}, {}, {{"extendedKeyUsage", "serverAuth"}})), "");
    row("usage of the leaf is any",
        withUsage(SERVER_USAGE,
                  Plans().with({}, {}, {{"extendedKeyUsage", "anyExtendedKeyUsage"}})),
        "");
    row("usage of the leaf is not limited", withUsage(SERVER_USAGE, Plans()), "");
    row("usage of the intermediate is another",
        withUsage(SERVER_USAGE, Plans().with({}, {{"extendedKeyUsage", "clientAuth"}}, {})), "",
        "NOT_VALID_FOR_USAGE");

    const QByteArray exampleName = "DNS:leaf.example";
    row("name within the constraints",
        Plans().with({}, {{"nameConstraints", "critical,permitted;DNS:example"}},
                     {{"subjectAltName", exampleName}}),
        "");
    row("name that is not permitted",
        Plans().with({}, {{"nameConstraints", "critical,permitted;DNS:test"}},
                     {{"subjectAltName", exampleName}}),
        "HAS_NOT_PERMITTED_NAME_CONSTRAINT");
    row("name that is excluded",
        Plans().with({{"nameConstraints", "critical,excluded;DNS:example"}}, {},
                     {{"subjectAltName", exampleName}}),
        "HAS_EXCLUDED_NAME_CONSTRAINT");
    row("constraint of a kind that is not known",
        Plans().with({}, {{"nameConstraints", "critical,permitted;RID:1.2.3"}},
                     {{"subjectAltName", "RID:1.2.3"}}),
        "HAS_NOT_SUPPORTED_NAME_CONSTRAINT");
    row("constraint that nobody can keep",
        Plans().with({}, {{"nameConstraints", "critical,permitted;email:a@b@c"}},
                     {{"subjectAltName", "email:without-an-at"}}),
        "INVALID_NAME_CONSTRAINTS");
    row("policy that is demanded and missing",
        Plans().with({},
                     {{"policyConstraints", "critical,requireExplicitPolicy:0"},
                      {"certificatePolicies", "1.2.3.4"}},
                     {}),
        "", "", "", "INVALID_POLICY_CONSTRAINTS");
    row("policy that is demanded where there is none",
        Plans().with({}, {{"policyConstraints", "critical,requireExplicitPolicy:1"}}, {}), "", "",
        "", "INVALID_POLICY_CONSTRAINTS");
    row("policy that is demanded further down than the path goes",
        Plans().with({}, {{"policyConstraints", "critical,requireExplicitPolicy:2"}}, {}), "");
    row("policy that the root demands",
        Plans().with({{"policyConstraints", "critical,requireExplicitPolicy:0"}}, {}, {}), "");
    row("policy that the leaf demands and lacks",
        Plans().with({}, {}, {{"policyConstraints", "critical,requireExplicitPolicy:0"}}), "", "",
        "", "INVALID_POLICY_CONSTRAINTS");
    row("policy constraints that constrain nothing",
        Plans().with({}, {}, {{"policyConstraints", "DER:3000"}}), "INVALID_EXTENSION");
    row("policy that is demanded and there twice",
        Plans().with({},
                     {{"policyConstraints", "critical,requireExplicitPolicy:0"},
                      {"certificatePolicies", "1.2.3.4,1.2.3.5,1.2.3.4"}},
                     {{"certificatePolicies", "1.2.3.4"}}),
        "", "", "", "INVALID_POLICY_CONSTRAINTS");
    row("policy that is there twice and not demanded",
        Plans().with({}, {{"certificatePolicies", "1.2.3.4,1.2.3.4"}}, {}), "");
    row("policy that is demanded and there",
        Plans().with({},
                     {{"policyConstraints", "critical,requireExplicitPolicy:0"},
                      {"certificatePolicies", "1.2.3.4"}},
                     {{"certificatePolicies", "1.2.3.4"}}),
        "");

    row("everything at once", change([](Plans& p) {
            p = p.with({}, {{"basicConstraints", "critical,CA:FALSE"}},
                       {{"1.2.3.4", "critical,DER:0500"}});
            signWithMd5(&p.intermediate, &p.leaf);
            p.leaf = expired(p.leaf);
            p.root = expired(p.root);
            p.isRootTrusted = false;
        }),
        "NOT_TIME_VALID HAS_WEAK_SIGNATURE HAS_NOT_SUPPORTED_CRITICAL_EXT",
        "INVALID_BASIC_CONSTRAINTS", "NOT_TIME_VALID UNTRUSTED_ROOT");
}

void ChainStatusTest::everyErrorIsReportedWhereItIs()
{
    QFETCH(Plans, plans);
    QFETCH(QStringList, leaf);
    QFETCH(QStringList, intermediate);
    QFETCH(QStringList, root);
    QFETCH(QStringList, onlyChain);
    const PlannedCertificate rootCertificate(plans.root);
    const PlannedCertificate intermediateCertificate(plans.intermediate, &rootCertificate);
    const PlannedCertificate leafCertificate(plans.leaf, &intermediateCertificate);
    test::TrustedRoots roots;
    if (plans.isRootTrusted)
        roots.setRoots({rootCertificate.der()});
    test::ChainClient client;
    client.add(intermediateCertificate.der());
    client.add(rootCertificate.der());

    test::ChainQuestion question;
    question.certificate = leafCertificate.der();
    question.usages = plans.usages;
    const ChainAnswer answer = client.ask(question);

    QCOMPARE(namesOf(answer.elementErrors, errorNames),
             QList<QStringList>({leaf, intermediate, root}));
    QStringList all = leaf + intermediate + root + onlyChain;
    all.removeDuplicates();
    all.sort();
    QCOMPARE(errorNames(answer.errors), all);
    QCOMPARE(infoNames(answer.info), names(plans.isRootTrusted ? "" : "SELF_SIGNED"));
}

void ChainStatusTest::trustedSelfSignedCertificateIsValid()
{
    const PlannedCertificate certificate(leafPlan(QStringLiteral("alone")));
    test::TrustedRoots roots;
    roots.setRoots({certificate.der()});
    test::ChainClient client;
    const ChainAnswer answer = client.ask(certificate.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(infoNames(answer.info), QStringList());
    QCOMPARE(infoNames(answer.elementInfos.value(0)), names("NAME_MATCH_ISSUER SELF_SIGNED"));
    QCOMPARE(answer.certificates, QList<QByteArray>({certificate.der()}));
}

void ChainStatusTest::untrustedSelfSignedCertificateIsSelfSigned()
{
    const PlannedCertificate certificate(leafPlan(QStringLiteral("alone")));
    const test::TrustedRoots roots;
    test::ChainClient client;
    const ChainAnswer answer = client.ask(certificate.der());
    QCOMPARE(errorNames(answer.errors), names("UNTRUSTED_ROOT"));
    QCOMPARE(infoNames(answer.info), names("SELF_SIGNED"));
    QCOMPARE(infoNames(answer.elementInfos.value(0)), names("NAME_MATCH_ISSUER SELF_SIGNED"));
}

void ChainStatusTest::expiredSelfSignedCertificateIsSelfSigned_data()
{
    QTest::addColumn<bool>("isTrusted");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QStringList>("chainInfo");
    QTest::newRow("trusted") << true << names("NOT_TIME_VALID") << QStringList();
    QTest::newRow("not trusted") << false << names("NOT_TIME_VALID UNTRUSTED_ROOT")
                                 << names("SELF_SIGNED");
}

void ChainStatusTest::expiredSelfSignedCertificateIsSelfSigned()
{
    QFETCH(bool, isTrusted);
    QFETCH(QStringList, errors);
    QFETCH(QStringList, chainInfo);
    const PlannedCertificate certificate(expired(leafPlan(QStringLiteral("alone"))));
    test::TrustedRoots roots;
    if (isTrusted)
        roots.setRoots({certificate.der()});
    test::ChainClient client;
    const ChainAnswer answer = client.ask(certificate.der());
    QCOMPARE(errorNames(answer.errors), errors);
    QCOMPARE(infoNames(answer.info), chainInfo);
    QVERIFY(answer.elementInfos.value(0) & CERT_TRUST_IS_SELF_SIGNED);
}

void ChainStatusTest::selfSignatureThatIsWrongIsNone()
{
    const PlannedCertificate stranger(authorityPlan(QStringLiteral("Stranger")));
    const PlannedCertificate certificate(signedBy(leafPlan(QStringLiteral("alone")), stranger));
    const test::TrustedRoots roots;
    test::ChainClient client;
    const ChainAnswer answer = client.ask(certificate.der());
    QCOMPARE(errorNames(answer.errors), names("NOT_SIGNATURE_VALID UNTRUSTED_ROOT"));
    QCOMPARE(infoNames(answer.info), QStringList());
    QVERIFY(!(answer.elementInfos.value(0) & CERT_TRUST_IS_SELF_SIGNED));
}

void ChainStatusTest::chainUnderAnUntrustedRootIsSelfSigned()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    const test::TrustedRoots roots;
    test::ChainClient client;
    client.add(root.der());
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), names("UNTRUSTED_ROOT"));
    QCOMPARE(infoNames(answer.info), names("SELF_SIGNED"));
    QVERIFY(!(answer.elementInfos.value(0) & CERT_TRUST_IS_SELF_SIGNED));
    QVERIFY(answer.elementInfos.value(1) & CERT_TRUST_IS_SELF_SIGNED);
}

void ChainStatusTest::expiredCertificateUnderATrustedRootIsNotSelfSigned()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(expired(leafPlan(QStringLiteral("leaf"))), &root);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), names("NOT_TIME_VALID"));
    QCOMPARE(infoNames(answer.info), QStringList());
    QVERIFY(!(answer.elementInfos.value(0) & CERT_TRUST_IS_SELF_SIGNED));
}

void ChainStatusTest::certificateWithoutIssuerEndsThePath()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    const test::TrustedRoots roots;
    test::ChainClient client;
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), names("PARTIAL_CHAIN"));
    QCOMPARE(answer.elementErrors, QList<DWORD>({CERT_TRUST_NO_ERROR}));
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der()}));
}

void ChainStatusTest::trustedCertificateThatIsNotSelfSignedEndsThePath()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    test::TrustedRoots roots;
    roots.setRoots({intermediate.der()});
    test::ChainClient client;
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), intermediate.der()}));
}

void ChainStatusTest::trustedEndCertificateThatIsNotSelfSignedIsNoRoot_data()
{
    QTest::addColumn<bool>("isRootTrusted");
    QTest::addColumn<QStringList>("errors");
    QTest::newRow("alone") << false << names("PARTIAL_CHAIN");
    QTest::newRow("beside its root") << true << QStringList();
}

void ChainStatusTest::trustedEndCertificateThatIsNotSelfSignedIsNoRoot()
{
    QFETCH(bool, isRootTrusted);
    QFETCH(QStringList, errors);
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &root);
    test::TrustedRoots roots;
    roots.setRoots(isRootTrusted ? QList<QByteArray>({leaf.der(), root.der()})
                                 : QList<QByteArray>({leaf.der()}));
    test::ChainClient client;
    QCOMPARE(errorNames(client.ask(leaf.der()).errors), errors);
}

//! The signature is reported, rather than that there was nobody to check it against.
void ChainStatusTest::issuerWithAnotherKeyIdentifierHasNotSignedIt()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate namesake(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate leaf(
        leafPlan(QStringLiteral("leaf"), {{"authorityKeyIdentifier", "keyid:always"}}), &namesake);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), names("NOT_SIGNATURE_VALID"));
    QCOMPARE(answer.certificates, QList<QByteArray>({leaf.der(), root.der()}));
}

void ChainStatusTest::validityIncludesBothEnds()
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const PlannedCertificate certificate(leafPlan(QStringLiteral("alone")));
    test::TrustedRoots roots;
    roots.setRoots({certificate.der()});
    test::ChainClient client;
    const auto errorsAt = [&](qint64 time) {
        test::ChainQuestion question;
        question.certificate = certificate.der();
        question.time = time;
        return client.ask(question).errors;
    };
    // The certificate was made within seconds of "now". Not always after it: the clock that the
    // certificate took its time from may advance a tick later than the one that was read here.
    const auto firstValid = [&] {
        qint64 time = now - 2 * DAY - 60;
        while (errorsAt(time) != 0 && time < now)
            ++time;
        return time;
    };
    const qint64 begin = firstValid();
    const qint64 end = begin + 367 * DAY;
    QVERIFY(begin < now - 2 * DAY + 60);
    QCOMPARE(errorNames(errorsAt(begin - 1)), names("NOT_TIME_VALID"));
    QCOMPARE(errorsAt(begin), DWORD(CERT_TRUST_NO_ERROR));
    QCOMPARE(errorsAt(end), DWORD(CERT_TRUST_NO_ERROR));
    QCOMPARE(errorNames(errorsAt(end + 1)), names("NOT_TIME_VALID"));
}

void ChainStatusTest::issuerMatchIsReported()
{
    const PlannedCertificate root(
        authorityPlan(QStringLiteral("Root"), {{"authorityKeyIdentifier", "keyid:always"}}));
    const PlannedCertificate intermediate(
        authorityPlan(QStringLiteral("Intermediate"),
                      {{"authorityKeyIdentifier", "keyid,issuer:always"}}),
        &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(intermediate.der());
    QCOMPARE(namesOf(client.ask(leaf.der()).elementInfos, infoNames),
             QList<QStringList>({names("NAME_MATCH_ISSUER"), names("EXACT_MATCH_ISSUER"),
                                 names("KEY_MATCH_ISSUER SELF_SIGNED")}));
}

void ChainStatusTest::pathLengthDoesNotCountSelfIssuedCertificates()
{
    const PlannedCertificate root(authorityPlan(
        QStringLiteral("Root"), {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}));
    const PlannedCertificate rollover(authorityPlan(QStringLiteral("Root")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &rollover);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(rollover.der());
    const ChainAnswer answer = client.ask(leaf.der());
    QCOMPARE(errorNames(answer.errors), QStringList());
    QCOMPARE(answer.certificates.size(), 3);
}

void ChainStatusTest::oneOfSeveralUsagesIsEnoughWhenAskedSo()
{
    const PlannedCertificate certificate(
        leafPlan(QStringLiteral("alone"), {{"extendedKeyUsage", "clientAuth"}}));
    test::TrustedRoots roots;
    roots.setRoots({certificate.der()});
    test::ChainClient client;
    test::ChainQuestion question;
    question.certificate = certificate.der();
    question.usages = {SERVER_USAGE, CLIENT_USAGE};
    QCOMPARE(errorNames(client.ask(question).errors), names("NOT_VALID_FOR_USAGE"));
    question.usageMatch = USAGE_MATCH_TYPE_OR;
    QCOMPARE(errorNames(client.ask(question).errors), QStringList());
}

void ChainStatusTest::chainHoldsTheCertificatesEndCertificateFirst()
{
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authorityPlan(QStringLiteral("Intermediate")), &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("leaf")), &intermediate);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(root.der());
    client.add(intermediate.der());
    QCOMPARE(client.ask(leaf.der()).certificates,
             QList<QByteArray>({leaf.der(), intermediate.der(), root.der()}));
}

QTEST_GUILESS_MAIN(ChainStatusTest)
#include "tst_chainstatus.moc"

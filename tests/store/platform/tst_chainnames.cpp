// SPDX-License-Identifier: BSD-3-Clause

/*
    What authorities may issue certificates for: each kind of name against each form of constraint,
    with the same answer on every engine.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include <QtTest/QtTest>

using test::authorityPlan;
using test::ChainAnswer;
using test::errorNames;
using test::leafPlan;
using test::PlannedCertificate;

namespace {

const char* const NOT_PERMITTED = "HAS_NOT_PERMITTED_NAME_CONSTRAINT";
const char* const EXCLUDED = "HAS_EXCLUDED_NAME_CONSTRAINT";
const char* const INVALID = "INVALID_NAME_CONSTRAINTS";
const char* const NOT_SUPPORTED = "HAS_NOT_SUPPORTED_NAME_CONSTRAINT";

using Extensions = QList<QPair<QByteArray, QByteArray>>;

Extensions extension(const char* name, const QByteArray& value)
{
    return value.isEmpty() ? Extensions() : Extensions{{name, value}};
}

//! A plan without a common name, which would be held against constraints.
test::CertificatePlan nameless(test::CertificatePlan plan)
{
    plan.subject = {{"O", plan.name.toLatin1()}};
    return plan;
}

//! Returns the errors of a leaf that is made by \a leaf under an authority with \a constraints.
QByteArray errorsOf(const QByteArray& constraints, const test::CertificatePlan& leaf,
                    test::CertificatePlan authority)
{
    authority.extensions += extension("nameConstraints", constraints);
    const PlannedCertificate root(authorityPlan(QStringLiteral("Root")));
    const PlannedCertificate intermediate(authority, &root);
    const PlannedCertificate certificate(leaf, &intermediate);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(intermediate.der());
    const ChainAnswer answer = client.ask(certificate.der());
    if (answer.elementErrors.size() != 3 || answer.errors != answer.elementErrors.first())
        return "errors elsewhere";
    return errorNames(answer.errors).join(QLatin1Char(' ')).toLatin1();
}

QByteArray errorsOf(const QByteArray& constraints, const test::CertificatePlan& leaf)
{
    return errorsOf(constraints, leaf, nameless(authorityPlan(QStringLiteral("Intermediate"))));
}

void row(const char* name, const char* constraints, const char* names, const char* errors)
{
    QTest::newRow(name) << QByteArray(constraints) << QByteArray(names) << QByteArray(errors);
}

} // namespace

Q_DECLARE_METATYPE(Extensions)

class ChainNamesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void constraintIsHeldAgainstNames_data();
    void constraintIsHeldAgainstNames();
    void textTakenForAHostNameIsHeldAgainstConstraints_data();
    void textTakenForAHostNameIsHeldAgainstConstraints();
    void commonNameOfTheIssuerCountsWhereThereIsNoOther();
    void mailAddressInTheSubjectCounts();
    void namesOfAnAuthorityAreHeldAgainstTheOnesAbove();
    void selfIssuedAuthorityIsExempt();
    void constraintsOfTheEndCertificateConcernNobody();
    void alternativeNamesThatCannotBeDecodedAreAnError();
    void moreNamesThanCanBeComparedAreInvalid();

private:
    void addHostRows();
    void addMailRows();
    void addUriRows();
    void addAddressRows();
    void addOtherRows();
};

void ChainNamesTest::addHostRows()
{
    const char* const permitted = "critical,permitted;DNS:example.com";
    row("host: itself", permitted, "DNS:example.com", "");
    row("host: below", permitted, "DNS:a.b.example.com", "");
    row("host: letter case", permitted, "DNS:A.Example.COM", "");
    row("host: beside", permitted, "DNS:badexample.com", NOT_PERMITTED);
    row("host: above", permitted, "DNS:com", NOT_PERMITTED);
    row("host: another", permitted, "DNS:example.org", NOT_PERMITTED);
    row("host: one of two", permitted, "DNS:example.com,DNS:example.org", NOT_PERMITTED);
    row("host: not critical", "permitted;DNS:example.com", "DNS:example.org", NOT_PERMITTED);
    row("host: either of two", "permitted;DNS:example.com,permitted;DNS:example.org",
        "DNS:example.org", "");
    row("host: leading period, below", "permitted;DNS:.example.com", "DNS:a.example.com", "");
    row("host: leading period, itself", "permitted;DNS:.example.com", "DNS:example.com",
        NOT_PERMITTED);
    row("host: any", "DER:3006a00430028200", "DNS:example.com", "");
    row("host: pattern within", permitted, "DNS:*.example.com", "");
    row("host: pattern outside", permitted, "DNS:*.com", NOT_PERMITTED);
    row("host: excluded", "excluded;DNS:example.com", "DNS:a.example.com", EXCLUDED);
    row("host: not excluded", "excluded;DNS:example.com", "DNS:example.org", "");
    row("host: pattern that takes in an excluded one", "excluded;DNS:a.example.com",
        "DNS:*.example.com", EXCLUDED);
    row("host: pattern beside an excluded one", "excluded;DNS:a.example.org", "DNS:*.example.com",
        "");
    row("host: permitted and excluded", "permitted;DNS:example.com,excluded;DNS:a.example.com",
        "DNS:a.example.com", EXCLUDED);
    row("host: leading period in the name", permitted, "DNS:.example.com", INVALID);
    row("host: empty label", permitted, "DNS:a..example.com", INVALID);
    row("host: pattern in the middle", permitted, "DNS:a.*.example.com", INVALID);
    row("host: address", "excluded;DNS:example.com", "DNS:192.0.2.1", INVALID);
    row("host: constraint that is a pattern", "excluded;DNS:*.example.com", "DNS:a.example.com",
        INVALID);
    // "example.org", NUL, ".example.com"
    row("host: zero byte", permitted,
        "DER:301a82186578616d706c652e6f7267002e6578616d706c652e636f6d", INVALID);
}

void ChainNamesTest::addMailRows()
{
    row("mail: host", "permitted;email:example.com", "email:a@example.com", "");
    row("mail: host, letter case", "permitted;email:example.com", "email:a@EXAMPLE.com", "");
    row("mail: host below", "permitted;email:example.com", "email:a@b.example.com", NOT_PERMITTED);
    row("mail: hosts below", "permitted;email:.example.com", "email:a@b.example.com", "");
    row("mail: hosts below, itself", "permitted;email:.example.com", "email:a@example.com",
        NOT_PERMITTED);
    row("mail: mailbox", "permitted;email:a@example.com", "email:a@example.com", "");
    row("mail: another mailbox", "permitted;email:a@example.com", "email:b@example.com",
        NOT_PERMITTED);
    row("mail: mailbox, letter case", "permitted;email:a@example.com", "email:A@example.com",
        NOT_PERMITTED);
    row("mail: excluded host", "excluded;email:example.com", "email:a@example.com", EXCLUDED);
    row("mail: no mailbox", "permitted;email:example.com", "email:example.com", INVALID);
    row("mail: two signs", "permitted;email:example.com", "email:a@b@example.com", INVALID);
    row("mail: constraint without a host", "excluded;email:a@*", "email:a@example.com", INVALID);
    row("mail: two signs in the constraint", "permitted;email:a@b@example.com",
        "email:a@example.com", INVALID);
}

void ChainNamesTest::addUriRows()
{
    row("URI: host", "permitted;URI:example.com", "URI:http://example.com/path", "");
    row("URI: host with user and port", "permitted;URI:example.com",
        "URI:http://user@example.com:80", "");
    row("URI: user that looks like the host", "permitted;URI:example.com",
        "URI:http://example.com@example.org/", NOT_PERMITTED);
    row("URI: query that looks like the host", "permitted;URI:example.com",
        "URI:http://example.org?@example.com", NOT_PERMITTED);
    row("URI: host below", "permitted;URI:example.com", "URI:http://a.example.com/", NOT_PERMITTED);
    row("URI: hosts below", "permitted;URI:.example.com", "URI:http://a.example.com/", "");
    row("URI: excluded", "excluded;URI:example.com", "URI:http://EXAMPLE.com", EXCLUDED);
    row("URI: not excluded", "excluded;URI:example.com", "URI:http://example.org", "");
    row("URI: constraint that is none", "excluded;URI:http://example.com", "URI:http://example.com",
        INVALID);
    row("URI: no host", "excluded;URI:example.com", "URI:urn:example.com", INVALID);
    row("URI: address", "excluded;URI:example.com", "URI:http://192.0.2.1/", INVALID);
    row("URI: address of version 6", "excluded;URI:example.com", "URI:http://[2001:db8::1]/",
        INVALID);
}

void ChainNamesTest::addAddressRows()
{
    const char* const permitted = "permitted;IP:192.0.2.0/255.255.255.0";
    row("address: within", permitted, "IP:192.0.2.255", "");
    row("address: outside", permitted, "IP:192.0.3.0", NOT_PERMITTED);
    row("address: of the other version", permitted, "IP:2001:db8::1", NOT_PERMITTED);
    row("address: version 6, within", "permitted;IP:2001:db8::/ffff:ffff::", "IP:2001:db8:1::1",
        "");
    row("address: version 6, outside", "permitted;IP:2001:db8::/ffff:ffff::", "IP:2001:db9::1",
        NOT_PERMITTED);
    row("address: excluded", "excluded;IP:192.0.2.0/255.255.255.0", "IP:192.0.2.1", EXCLUDED);
    row("address: not excluded", "excluded;IP:192.0.2.0/255.255.255.0", "IP:192.0.3.1", "");
    row("address: all excluded", "excluded;IP:0.0.0.0/0.0.0.0", "IP:192.0.2.1", EXCLUDED);
    row("address: of no version", permitted, "DER:300787050102030405", INVALID);
    // Three bytes of address, three of mask.
    row("address: constraint of no version", "DER:300ca00a30088706c00002ffffff", "IP:192.0.2.1",
        INVALID);
}

void ChainNamesTest::addOtherRows()
{
    row("other kind of name than the constraint's", "permitted;DNS:example.com", "IP:192.0.2.1",
        "");
    row("kind that is not known", "permitted;RID:1.2.3", "RID:1.2.3", NOT_SUPPORTED);
    row("kind that is not known, excluded", "excluded;RID:1.2.3", "RID:1.2.4", NOT_SUPPORTED);
    row("kind that is not known and not there", "permitted;RID:1.2.3", "DNS:example.com", "");
    row("no subtrees", "DER:3000", "DNS:example.com", INVALID);
    // permitted DNS:a with maximum 0
    row("limited depth", "DER:300aa0083006820161810100", "DNS:a", INVALID);
    row("no constraints", "", "DNS:example.com", "");
    row("no names", "permitted;DNS:example.com", "", "");
}

void ChainNamesTest::constraintIsHeldAgainstNames_data()
{
    QTest::addColumn<QByteArray>("constraints");
    QTest::addColumn<QByteArray>("names");
    QTest::addColumn<QByteArray>("errors");
    addHostRows();
    addMailRows();
    addUriRows();
    addAddressRows();
    addOtherRows();
}

void ChainNamesTest::constraintIsHeldAgainstNames()
{
    QFETCH(QByteArray, constraints);
    QFETCH(QByteArray, names);
    QFETCH(QByteArray, errors);
    const auto plan = leafPlan(QStringLiteral("leaf"), extension("subjectAltName", names));
    QCOMPARE(errorsOf(constraints, nameless(plan)), errors);
}

void ChainNamesTest::textTakenForAHostNameIsHeldAgainstConstraints_data()
{
    QTest::addColumn<QByteArray>("constraints");
    QTest::addColumn<Extensions>("subject");
    QTest::addColumn<QByteArray>("names");
    QTest::addColumn<QByteArray>("errors");
    const auto add = [](const char* name, const char* constraints, const Extensions& subject,
                        const char* names, const char* errors) {
        QTest::newRow(name) << QByteArray(constraints) << subject << QByteArray(names)
                            << QByteArray(errors);
    };
    const auto common = [](const char* value) { return Extensions{{"CN", value}}; };
    const char* const host = "critical,permitted;DNS:example.com";
    const char* const noHost = "excluded;DNS:bank.com";
    const char* const address = "permitted;IP:192.0.2.0/255.255.255.0";
    add("within", host, common("www.example.com"), "", "");
    add("within, other case", host, common("WWW.Example.com"), "", "");
    add("elsewhere", host, common("bank.com"), "", NOT_PERMITTED);
    add("elsewhere beside a name within", host, common("bank.com"), "DNS:www.example.com",
        NOT_PERMITTED);
    add("elsewhere beside an address", host, common("bank.com"), "IP:192.0.2.1", NOT_PERMITTED);
    add("pattern within", host, common("*.example.com"), "", "");
    add("pattern elsewhere", host, common("*.bank.com"), "DNS:www.example.com", NOT_PERMITTED);
    add("one label", host, common("intranet"), "DNS:www.example.com", NOT_PERMITTED);
    add("address", host, common("10.0.0.1"), "DNS:www.example.com", NOT_PERMITTED);
    add("address of version 6", host, common("2001:db8::1"), "", NOT_PERMITTED);
    add("short form of an address", host, common("10.1"), "", INVALID);
    add("final period", host, common("bank.com."), "DNS:www.example.com", INVALID);
    add("final period, within", host, common("www.example.com."), "", INVALID);
    add("no host name", host, common("Example, Inc."), "", INVALID);
    add("behind a slash", host, {{"O", "x/CN=bank.com"}}, "DNS:www.example.com", NOT_PERMITTED);
    add("behind a slash of another", host, common("www.example.com/CN=bank.com"), "",
        NOT_PERMITTED);
    add("first of two", host, {{"CN", "bank.com"}, {"CN", "www.example.com"}}, "", NOT_PERMITTED);
    add("none", host, {{"O", "bank.com"}}, "", "");
    add("excluded", noHost, common("www.bank.com"), "DNS:example.com", EXCLUDED);
    add("pattern that takes in an excluded one", "excluded;DNS:a.bank.com", common("*.bank.com"),
        "", EXCLUDED);
    add("not excluded", noHost, common("example.com"), "", "");
    add("address where hosts are excluded", noHost, common("10.0.0.1"), "", "");
    add("not excluded, final period", noHost, common("bank.com."), "", INVALID);
    add("address within", address, common("192.0.2.7"), "", "");
    add("address elsewhere", address, common("10.0.0.1"), "IP:192.0.2.7", NOT_PERMITTED);
    add("host where addresses are limited", address, common("bank.com"), "", "");
    add("neither where addresses are limited", address, common("10.0.0.1."), "", INVALID);
    add("excluded address of version 6",
        "excluded;IP:2001:db8::/ffff:ffff::", common("2001:DB8::1"), "", EXCLUDED);
    add("constraints for others", "permitted;email:example.com", common("bank.com"), "", "");
}

void ChainNamesTest::textTakenForAHostNameIsHeldAgainstConstraints()
{
    QFETCH(QByteArray, constraints);
    QFETCH(Extensions, subject);
    QFETCH(QByteArray, names);
    QFETCH(QByteArray, errors);
    test::CertificatePlan plan =
        leafPlan(QStringLiteral("leaf"), extension("subjectAltName", names));
    plan.subject = subject;
    QCOMPARE(errorsOf(constraints, plan), errors);
    // That it calls itself an authority makes no difference for who connects to it.
    plan.extensions += extension("basicConstraints", "critical,CA:TRUE");
    QCOMPARE(errorsOf(constraints, plan), errors);
}

//! Where the subject has no common name, clients take the issuer's.
void ChainNamesTest::commonNameOfTheIssuerCountsWhereThereIsNoOther()
{
    const auto issuer = authorityPlan(QStringLiteral("bank.com"));
    const auto named = leafPlan(QStringLiteral("www.example.com"));
    QCOMPARE(errorsOf("permitted;DNS:example.com", named, issuer), QByteArray());
    QCOMPARE(errorsOf("permitted;DNS:example.com", nameless(named), issuer),
             QByteArray(NOT_PERMITTED));
}

void ChainNamesTest::mailAddressInTheSubjectCounts()
{
    test::CertificatePlan plan = leafPlan(QStringLiteral("leaf"));
    plan.mailAddress = "a@example.org";
    QCOMPARE(errorsOf("permitted;email:example.com", plan), QByteArray(NOT_PERMITTED));
    plan.mailAddress = "a@example.com";
    QCOMPARE(errorsOf("permitted;email:example.com", plan), QByteArray());
}

void ChainNamesTest::namesOfAnAuthorityAreHeldAgainstTheOnesAbove()
{
    const PlannedCertificate root(
        authorityPlan(QStringLiteral("Root"), {{"nameConstraints", "permitted;DNS:example.com"}}));
    const PlannedCertificate intermediate(
        authorityPlan(QStringLiteral("Intermediate"), {{"subjectAltName", "DNS:example.org"}}),
        &root);
    const PlannedCertificate leaf(leafPlan(QStringLiteral("www.example.com")), &intermediate);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(intermediate.der());
    QCOMPARE(client.ask(leaf.der()).elementErrors,
             QList<DWORD>({0, CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT, 0}));
}

void ChainNamesTest::selfIssuedAuthorityIsExempt()
{
    const PlannedCertificate root(
        authorityPlan(QStringLiteral("Root"), {{"nameConstraints", "permitted;DNS:example.com"}}));
    const PlannedCertificate rollover(
        authorityPlan(QStringLiteral("Root"), {{"subjectAltName", "DNS:example.org"}}), &root);
    const PlannedCertificate leaf(
        leafPlan(QStringLiteral("www.example.com"), {{"subjectAltName", "DNS:example.com"}}),
        &rollover);
    test::TrustedRoots roots;
    roots.setRoots({root.der()});
    test::ChainClient client;
    client.add(rollover.der());
    QCOMPARE(errorNames(client.ask(leaf.der()).errors), QStringList());
}

void ChainNamesTest::constraintsOfTheEndCertificateConcernNobody()
{
    const auto plan =
        leafPlan(QStringLiteral("leaf"), {{"nameConstraints", "excluded;DNS:example.com"},
                                          {"subjectAltName", "DNS:example.com"}});
    QCOMPARE(errorsOf("", plan), QByteArray());
}

//! A reader that sees no names in it would find none that is not permitted.
void ChainNamesTest::alternativeNamesThatCannotBeDecodedAreAnError()
{
    const auto plan = nameless(leafPlan(QStringLiteral("leaf"), {{"subjectAltName", "DER:0500"}}));
    QCOMPARE(errorsOf("permitted;DNS:example.com", plan), QByteArray("INVALID_EXTENSION"));
}

void ChainNamesTest::moreNamesThanCanBeComparedAreInvalid()
{
    constexpr int MAX_COMPARISONS = 1 << 19;
    constexpr int CONSTRAINTS = 512;
    const auto repeated = [](const char* text, int count) {
        return QByteArray(text).repeated(count).chopped(1);
    };
    const QByteArray constraints = repeated("excluded;DNS:example.org,", CONSTRAINTS);
    const auto leafWith = [&repeated](int nameCount) {
        return leafPlan(QStringLiteral("example.com"),
                        {{"subjectAltName", repeated("DNS:example.com,", nameCount)}});
    };
    // The subject is a name, too.
    const int most = MAX_COMPARISONS / CONSTRAINTS - 1;
    QCOMPARE(errorsOf(constraints, leafWith(most)), QByteArray());
    QCOMPARE(errorsOf(constraints, leafWith(most + 1)), QByteArray(INVALID));
}

QTEST_GUILESS_MAIN(ChainNamesTest)
#include "tst_chainnames.moc"

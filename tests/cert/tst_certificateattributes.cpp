// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <QtTest/QtTest>

using AttributeMap = QMultiMap<QString, QString>;
using Attributes = QList<QPair<QString, QString>>;
using Subject = QList<QPair<QByteArray, QByteArray>>;
using vela::SslCertificate;

namespace {

struct Certificate : SslCertificate
{
    using SslCertificate::concatAttributes;
    using SslCertificate::parseAttributes;
};

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

AttributeMap parsed(const QString& name)
{
    AttributeMap map;
    Certificate::parseAttributes(name, map);
    return map;
}

//! The entries of \a map in its order.
Attributes entries(const AttributeMap& map)
{
    Attributes list;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        list.append({entry.key(), entry.value()});
    return list;
}

//! Reads "key|value|key|value".
Attributes pairs(const char* latin1)
{
    const QStringList words = text(latin1).split(QLatin1Char('|'));
    Attributes list;
    for (int i = 0; i + 1 < words.size(); i += 2)
        list.append({words[i], words[i + 1]});
    return list;
}

test::Identity identityOf(const Subject& subject, const test::Identity* issuer = nullptr)
{
    test::CertificateSpec spec;
    spec.subject = subject;
    return test::makeIdentity(spec, issuer);
}

} // namespace

class CertificateAttributesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameIsSplitIntoAttributes_data();
    void nameIsSplitIntoAttributes();
    void parsingKeepsEarlierEntries();
    void mapIsWrittenAsText_data();
    void mapIsWrittenAsText();
    void keysAreTheWellKnownOnes();
    void emptyObjectHasNoAttributes();
    void lookupUpperCasesTheKey();
    void lookupFindsTheLastOfSeveralValues();
    void separatorsAreTheFirstTwoCharacters();
    void emailAddressIsNotFoundByTheGetters();
    void slashInAValueSplitsIt();
    void plusInAValueStaysAsItIs();
    void textBeyondAsciiIsEscaped();
    void issuerAndSubjectAreKeptApart();
    void namedGettersReadTheirKeys();
    void missingAttributesAreEmpty();
};

void CertificateAttributesTest::nameIsSplitIntoAttributes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Attributes>("expected");
    const auto row = [](const char* title, const char* name, const char* expected) {
        QTest::newRow(title) << text(name) << pairs(expected);
    };
    row("empty", "", "");
    row("slash alone", "/", "");
    row("slashes alone", "////", "");
    row("sorted by key", "/C=DE/O=Acme/CN=ca", "C|DE|CN|ca|O|Acme");
    row("no leading slash", "C=DE/O=Acme", "C|DE|O|Acme");
    row("empty parts", "//C=DE//O=Acme//", "C|DE|O|Acme");
    row("equal keys, newest first", "/CN=a/OU=x/OU=y", "CN|a|OU|y|OU|x");
    row("equal entries are kept", "/OU=x/OU=x", "OU|x|OU|x");
    row("part without equals sign", "/CN=a/b", "CN|a|b|");
    row("further equals signs", "/CN=a=b", "CN|a=b");
    row("empty value", "/CN=", "CN|");
    row("empty key", "/=a", "|a");
    row("equals sign alone", "/=", "|");
    row("value cut at a slash", "/OU=Research/Development", "Development||OU|Research");
    row("value that smuggles an attribute", "/O=x/CN=bank", "CN|bank|O|x");
    row("blanks are kept", "/ CN = a ", " CN | a ");
    row("no unescaping", "/CN=a\\/b", "CN|a\\|b|");
    row("upper case sorts first", "/b=1/B=2/a=3/A=4", "A|4|B|2|a|3|b|1");
}

void CertificateAttributesTest::nameIsSplitIntoAttributes()
{
    QFETCH(QString, name);
    QTEST(entries(parsed(name)), "expected");
}

void CertificateAttributesTest::parsingKeepsEarlierEntries()
{
    AttributeMap map;
    map.insert(text("OU"), text("earlier"));
    Certificate::parseAttributes(text("/OU=later"), map);
    QCOMPARE(entries(map), pairs("OU|later|OU|earlier"));
}

void CertificateAttributesTest::mapIsWrittenAsText_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("separators");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* title, const char* name, const char* separators,
                        const char* expected) {
        QTest::newRow(title) << text(name) << text(separators) << text(expected);
    };
    row("empty map", "", "", "");
    row("empty map, separators", "", ",:", "");
    row("defaults", "/C=DE/O=Acme/CN=ca", "", "C=DE/CN=ca/O=Acme");
    row("pair separator alone", "/CN=a/OU=x", "|", "CN=a|OU=x");
    row("both separators", "/CN=a/OU=x/OU=y", ",=", "CN=a,OU=y,OU=x");
    row("blank between key and value", "/CN=a/OU=x/OU=y", ", ", "CN a,OU y,OU x");
    row("further separators are ignored", "/CN=a/OU=x", ",:;=", "CN:a,OU:x");
    row("entry without value", "/CN=a/b", "", "CN=a/b");
    row("only an entry without value", "/b", ",:", "b");
    row("only an empty key", "/=a", "", "=a");
    row("separators inside values stay", "/CN=a,b:c", ",:", "CN:a,b:c");
}

void CertificateAttributesTest::mapIsWrittenAsText()
{
    QFETCH(QString, name);
    QFETCH(QString, separators);
    QTEST(Certificate::concatAttributes(parsed(name), separators), "expected");
}

void CertificateAttributesTest::keysAreTheWellKnownOnes()
{
    QCOMPARE(SslCertificate::ATTR_COMMON_NAME, text("CN"));
    QCOMPARE(SslCertificate::ATTR_COUNTRY, text("C"));
    QCOMPARE(SslCertificate::ATTR_EMAIL, text("EMail"));
    QCOMPARE(SslCertificate::ATTR_LOCALITY, text("L"));
    QCOMPARE(SslCertificate::ATTR_ORGANISATION, text("O"));
    QCOMPARE(SslCertificate::ATTR_ORGANISATION_UNIT, text("OU"));
    QCOMPARE(SslCertificate::ATTR_STATE, text("ST"));
}

void CertificateAttributesTest::emptyObjectHasNoAttributes()
{
    const SslCertificate certificate;
    QVERIFY(certificate.issuerAttributes().isEmpty());
    QVERIFY(certificate.subjectAttributes().isEmpty());
    QVERIFY(certificate.issuerString().isEmpty());
    QVERIFY(certificate.subjectString(text(",=")).isEmpty());
    QVERIFY(certificate.issuerAttribute(text("CN")).isEmpty());
    QVERIFY(certificate.subjectCommonName().isEmpty());
}

void CertificateAttributesTest::lookupUpperCasesTheKey()
{
    const test::Identity identity = identityOf({{"CN", "a"}, {"emailAddress", "a@b"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.subjectAttribute(text("CN")), text("a"));
    QCOMPARE(certificate.subjectAttribute(text("cn")), text("a"));
    QCOMPARE(certificate.issuerAttribute(text("cN")), text("a"));
    QVERIFY(certificate.subjectAttribute(text("emailAddress")).isEmpty());
    QVERIFY(certificate.subjectAttribute(QString()).isEmpty());
}

void CertificateAttributesTest::lookupFindsTheLastOfSeveralValues()
{
    const test::Identity identity = identityOf({{"CN", "a"}, {"OU", "x"}, {"OU", "y"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.subjectAttribute(text("ou")), text("y"));
    QCOMPARE(certificate.subjectOrganisationUnit(), text("y"));
    QCOMPARE(certificate.subjectAttributes().values(text("OU")),
             QStringList({text("y"), text("x")}));
}

void CertificateAttributesTest::separatorsAreTheFirstTwoCharacters()
{
    const test::Identity identity = identityOf({{"CN", "a"}, {"OU", "x"}, {"OU", "y"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.subjectString(text(",=")), text("CN=a,OU=y,OU=x"));
    QCOMPARE(certificate.subjectString(text(", ")), text("CN a,OU y,OU x"));
    QCOMPARE(certificate.issuerString(text("|")), text("CN=a|OU=y|OU=x"));
    QCOMPARE(certificate.issuerString(QString()), text("CN=a/OU=y/OU=x"));
}

void CertificateAttributesTest::emailAddressIsNotFoundByTheGetters()
{
    const test::Identity identity = identityOf({{"CN", "a"}, {"emailAddress", "me@example.org"}});
    const SslCertificate certificate(identity.x509(), false);
    QVERIFY(certificate.subjectEMail().isEmpty());
    QVERIFY(certificate.issuerEMail().isEmpty());
    QCOMPARE(certificate.subjectAttributes().value(text("emailAddress")), text("me@example.org"));
}

void CertificateAttributesTest::slashInAValueSplitsIt()
{
    const test::Identity identity = identityOf({{"CN", "a"}, {"OU", "Research/Development"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(entries(certificate.subjectAttributes()), pairs("CN|a|Development||OU|Research"));
}

void CertificateAttributesTest::plusInAValueStaysAsItIs()
{
    const test::Identity identity = identityOf({{"CN", "a+b=c, d"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.subjectCommonName(), text("a+b=c, d"));
}

void CertificateAttributesTest::textBeyondAsciiIsEscaped()
{
    const test::Identity identity = identityOf({{"O", "M\xC3\xBCller"}, {"CN", "\xE2\x82\xAC"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.subjectOrganisation(), text("M\\xC3\\xBCller"));
    QCOMPARE(certificate.subjectCommonName(), text("\\xE2\\x82\\xAC"));
}

void CertificateAttributesTest::issuerAndSubjectAreKeptApart()
{
    const test::Identity authority = identityOf({{"C", "DE"}, {"O", "Acme"}, {"CN", "ca"}});
    const test::Identity identity = identityOf({{"CN", "host"}}, &authority);
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.issuerString(), text("C=DE/CN=ca/O=Acme"));
    QCOMPARE(certificate.subjectString(), text("CN=host"));
}

void CertificateAttributesTest::namedGettersReadTheirKeys()
{
    const test::Identity authority = identityOf({{"C", "DE"},
                                                 {"ST", "Hesse"},
                                                 {"L", "Fulda"},
                                                 {"O", "Acme"},
                                                 {"OU", "Trust"},
                                                 {"CN", "ca"}});
    const test::Identity identity = identityOf({{"C", "FR"},
                                                {"ST", "Alsace"},
                                                {"L", "Colmar"},
                                                {"O", "Bonne"},
                                                {"OU", "Sud"},
                                                {"CN", "hote"}},
                                               &authority);
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.issuerCountry(), text("DE"));
    QCOMPARE(certificate.issuerState(), text("Hesse"));
    QCOMPARE(certificate.issuerLocality(), text("Fulda"));
    QCOMPARE(certificate.issuerOrganisation(), text("Acme"));
    QCOMPARE(certificate.issuerOrganisationUnit(), text("Trust"));
    QCOMPARE(certificate.issuerCommonName(), text("ca"));
    QCOMPARE(certificate.subjectCountry(), text("FR"));
    QCOMPARE(certificate.subjectState(), text("Alsace"));
    QCOMPARE(certificate.subjectLocality(), text("Colmar"));
    QCOMPARE(certificate.subjectOrganisation(), text("Bonne"));
    QCOMPARE(certificate.subjectOrganisationUnit(), text("Sud"));
    QCOMPARE(certificate.subjectCommonName(), text("hote"));

    // The e-mail getters look for a key in capitals. No engine writes one, a cut value can.
    const test::Identity odd = identityOf({{"CN", "a/EMAIL=me@example.org"}}, &authority);
    QCOMPARE(SslCertificate(odd.x509(), false).subjectEMail(), text("me@example.org"));
    const test::Identity issued = identityOf({{"CN", "host"}}, &odd);
    QCOMPARE(SslCertificate(issued.x509(), false).issuerEMail(), text("me@example.org"));
}

void CertificateAttributesTest::missingAttributesAreEmpty()
{
    const test::Identity identity = identityOf({{"1.2.3.4", "a"}});
    const SslCertificate certificate(identity.x509(), false);
    QCOMPARE(entries(certificate.subjectAttributes()), pairs("1.2.3.4|a"));
    for (const QString& value :
         {certificate.subjectCountry(), certificate.subjectState(), certificate.subjectLocality(),
          certificate.subjectOrganisation(), certificate.subjectOrganisationUnit(),
          certificate.subjectCommonName(), certificate.subjectEMail(), certificate.issuerCountry(),
          certificate.issuerState(), certificate.issuerLocality(), certificate.issuerOrganisation(),
          certificate.issuerOrganisationUnit(), certificate.issuerCommonName(),
          certificate.issuerEMail()})
        QVERIFY(value.isEmpty());
}

QTEST_GUILESS_MAIN(CertificateAttributesTest)
#include "tst_certificateattributes.moc"

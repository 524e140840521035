// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/ErrorQueue.h"
#include "tests/common/HostNameOracle.h"
#include "tests/common/NamedCertificate.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>

#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>

#include <QtTest/QtTest>

using test::certificateFor;
using vela::SslCertificate;
using vela::X509Handle;
using Names = QList<QByteArray>;

namespace {

// What a row expects: nothing, a match by alternative names, or one by the common name.
enum Match {
    None,
    ByCommonName,
    Yes
};

//! Where the library and the engine differ by mistake.
const QLatin1String NO_REASON("none");

const char BUECHER[] = "xn--bcher-kva.example";
const char UTF8_BUECHER[] = "b\xC3\xBC"
                            "cher.example";

//! Not cut off at a NUL.
QString textOf(const QByteArray& utf8)
{
    return QString::fromUtf8(utf8.constData(), utf8.size());
}

QByteArray label(int length)
{
    return QByteArray(length, 'a');
}

//! A host name of \a length characters, of labels of at most 49.
QByteArray nameOf(int length)
{
    QByteArray name = "example";
    while (name.size() < length)
        name.prepend(QByteArray(qMin(49, length - name.size() - 1), 'a') + '.');
    return name;
}

bool matches(const X509Handle& x509, const QString& host,
             SslCertificate::HostNameCheck check = SslCertificate::AllowCommonName)
{
    return SslCertificate(x509.get(), false).matchesHost(host, check);
}

bool matches(const X509Handle& x509, const char* host)
{
    return matches(x509, QString::fromLatin1(host));
}

bool matches(const Names& names, const QByteArray& host)
{
    return matches(certificateFor(names), textOf(host));
}

void addRow(const char* title, const Names& names, const QByteArray& host, Match expected)
{
    QTest::newRow(title) << names << host << int(expected);
}

} // namespace

class HostNameMatchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void hostIsMatched_data();
    void hostIsMatched();
    void malformedExtensionMatchesNothing_data();
    void malformedExtensionMatchesNothing();
    void truncatedExtensionMatchesNothing();
    void damagedExtensionAgreesWithTheEngine();
    void everyOctetInTheCertificateMatchesOnlyItself();
    void everyCharacterOfTheHostMatchesOnlyItself();
    void hostWithNulMatchesNothing();
    void emptyObjectAndEmptyHostMatchNothing();
    void namesOfAnyLengthAreCompared();
    void hugeCertificatesAreMatched();
    void corpusAgreesWithTheEngine();
    void randomNamesAgreeWithTheEngine();
    void errorQueueIsLeftAsItWas();

private:
    //! Returns why the library and the engine differ, empty where they agree.
    static QString difference(const X509Handle& x509, const QString& host);
};

void HostNameMatchTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void HostNameMatchTest::hostIsMatched_data()
{
    QTest::addColumn<Names>("names");
    QTest::addColumn<QByteArray>("host");
    QTest::addColumn<int>("expected");

    addRow("host name", {"DNS:www.example.com"}, "www.example.com", Yes);
    addRow("another host", {"DNS:www.example.com"}, "ftp.example.com", None);
    addRow("one of many", {"DNS:a.example", "MAIL:x@c.example", "DNS:b.example"}, "b.example", Yes);
    addRow("host below", {"DNS:example.com"}, "www.example.com", None);
    addRow("host above", {"DNS:www.example.com"}, "example.com", None);
    addRow("end of the host", {"DNS:example.com"}, "badexample.com", None);
    addRow("start of the host", {"DNS:example.com"}, "example.com.evil.example", None);
    addRow("single label", {"DNS:localhost"}, "localhost", Yes);
    addRow("underscore", {"DNS:a_b.example.com"}, "a_b.example.com", Yes);

    addRow("upper case in the certificate", {"DNS:WWW.Example.COM"}, "www.example.com", Yes);
    addRow("upper case in the host", {"DNS:www.example.com"}, "WWW.EXAMPLE.com", Yes);
    addRow("letter case of other alphabets", {"DNS:\xE4.example.com"}, "\xC3\x84.example.com",
           None);
    addRow("Latin-1 letter case", {"CN:\xE4.example.com"}, "\xC3\x84.example.com", None);
    addRow("brace for bracket", {"DNS:a[.example.com"}, "a{.example.com", None);
    addRow("at sign for grave accent", {"DNS:@.example.com"}, "`.example.com", None);

    addRow("period at the end of the host", {"DNS:www.example.com"}, "www.example.com.", Yes);
    addRow("two periods at the end", {"DNS:www.example.com"}, "www.example.com..", None);
    addRow("period at the end in the certificate", {"DNS:www.example.com."}, "www.example.com",
           None);
    addRow("periods at both ends", {"DNS:www.example.com."}, "www.example.com.", None);
    addRow("period in front", {"DNS:.example.com"}, ".example.com", None);
    addRow("period in front of the host", {"DNS:www.example.com"}, ".example.com", None);
    addRow("empty label", {"DNS:www..example.com"}, "www..example.com", None);
    addRow("period alone", {"DNS:."}, ".", None);
    addRow("empty names", {"DNS:", "CN:"}, "", None);

    addRow("label of 63", {"DNS:" + label(63) + ".example"}, label(63) + ".example", Yes);
    addRow("label of 64", {"DNS:" + label(64) + ".example"}, label(64) + ".example", None);
    addRow("name of 253", {"DNS:" + nameOf(253)}, nameOf(253), Yes);
    addRow("name of 253 and a period", {"DNS:" + nameOf(253)}, nameOf(253) + '.', Yes);
    addRow("name of 254", {"DNS:" + nameOf(254)}, nameOf(254), None);

    addRow("wildcard", {"DNS:*.example.com"}, "www.example.com", Yes);
    addRow("wildcard, letter case", {"DNS:*.Example.com"}, "www.eXample.com", Yes);
    addRow("wildcard and no label", {"DNS:*.example.com"}, "example.com", None);
    addRow("wildcard and an empty label", {"DNS:*.example.com"}, ".example.com", None);
    addRow("wildcard and two labels", {"DNS:*.example.com"}, "a.b.example.com", None);
    addRow("wildcard and another domain", {"DNS:*.example.com"}, "www.example.org", None);
    addRow("wildcard and the end of a domain", {"DNS:*.example.com"}, "www.badexample.com", None);
    addRow("wildcard and a period at the end", {"DNS:*.example.com"}, "www.example.com.", Yes);
    addRow("wildcard alone", {"DNS:*"}, "localhost", None);
    addRow("wildcard for a top-level domain", {"DNS:*.com"}, "example.com", None);
    addRow("wildcard and a period", {"DNS:*."}, "localhost.", None);
    addRow("wildcard with a period at the end", {"DNS:*.com."}, "example.com.", None);
    addRow("wildcard at the end of a label", {"DNS:w*.example.com"}, "www.example.com", None);
    addRow("wildcard at the start of a label", {"DNS:*w.example.com"}, "www.example.com", None);
    addRow("wildcard within a label", {"DNS:w*w.example.com"}, "www.example.com", None);
    addRow("wildcard in the second label", {"DNS:www.*.com"}, "www.example.com", None);
    addRow("two wildcards", {"DNS:*.*.com"}, "www.example.com", None);
    addRow("two stars", {"DNS:**.example.com"}, "www.example.com", None);
    addRow("star in the host", {"DNS:*.example.com"}, "*.example.com", None);
    addRow("star in both", {"DNS:w*.example.com"}, "w*.example.com", None);
    addRow("wildcard and an underscore", {"DNS:*.example.com"}, "a_b.example.com", Yes);
    addRow("wildcard and a long label", {"DNS:*.example.com"}, label(64) + ".example.com", None);
    addRow("wildcard for a number", {"DNS:*.0.2.1"}, "192.0.2.1", None);

    addRow("U-label", {QByteArray("DNS:") + BUECHER}, UTF8_BUECHER, Yes);
    addRow("U-label in upper case", {QByteArray("DNS:") + BUECHER},
           "B\xC3\x9C"
           "CHER.example",
           Yes);
    addRow("A-label", {QByteArray("DNS:") + BUECHER}, BUECHER, Yes);
    addRow("A-label in upper case", {QByteArray("DNS:") + BUECHER}, "XN--BCHER-KVA.example", Yes);
    addRow("UTF-8 in the certificate", {QByteArray("DNS:") + UTF8_BUECHER}, UTF8_BUECHER, None);
    addRow("UTF-8 in the certificate, A-label", {QByteArray("DNS:") + UTF8_BUECHER}, BUECHER, None);
    addRow("UTF-8 in the common name", {QByteArray("CN:") + UTF8_BUECHER}, UTF8_BUECHER, None);
    addRow("Latin-1 in the certificate",
           {"DNS:b\xFC"
            "cher.example"},
           UTF8_BUECHER, None);
    addRow("A-label in the common name", {QByteArray("CN:") + BUECHER}, UTF8_BUECHER, ByCommonName);
    addRow("wildcard for an A-label", {"DNS:*.example.com"}, "xn--bcher-kva.example.com", Yes);
    addRow("wildcard for a U-label", {"DNS:*.example.com"},
           "b\xC3\xBC"
           "cher.example.com",
           Yes);
    addRow("wildcard in an A-label", {"DNS:xn--b*.example.com"}, "xn--bcher-kva.example.com", None);
    addRow("wildcard before an A-label", {"DNS:*.xn--bcher-kva.example"},
           "www.b\xC3\xBC"
           "cher.example",
           Yes);
    addRow("A-label of ASCII", {"DNS:bank.example"}, "xn--bank-.example", None);
    addRow("host is an A-label of ASCII", {"DNS:xn--bank-.example"}, "bank.example", None);
    addRow("ideographic full stop", {"DNS:bank.example"},
           "bank\xE3\x80\x82"
           "example",
           Yes);
    addRow("full-width full stop", {"DNS:bank.example"},
           "bank\xEF\xBC\x8E"
           "example",
           Yes);
    addRow("ideographic full stop for a wildcard", {"DNS:*.example.com"},
           "a\xE3\x80\x82"
           "b.example.com",
           None);
    addRow("one dot leader", {"DNS:bank.example"},
           "bank\xE2\x80\xA4"
           "example",
           None);
    addRow("soft hyphen", {"DNS:bank.example"},
           "ba\xC2\xAD"
           "nk.example",
           Yes);
    addRow("too many soft hyphens", {"DNS:bank.example"},
           "bank" + QByteArray("\xC2\xAD").repeated(300) + ".example", None);
    addRow("soft hyphen alone", {"DNS:.example.com"}, "\xC2\xAD.example.com", None);
    addRow("Cyrillic a", {"DNS:bank.example"},
           "b\xD0\xB0"
           "nk.example",
           None);
    addRow("long A-label", {"DNS:bank.example"}, QByteArray("\xC3\xBC").repeated(80), None);
    addRow("fraction slash", {"DNS:a/c.example"}, "\xE2\x84\x80.example", None);

    addRow("percent sign", {"DNS:bank%2eexample"}, "bank%2eexample", None);
    addRow("percent-encoded period", {"DNS:bank.example"}, "bank%2eexample", None);
    addRow("blank in front", {"DNS:bank.example"}, " bank.example", None);
    addRow("blank behind", {"DNS:bank.example"}, "bank.example ", None);
    addRow("line feed behind", {"DNS:bank.example"}, "bank.example\n", None);
    addRow("port", {"DNS:bank.example"}, "bank.example:443", None);
    addRow("user", {"DNS:bank.example"}, "user@bank.example", None);

    addRow("IPv4", {"IP:C0000201"}, "192.0.2.1", Yes);
    addRow("IPv4, one of many", {"DNS:a.example", "IP:C0000202", "IP:C0000201"}, "192.0.2.1", Yes);
    addRow("another IPv4", {"IP:C0000201"}, "192.0.2.2", None);
    addRow("IPv4 as host name", {"DNS:192.0.2.1"}, "192.0.2.1", None);
    addRow("octets of the address as host name", {"DNS:\xC0\x01\x02\x03", "URI:\xC0\x01\x02\x03"},
           "192.1.2.3", None);
    addRow("unspecified IPv4", {"IP:00000000"}, "0.0.0.0", Yes);
    addRow("broadcast", {"IP:FFFFFFFF"}, "255.255.255.255", Yes);
    addRow("IPv4 as common name", {"CN:192.0.2.1"}, "192.0.2.1", None);
    addRow("IPv4 as URI", {"URI:https://192.0.2.1/"}, "192.0.2.1", None);
    addRow("IPv4 as text", {"IP:3139322E302E322E31"}, "192.0.2.1", None);
    addRow("IPv4 with a mask", {"IP:C0000200FFFFFF00"}, "192.0.2.0", None);
    addRow("IPv4 of three octets", {"IP:C00002"}, "192.0.2.0", None);
    addRow("IPv4 of five octets", {"IP:C000020100"}, "192.0.2.1", None);
    addRow("no octets", {"IP:"}, "0.0.0.0", None);
    addRow("IPv4 with a leading zero", {"IP:C0000201", "DNS:192.0.2.01"}, "192.0.2.01", None);
    addRow("IPv4 in hex", {"IP:7F000001", "DNS:0x7f000001"}, "0x7f000001", None);
    addRow("IPv4 in hex parts", {"IP:7F000001", "DNS:127.0.0.0x1"}, "127.0.0.0x1", None);
    addRow("IPv4 as a number", {"IP:7F000001", "DNS:2130706433"}, "2130706433", None);
    addRow("IPv4 of two parts", {"IP:7F000001", "DNS:127.1", "CN:127.1"}, "127.1", None);
    addRow("IPv4 too large", {"IP:C0000201"}, "192.0.2.257", None);
    addRow("IPv4 with a sign", {"IP:C0000201"}, "192.0.2.+1", None);
    addRow("IPv4 with a period at the end", {"IP:C0000201"}, "192.0.2.1.", None);
    addRow("IPv4 in brackets", {"IP:C0000201"}, "[192.0.2.1]", None);
    addRow("IPv4 with a zone", {"IP:C0000201"}, "192.0.2.1%eth0", None);
    addRow("IPv4 in full-width digits", {"IP:C0000201"},
           "\xEF\xBC\x91\xEF\xBC\x99\xEF\xBC\x92.0.2.1", None);

    const QByteArray loopback = "IP:00000000000000000000000000000001";
    const QByteArray linkLocal = "IP:FE800000000000000000000000000001";
    addRow("IPv6", {loopback}, "::1", Yes);
    addRow("IPv6 written out", {loopback}, "0:0:0:0:0:0:0:1", Yes);
    addRow("IPv6 in brackets", {loopback}, "[::1]", Yes);
    addRow("IPv6, letter case", {linkLocal}, "FE80::1", Yes);
    addRow("another IPv6", {loopback}, "::2", None);
    addRow("IPv6 with half a bracket", {loopback}, "[::1", None);
    addRow("IPv6 in two brackets", {loopback}, "[[::1]]", None);
    addRow("IPv6 and a port", {loopback}, "[::1]:443", None);
    addRow("IPv6 with a blank", {loopback}, " ::1", None);
    addRow("IPv6 with a period at the end", {loopback}, "::1.", None);
    addRow("IPv6 as host name", {"DNS:::1", "DNS:[::1]", "CN:::1"}, "::1", None);
    addRow("IPv6 with a zone", {linkLocal}, "fe80::1%eth0", Yes);
    addRow("IPv6 with a zone in brackets", {linkLocal}, "[fe80::1%12]", Yes);
    addRow("IPv6 with an empty zone", {linkLocal}, "fe80::1%", None);
    addRow("IPv6 with an escaped zone", {linkLocal}, "fe80::1%25eth0", Yes);
    addRow("IPv6 with two zones", {linkLocal}, "fe80::1%1%2", None);
    addRow("IPv6 with a blank in the zone", {linkLocal}, "fe80::1%eth 0", None);
    addRow("end of the link-local addresses", {"IP:FEBF0000000000000000000000000001"},
           "febf::1%eth0", Yes);
    addRow("behind the link-local addresses", {"IP:FEC00000000000000000000000000001"},
           "fec0::1%eth0", None);
    addRow("IPv6 that needs no zone", {loopback}, "::1%eth0", None);
    addRow("mapped IPv4 in the host", {"IP:C0000201"}, "::ffff:192.0.2.1", None);
    addRow("mapped IPv4 in the certificate", {"IP:00000000000000000000FFFFC0000201"}, "192.0.2.1",
           None);
    addRow("mapped IPv4 in both", {"IP:00000000000000000000FFFFC0000201"}, "::ffff:192.0.2.1", Yes);
    addRow("IPv6 with a mask", {loopback + QByteArray(32, 'F')}, "::1", None);

    addRow("common name", {"CN:www.example.com"}, "www.example.com", ByCommonName);
    addRow("wildcard in the common name", {"CN:*.example.com"}, "www.example.com", ByCommonName);
    addRow("common name and alternative names", {"CN:a.example", "DNS:b.example"}, "a.example",
           None);
    addRow("alternative name with a common name", {"CN:a.example", "DNS:b.example"}, "b.example",
           Yes);
    addRow("common name and an invalid host name", {"CN:a.example", "DNS:"}, "a.example", None);
    addRow("common name and a host name with NUL",
           {"CN:a.example", QByteArray("DNS:b.example\0", 14)}, "a.example", None);
    addRow("common name and an address", {"CN:a.example", "IP:C0000201"}, "a.example",
           ByCommonName);
    addRow("common name and a mail address", {"CN:a.example", "MAIL:x@a.example"}, "a.example",
           ByCommonName);
    addRow("common name and a directory name", {"CN:a.example", "DIR:x"}, "a.example",
           ByCommonName);
    addRow("common name and an id", {"CN:a.example", "ID:2B06010505070807"}, "a.example",
           ByCommonName);
    addRow("common name and a URI", {"CN:a.example", "URI:https://b.example/"}, "a.example", None);
    addRow("common name and a service", {"CN:a.example", "SRV:_https.b.example"}, "a.example",
           None);
    addRow("service for the host", {"SRV:_https.b.example", "SRV:b.example"}, "b.example", None);
    addRow("URI for the host", {"URI:https://b.example/", "URI:b.example"}, "b.example", None);
    addRow("mail address for the host", {"MAIL:b.example"}, "b.example", None);
    addRow("directory name for the host", {"DIR:b.example"}, "b.example", None);
    addRow("first of two common names", {"CN:a.example", "CN:b.example"}, "a.example", None);
    addRow("last of two common names", {"CN:a.example", "CN:b.example"}, "b.example", ByCommonName);
    addRow("common name behind a slash", {"CN:x/CN=a.example"}, "a.example", None);
    addRow("common name with NUL", {QByteArray("CN:a.example\0.evil.example", 26)}, "a.example",
           None);
    addRow("common name of wide characters", {QByteArray("BMPCN:\0a\0.\0b", 12)}, "a.b", None);
    addRow("wide characters that are text", {"BMPCN:ab.c"}, "ab.c", None);
    addRow("no name at all", {}, "a.example", None);
}

void HostNameMatchTest::hostIsMatched()
{
    QFETCH(Names, names);
    QFETCH(QByteArray, host);
    QFETCH(int, expected);
    const X509Handle x509 = certificateFor(names);
    QVERIFY(x509);
    const QString name = textOf(host);
    QCOMPARE(matches(x509, name), expected != None);
    QCOMPARE(matches(x509, name, SslCertificate::AlternativeNamesOnly), expected == Yes);
}

void HostNameMatchTest::malformedExtensionMatchesNothing_data()
{
    using namespace test::der;
    const QByteArray good = sequence(value(DnsName, "a.example"));
    const QByteArray oneByOne = alternativeNamesExtension(good);

    QTest::addColumn<QByteArray>("extensions");
    QTest::addColumn<bool>("isGood");
    QTest::newRow("good") << oneByOne << true;
    QTest::newRow("empty") << alternativeNamesExtension({}) << false;
    QTest::newRow("no element") << alternativeNamesExtension(sequence({})) << false;
    QTest::newRow("text") << alternativeNamesExtension("a.example") << false;
    QTest::newRow("octets behind") << alternativeNamesExtension(good + "x") << false;
    QTest::newRow("list behind") << alternativeNamesExtension(good + good) << false;
    QTest::newRow("twice") << oneByOne + oneByOne << false;
    QTest::newRow("second is damaged") << oneByOne + alternativeNamesExtension("x") << false;
    QTest::newRow("unknown kind") << alternativeNamesExtension(
        sequence(value(DnsName, "a.example") + value(0x8A, "a.example")))
                                  << false;
    QTest::newRow("name that is too long for the list")
        << alternativeNamesExtension(sequence(QByteArray("\x82\x0A", 2) + "a.example")) << false;
    QTest::newRow("not primitive")
        << alternativeNamesExtension(sequence(value(0xA2, "a.example"))) << false;
    QTest::newRow("damaged directory name") << alternativeNamesExtension(
        sequence(value(DnsName, "a.example") + value(DirectoryName, "x")))
                                            << false;
}

void HostNameMatchTest::malformedExtensionMatchesNothing()
{
    QFETCH(QByteArray, extensions);
    QFETCH(bool, isGood);
    const X509Handle x509 =
        test::certificateOf(test::der::attribute("550403", "b.example"), extensions);
    QVERIFY(x509);
    QCOMPARE(matches(x509, "a.example"), isGood);
    // The common name never helps out.
    QVERIFY(!matches(x509, "b.example"));
    QCOMPARE(SslCertificate(x509.get(), false).alternativeNames().isEmpty(), !isGood);
}

void HostNameMatchTest::truncatedExtensionMatchesNothing()
{
    const QByteArray content =
        test::der::sequence(test::encodedName("DNS:b.example") + test::encodedName("SRV:_x.b")
                            + test::encodedName("IP:C0000201") + test::encodedName("DIR:x"));
    const QByteArray commonName = test::der::attribute("550403", "a.example");
    for (int length = 0; length <= content.size(); ++length) {
        const X509Handle x509 = test::certificateOf(
            commonName, test::der::alternativeNamesExtension(content.left(length)));
        QVERIFY(x509);
        QVERIFY(!matches(x509, "a.example"));
        QCOMPARE(matches(x509, "b.example"), length == content.size());
        QCOMPARE(matches(x509, "192.0.2.1"), length == content.size());
    }
}

QString HostNameMatchTest::difference(const X509Handle& x509, const QString& host)
{
    const test::HostNameOracle oracle(x509.get(), host);
    const bool matched = matches(x509, host);
    if (matched == oracle.engineMatches())
        return QString();
    const QString reason = oracle.reasonOfDifference(matched);
    if (reason.isEmpty())
        qWarning("\"%s\" is matched: %d", qPrintable(host), matched);
    return reason.isEmpty() ? NO_REASON : reason;
}

void HostNameMatchTest::damagedExtensionAgreesWithTheEngine()
{
    const QByteArray content =
        test::der::sequence(test::encodedName("DNS:b.example") + test::encodedName("IP:C0000201"));
    const QByteArray commonName = test::der::attribute("550403", "a.example");
    int matchCount = 0;
    for (int position = 0; position < content.size(); ++position) {
        for (int octet = 0; octet < 256; ++octet) {
            QByteArray damaged = content;
            damaged[position] = char(octet);
            const X509Handle x509 =
                test::certificateOf(commonName, test::der::alternativeNamesExtension(damaged));
            for (const char* host : {"a.example", "b.example", "192.0.2.1"}) {
                QVERIFY(difference(x509, QString::fromLatin1(host)) != NO_REASON);
                matchCount += matches(x509, host);
            }
        }
    }
    QVERIFY(matchCount > content.size());
}

void HostNameMatchTest::everyOctetInTheCertificateMatchesOnlyItself()
{
    for (int octet = 0; octet < 256; ++octet) {
        const QByteArray name = QByteArray("a") + char(octet) + "b.example.com";
        for (const char* kind : {"DNS:", "CN:"}) {
            const X509Handle x509 = certificateFor({kind + name});
            for (int other = 0; other < 128; ++other) {
                const QByteArray host = QByteArray("a") + char(other) + "b.example.com";
                const bool isSame = host.toLower() == name.toLower() && octet < 128
                                    && test::HostNameOracle::isHostName(host);
                QCOMPARE(matches(x509, textOf(host)), isSame);
            }
        }
    }
}

void HostNameMatchTest::everyCharacterOfTheHostMatchesOnlyItself()
{
    for (const char* kind : {"DNS:", "CN:"}) {
        const X509Handle x509 = certificateFor({QByteArray(kind) + "bank.example"});
        int count = 0;
        for (int character = 0; character < 0x10000; ++character) {
            const QString host =
                QStringLiteral("b") + QChar(character) + QStringLiteral("nk.example");
            const bool isMatched = matches(x509, host);
            // What becomes an "a" is looked up as one.
            QCOMPARE(isMatched, QUrl::toAce(host) == "bank.example");
            count += isMatched;
        }
        QVERIFY(count >= 2);
    }
}

void HostNameMatchTest::hostWithNulMatchesNothing()
{
    const X509Handle x509 =
        certificateFor({"DNS:a.example", QByteArray("DNS:a.example\0.b.example", 24),
                        QByteArray("DNS:a.example\0", 14), "DNS:*.b.example"});
    QVERIFY(matches(x509, "a.example"));
    QVERIFY(!matches(x509, QString::fromLatin1("a.example\0.b.example", 20)));
    QVERIFY(!matches(x509, QString::fromLatin1("a.example\0", 10)));
    QVERIFY(!matches(x509, QString::fromLatin1("\0a.example", 10)));
    QVERIFY(!matches(x509, QString::fromLatin1("\0.b.example", 11)));
    QVERIFY(!matches(x509, QStringLiteral("\u00FC") + QChar(0) + QStringLiteral(".b.example")));
    QVERIFY(!matches(certificateFor({QByteArray("DNS:a.example\0.b.example", 24)}), "a.example"));
    QVERIFY(!matches(certificateFor({"IP:3A3A3100"}), QString::fromLatin1("::1\0", 4)));
}

void HostNameMatchTest::emptyObjectAndEmptyHostMatchNothing()
{
    QVERIFY(!SslCertificate().matchesHost(QStringLiteral("a.example")));
    QVERIFY(!SslCertificate().matchesHost(QString()));
    const X509Handle x509 = certificateFor({"DNS:", "DNS:.", "DNS:*", "IP:", "CN:"});
    for (const QString& host : {QString(), QStringLiteral(""), QStringLiteral("."),
                                QStringLiteral("*"), QStringLiteral("[]"), QStringLiteral("%")})
        QVERIFY(!matches(x509, host));
    QVERIFY(!matches(certificateFor({"CN:"}), QString()));
}

void HostNameMatchTest::namesOfAnyLengthAreCompared()
{
    constexpr int LENGTH = 64 * 1024;
    const QByteArray huge = QByteArray("a.").repeated(LENGTH / 2) + "example";
    QVERIFY(!matches({"DNS:" + huge}, huge));
    QVERIFY(!matches({"CN:" + huge}, huge));
    QVERIFY(!matches({"DNS:*." + huge}, "a." + huge));
    QVERIFY(matches({"DNS:" + huge, "DNS:a.example"}, "a.example"));
    QVERIFY(matches({"IP:" + QByteArray(LENGTH, '0'), "IP:C0000201"}, "192.0.2.1"));
    const X509Handle x509 = certificateFor({"DNS:a.example"});
    for (const QChar character : {QChar(u'a'), QChar(u'1'), QChar(u':'), QChar(u'.'), QChar(0x4E00),
                                  QChar(0xAD), QChar(u'['), QChar(u'%')}) {
        QVERIFY(!matches(x509, QString(LENGTH, character)));
        QVERIFY(!matches(x509, QString(LENGTH, character) + QStringLiteral("a.example")));
    }
    QVERIFY(!matches(x509, QStringLiteral("::1%") + QString(LENGTH, u'1')));
}

void HostNameMatchTest::hugeCertificatesAreMatched()
{
    constexpr int COUNT = 100000;
    QByteArray names;
    for (int i = 0; i < COUNT; ++i)
        names += test::encodedName("DNS:a" + QByteArray::number(i));
    const X509Handle x509 =
        test::certificateOf(test::der::attribute("550403", "a.example"),
                            test::der::alternativeNamesExtension(test::der::sequence(names)));
    QVERIFY(x509);
    QVERIFY(matches(x509, "a99999"));
    QVERIFY(!matches(x509, "a.example"));
}

void HostNameMatchTest::corpusAgreesWithTheEngine()
{
    const Names texts = {"example.com",
                         "www.example.com",
                         "a.b.example.com",
                         "EXAMPLE.com",
                         "example.com.",
                         ".example.com",
                         "www..example.com",
                         "localhost",
                         "a_b.example.com",
                         "_a.example.com",
                         "-a.example.com",
                         "a-.example.com",
                         "a--b.example.com",
                         "192.0.2.1",
                         "192.0.2.01",
                         "127.1",
                         "0x7f000001",
                         "1234",
                         "1234.example.com",
                         "www.1234",
                         UTF8_BUECHER,
                         BUECHER,
                         "www.xn--bcher-kva.example",
                         "xn--bcher-kva.example.com",
                         "xn--bcher-kva",
                         "*",
                         "*.example.com",
                         "*.com",
                         "w*.example.com",
                         "*w.example.com",
                         "www.*.com",
                         "*.*.com",
                         "*.xn--bcher-kva.example",
                         "xn--b*.example.com",
                         "*.a_b.com",
                         "www.a_b.com",
                         "*.a-.com",
                         "www.a-.com",
                         label(63) + ".example.com",
                         label(64) + ".example.com",
                         nameOf(253),
                         nameOf(254),
                         "a b.example.com",
                         "::1",
                         "[::1]",
                         "fe80::1%eth0",
                         "example.com/x",
                         "%",
                         QByteArray("www.example.com\0.evil.example", 29),
                         "*.example.com.",
                         "www.example.com.",
                         "www.example.com..",
                         "",
                         ".",
                         "com",
                         "b\xC3\xBC"
                         "cher.example.com",
                         "\xFF"};
    QSet<QString> reasons;
    int matchCount = 0;
    for (const QByteArray& text : texts) {
        const QList<Names> forms = {
            {"DNS:" + text},
            {"CN:" + text},
            {"CN:" + text, "DNS:other.example"},
            {"CN:" + text, "CN:other.example"},
            {"CN:other.example", "CN:" + text},
            {"CN:" + text, "URI:x:y"},
            {"CN:" + text, "SRV:_x.y"},
            {"CN:" + text, "IP:C0000201"},
            {"CN:" + text, "MAIL:a@b.example"},
            {"URI:" + text},
            {"MAIL:" + text},
            {"DIR:" + text},
            {"DNS:x.example", "DNS:" + text, "IP:00000000000000000000000000000001",
             "IP:FE800000000000000000000000000001", "IP:C00002", "IP:7F000001"}};
        for (const Names& names : forms) {
            const X509Handle x509 = certificateFor(names);
            QVERIFY(x509);
            for (const QByteArray& host : texts) {
                const QString reason = difference(x509, textOf(host));
                QVERIFY2(reason != NO_REASON, qPrintable(QString::fromLatin1(names.join('|'))));
                reasons.insert(reason);
                matchCount += matches(x509, textOf(host));
            }
        }
    }
    // What is nowhere in the corpus would be no difference that anybody needs.
    const QSet<QString> expected = {QString(),
                                    QStringLiteral("odd label and wildcard"),
                                    QStringLiteral("odd form of an address"),
                                    QStringLiteral("no host name"),
                                    QStringLiteral("common name beside a URI or a service"),
                                    QStringLiteral("not the last common name")};
    QCOMPARE(reasons, expected);
    QVERIFY(matchCount > 100);
}

void HostNameMatchTest::randomNamesAgreeWithTheEngine()
{
    constexpr int ROUNDS = 2000;
    constexpr int HOSTS = 20;
    const QByteArray alphabet = "aaAbxn1*..--_";
    QRandomGenerator random(16);
    const auto randomName = [&random, &alphabet](int maximum) {
        QByteArray name;
        for (int i = random.bounded(1, maximum); i > 0; --i)
            name += alphabet[random.bounded(alphabet.size())];
        return name;
    };
    int matchCount = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        const QByteArray pattern = random.bounded(2) ? randomName(8) : "*." + randomName(6);
        const X509Handle x509 = certificateFor({"CN:a.b", "DNS:" + pattern});
        for (int i = 0; i < HOSTS; ++i) {
            QByteArray host = i % 4 ? pattern : randomName(8);
            if (i % 4 && host.startsWith('*'))
                host = randomName(4) + host.mid(1);
            const QString name = textOf(i % 2 ? host : host.toUpper());
            QVERIFY2(difference(x509, name) != NO_REASON, pattern.constData());
            matchCount += matches(x509, name);
        }
    }
    QVERIFY(matchCount > 1000);
}

void HostNameMatchTest::errorQueueIsLeftAsItWas()
{
    test::leaveOpenSslErrors();
    const unsigned long oldest = ERR_peek_error();
    const unsigned long newest = ERR_peek_last_error();
    const X509Handle damaged =
        test::certificateOf({}, test::der::alternativeNamesExtension("damaged"));
    QVERIFY(!matches(damaged, "a.example"));
    QVERIFY(SslCertificate(damaged.get(), false).alternativeNames().isEmpty());
    QVERIFY(matches({"DNS:a.example"}, "a.example"));
    QCOMPARE(ERR_peek_error(), oldest);
    QCOMPARE(ERR_peek_last_error(), newest);
    ERR_clear_error();
}

QTEST_GUILESS_MAIN(HostNameMatchTest)
#include "tst_hostnamematch.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/NamedCertificate.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>

#include <QtTest/QtTest>

using test::certificateFor;
using vela::AlternativeName;
using vela::SslCertificate;
using vela::X509Handle;

namespace {

QVector<AlternativeName> namesOf(const X509Handle& x509)
{
    return SslCertificate(x509.get(), false).alternativeNames();
}

bool isShowable(const QString& text)
{
    const QString forbidden = QStringLiteral("<>\" ");
    return std::all_of(text.begin(), text.end(), [&forbidden](QChar c) {
        return c >= u' ' && c <= u'~' && !forbidden.contains(c);
    });
}

//! Undoes the escapes.
QByteArray octetsOf(const QString& text)
{
    QByteArray octets;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != u'\\') {
            octets += text[i].toLatin1();
            continue;
        }
        octets += QByteArray::fromHex(text.mid(i + 2, 2).toLatin1());
        i += 3;
    }
    return octets;
}

} // namespace

class AlternativeNamesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void certificateWithoutNamesHasNone();
    void nameIsShown_data();
    void nameIsShown();
    void namesKeepTheirOrder();
    void everyOctetIsShownSafely();
    void validHostNamesMatch_data();
    void validHostNamesMatch();
    void addressesOfOtherLengthsAreNotValid();
    void copiesAndOtherObjectsGiveTheSame();
    void namesAreComparedByAll();
    void hugeNamesAreShownInFull();
    void manyNamesAreRead();
};

void AlternativeNamesTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void AlternativeNamesTest::certificateWithoutNamesHasNone()
{
    QVERIFY(SslCertificate().alternativeNames().isEmpty());
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    QVERIFY(SslCertificate(identity.x509(), false).alternativeNames().isEmpty());
    const AlternativeName name;
    QCOMPARE(name.kind, AlternativeName::Other);
    QVERIFY(!name.isValid && name.text.isEmpty() && name.address.isNull());
}

void AlternativeNamesTest::nameIsShown_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("isValid");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* title, const QByteArray& name, AlternativeName::Kind kind,
                        bool isValid, const char* text) {
        QTest::newRow(title) << name << int(kind) << isValid << QString::fromLatin1(text);
    };
    using Name = AlternativeName;
    row("host", "DNS:www.example.com", Name::DnsName, true, "www.example.com");
    row("host in upper case", "DNS:WWW.example.com", Name::DnsName, true, "WWW.example.com");
    row("pattern", "DNS:*.example.com", Name::DnsName, true, "*.example.com");
    row("pattern for a top-level domain", "DNS:*.com", Name::DnsName, false, "*.com");
    row("star", "DNS:*", Name::DnsName, false, "*");
    row("partial pattern", "DNS:w*.example.com", Name::DnsName, false, "w*.example.com");
    row("address as host", "DNS:192.0.2.1", Name::DnsName, false, "192.0.2.1");
    row("pattern for addresses", "DNS:*.0.2.1", Name::DnsName, false, "*.0.2.1");
    row("hexadecimal address", "DNS:0x7f000001", Name::DnsName, false, "0x7f000001");
    row("host with a period at the end", "DNS:a.example.", Name::DnsName, false, "a.example.");
    row("empty label", "DNS:a..example", Name::DnsName, false, "a..example");
    row("A-label", "DNS:xn--bcher-kva.example", Name::DnsName, true, "xn--bcher-kva.example");
    row("UTF-8",
        "DNS:b\xC3\xBC"
        "cher.example",
        Name::DnsName, false, "b\\xC3\\xBCcher.example");
    row("right-to-left override",
        "DNS:a\xE2\x80\xAE"
        "b.example",
        Name::DnsName, false,
        "a\\xE2\\x80\\xAE"
        "b.example");
    row("NUL", QByteArray("DNS:a.example\0.evil.example", 27), Name::DnsName, false,
        "a.example\\x00.evil.example");
    row("blanks", "DNS:a.example   .evil.example", Name::DnsName, false,
        "a.example\\x20\\x20\\x20.evil.example");
    row("line feed", "DNS:a.example\n", Name::DnsName, false, "a.example\\x0A");
    row("escape within the name", "DNS:a\\x00.example", Name::DnsName, false, "a\\x5Cx00.example");
    row("HTML", "DNS:<b>a.example</b>", Name::DnsName, false, "\\x3Cb\\x3Ea.example\\x3C/b\\x3E");
    row("empty host", "DNS:", Name::DnsName, false, "");

    row("IPv4", "IP:C0000201", Name::IpAddress, true, "192.0.2.1");
    row("unspecified IPv4", "IP:00000000", Name::IpAddress, true, "0.0.0.0");
    row("IPv6", "IP:20010DB8000000000000000000000001", Name::IpAddress, true, "2001:db8::1");
    row("mapped IPv4", "IP:00000000000000000000FFFFC0000201", Name::IpAddress, true,
        "::ffff:192.0.2.1");
    row("address as text", "IP:3A3A31", Name::IpAddress, false, "\\x3A\\x3A\\x31");
    row("empty address", "IP:", Name::IpAddress, false, "");

    row("mail", "MAIL:someone@example.com", Name::Email, true, "someone@example.com");
    row("mail with a name", "MAIL:Bank <x@example.com>", Name::Email, false,
        "Bank\\x20\\x3Cx@example.com\\x3E");
    row("mail without a mailbox", "MAIL:@example.com", Name::Email, false, "@example.com");
    row("mail of two hosts", "MAIL:a@bank.example@evil.example", Name::Email, false,
        "a@bank.example@evil.example");
    row("mail without a host", "MAIL:someone", Name::Email, false, "someone");
    row("mail with NUL", QByteArray("MAIL:a\0@b.example", 17), Name::Email, false,
        "a\\x00@b.example");

    row("URI", "URI:https://example.com/a?b#c", Name::Uri, true, "https://example.com/a?b#c");
    row("URN", "URI:urn:example:a", Name::Uri, true, "urn:example:a");
    row("URI with a blank", "URI:https://a.example/ .evil.example", Name::Uri, false,
        "https://a.example/\\x20.evil.example");
    row("URI without a scheme", "URI://a.example", Name::Uri, false, "//a.example");
    row("URI with nothing but a scheme", "URI:https:", Name::Uri, false, "https:");
    row("URI with an empty scheme", "URI::x", Name::Uri, false, ":x");
    row("URI whose scheme is a number", "URI:1a:x", Name::Uri, false, "1a:x");
    row("URI with an odd scheme", "URI:a_b:x", Name::Uri, false, "a_b:x");

    row("directory name", "DIR:x", Name::Other, false, "");
    row("registered id", "ID:2A03", Name::Other, false, "");
    row("service", "SRV:_https.example.com", Name::Other, false, "");
}

void AlternativeNamesTest::nameIsShown()
{
    QFETCH(QByteArray, name);
    QFETCH(int, kind);
    QFETCH(bool, isValid);
    QFETCH(QString, text);
    const QVector<AlternativeName> names = namesOf(certificateFor({name}));
    QCOMPARE(names.size(), 1);
    QCOMPARE(int(names[0].kind), kind);
    QCOMPARE(names[0].text, text);
    QCOMPARE(names[0].isValid, isValid);
    QCOMPARE(names[0].address.isNull(), !(isValid && kind == AlternativeName::IpAddress));
    if (!names[0].address.isNull())
        QCOMPARE(names[0].address, QHostAddress(text));
}

void AlternativeNamesTest::namesKeepTheirOrder()
{
    const QVector<AlternativeName> names = namesOf(
        certificateFor({"DNS:b.example", "DIR:x", "IP:C0000201", "DNS:a.example", "CN:c.example"}));
    QStringList texts;
    for (const AlternativeName& name : names)
        texts += name.text;
    QCOMPARE(texts, QStringList({QStringLiteral("b.example"), QString(),
                                 QStringLiteral("192.0.2.1"), QStringLiteral("a.example")}));
}

void AlternativeNamesTest::everyOctetIsShownSafely()
{
    for (int octet = 0; octet < 256; ++octet) {
        const QByteArray name = QByteArray("a:b") + char(octet) + "c@d.example";
        for (const char* kind : {"DNS:", "MAIL:", "URI:"}) {
            const QVector<AlternativeName> names = namesOf(certificateFor({kind + name}));
            QCOMPARE(names.size(), 1);
            QVERIFY(isShowable(names[0].text));
            QCOMPARE(octetsOf(names[0].text), name);
            // What is not shown as it is, is not valid.
            QVERIFY(!names[0].isValid || !names[0].text.contains(u'\\'));
        }
    }
}

void AlternativeNamesTest::validHostNamesMatch_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char* name : {"a.example",
                             "A.Example",
                             "*.a.example",
                             "*.example",
                             "*",
                             "*.*.example",
                             "a*.b.example",
                             "a_b",
                             "-",
                             "a.example.",
                             "a..b",
                             ".a",
                             "",
                             "1",
                             "1.2.3.4",
                             "a.1",
                             "a.0x1",
                             "a.0xg",
                             "*.b.1",
                             "xn--a.example",
                             "a b.example",
                             "a,b.example",
                             "a.b.c.d.e.f",
                             "a.-",
                             "0x",
                             "a.0x"})
        QTest::newRow(name) << QByteArray(name);
    for (const int length : {62, 63, 64}) {
        const QByteArray label(length, 'a');
        QTest::addRow("label of %d", length) << label + ".example";
        QTest::addRow("label of %d behind a wildcard", length) << "*." + label + ".example";
    }
    for (const int length : {251, 252, 253, 254, 255}) {
        const QByteArray name = QByteArray("a.").repeated(126).left(length - 4) + ".abc";
        QTest::addRow("name of %d", length) << name;
        QTest::addRow("wildcard and name of %d", length) << "*" + name.mid(1);
    }
}

void AlternativeNamesTest::validHostNamesMatch()
{
    QFETCH(QByteArray, name);
    const X509Handle x509 = certificateFor({"DNS:" + name});
    const SslCertificate certificate(x509.get(), false);
    const AlternativeName shown = certificate.alternativeNames().value(0);
    QString host = shown.text;
    if (host.startsWith(u'*'))
        host.replace(0, 1, u'w');
    QCOMPARE(certificate.matchesHost(host), shown.isValid);
}

void AlternativeNamesTest::addressesOfOtherLengthsAreNotValid()
{
    for (int length = 0; length <= 40; ++length) {
        const X509Handle x509 = certificateFor({"IP:" + QByteArray(length, '\x31').toHex()});
        const SslCertificate certificate(x509.get(), false);
        const AlternativeName name = certificate.alternativeNames().value(0);
        QCOMPARE(name.kind, AlternativeName::IpAddress);
        QCOMPARE(name.isValid, length == 4 || length == 16);
        if (name.isValid)
            QVERIFY(certificate.matchesHost(name.text) && name.text == name.address.toString());
        else
            QCOMPARE(name.text, QStringLiteral("\\x31").repeated(length));
    }
}

void AlternativeNamesTest::copiesAndOtherObjectsGiveTheSame()
{
    const X509Handle x509 = certificateFor({"DNS:a.example", "IP:C0000201", "MAIL:a\nb"});
    const SslCertificate certificate(x509.get(), false);
    const SslCertificate copy(certificate);
    SslCertificate assigned;
    assigned = copy;
    QCOMPARE(assigned.alternativeNames(), certificate.alternativeNames());
    QCOMPARE(assigned.alternativeNames().size(), 3);
    QVERIFY(assigned.matchesHost(QStringLiteral("a.example")));
    assigned.clear();
    QVERIFY(assigned.alternativeNames().isEmpty());
    QVERIFY(!assigned.matchesHost(QStringLiteral("a.example")));
}

void AlternativeNamesTest::namesAreComparedByAll()
{
    const QVector<AlternativeName> names =
        namesOf(certificateFor({"DNS:a.example", "DNS:A.example", "MAIL:a.example", "IP:C0000201",
                                "DNS:192.0.2.1", "DNS:a.example", "IP:C0000202"}));
    QCOMPARE(names.size(), 7);
    for (int i = 0; i < names.size(); ++i) {
        for (int j = 0; j < names.size(); ++j) {
            const bool isSame = i % 5 == 0 && j % 5 == 0; // the first and the sixth
            QCOMPARE(names[i] == names[j], isSame || i == j);
            QCOMPARE(names[i] != names[j], !isSame && i != j);
        }
    }
}

void AlternativeNamesTest::hugeNamesAreShownInFull()
{
    const QByteArray name(64 * 1024, '\xC3');
    const QVector<AlternativeName> names =
        namesOf(certificateFor({"DNS:" + name, "IP:" + name.toHex(), "URI:x:" + name.toHex()}));
    QCOMPARE(names.size(), 3);
    QCOMPARE(names[0].text, QStringLiteral("\\xC3").repeated(name.size()));
    QCOMPARE(names[1].text, names[0].text);
    QCOMPARE(names[2].text, QStringLiteral("x:") + QString::fromLatin1(name.toHex()));
    QVERIFY(names[2].isValid);
}

void AlternativeNamesTest::manyNamesAreRead()
{
    constexpr int COUNT = 100000;
    QByteArray encoded;
    for (int i = 0; i < COUNT; ++i)
        encoded += test::encodedName("DNS:a" + QByteArray::number(i));
    const X509Handle x509 =
        test::certificateOf({}, test::der::alternativeNamesExtension(test::der::sequence(encoded)));
    const QVector<AlternativeName> names = namesOf(x509);
    QCOMPARE(names.size(), COUNT);
    QCOMPARE(names.last().text, QStringLiteral("a99999"));
}

QTEST_GUILESS_MAIN(AlternativeNamesTest)
#include "tst_alternativenames.moc"

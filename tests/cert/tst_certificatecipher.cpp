// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/OpenSslCommand.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <QtTest/QtTest>

using vela::CertCipher;
using vela::SslCertificate;

namespace {

const char* const FULL_DESCRIPTION = "AES256-SHA SSLv3 Kx=RSA Au=RSA Enc=AES(256) Mac=SHA1 export";

CertCipher parsed(const char* description)
{
    SslCertificate certificate;
    certificate.setCipherDescription(QString::fromLatin1(description));
    return certificate.cipher();
}

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

} // namespace

class CertificateCipherTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultRecordIsEmpty();
    void descriptionFillsTheRecord();
    void wordsAreTakenByPositionAndLabel_data();
    void wordsAreTakenByPositionAndLabel();
    void exportWordIsComparedWithoutCase_data();
    void exportWordIsComparedWithoutCase();
    void wordListIsTakenAsItIs();
    void descriptionReplacesThePreviousOne();
    void descriptionKeepsTheKeySize();
    void setCipherTouchesThreeMembersOnly();
    void fiveArgumentConstructorLetsTheDescriptionWin();
    void fiveArgumentConstructorWithEmptyDescriptionDropsItsArguments();
    void fiveArgumentConstructorDoesNotOwn();
    void textNamesEveryItem();
    void textLeavesOutEmptyItems_data();
    void textLeavesOutEmptyItems();
    void textOfTheCommonExample();
    void separatorMayBeAnything_data();
    void separatorMayBeAnything();
    void realDescriptionsAreUnderstood();
};

void CertificateCipherTest::defaultRecordIsEmpty()
{
    const SslCertificate certificate;
    const CertCipher& cipher = certificate.cipher();
    QVERIFY(cipher.protocol.isEmpty());
    QVERIFY(cipher.name.isEmpty());
    QVERIFY(cipher.encryption.isEmpty());
    QCOMPARE(cipher.bits, 0);
    QVERIFY(cipher.authentication.isEmpty());
    QCOMPARE(cipher.authenticationBits, 0);
    QVERIFY(cipher.mac.isEmpty());
    QVERIFY(cipher.keyExchange.isEmpty());
    QVERIFY(!cipher.exportable);
    QVERIFY(certificate.cipherDescription(text(", ")).isEmpty());
}

void CertificateCipherTest::descriptionFillsTheRecord()
{
    const CertCipher cipher = parsed(FULL_DESCRIPTION);
    QCOMPARE(cipher.name, text("AES256-SHA"));
    QCOMPARE(cipher.protocol, text("SSLv3"));
    QCOMPARE(cipher.keyExchange, text("RSA"));
    QCOMPARE(cipher.authentication, text("RSA"));
    QCOMPARE(cipher.encryption, text("AES(256)"));
    QCOMPARE(cipher.mac, text("SHA1"));
    QVERIFY(cipher.exportable);
    QCOMPARE(cipher.bits, 0);
}

void CertificateCipherTest::wordsAreTakenByPositionAndLabel_data()
{
    QTest::addColumn<QByteArray>("description");
    QTest::addColumn<QStringList>("fields"); // name, protocol, Kx, Au, Enc, Mac
    const auto row = [](const char* name, const char* description, const char* fields) {
        QTest::newRow(name) << QByteArray(description) << text(fields).split(QLatin1Char('|'));
    };
    row("empty", "", "|||||");
    row("blanks only", "    ", "|||||");
    row("one word", "A", "A|||||");
    row("runs of blanks", "  A   B  Kx=C ", "A|B|C|||");
    row("tabs do not separate", "A\tB C", "A\tB|C||||");
    row("line feed at the end is trimmed", "A B Kx=C Au=D Enc=E Mac=F\n", "A|B|C|D|E|F");
    row("line feed before the next word stays", "A\nB C", "A\nB|C||||");
    row("missing word shifts the rest", "A B Au=D Enc=E Mac=F", "A|B|Au=D|Enc=E|Mac=F|");
    row("no label in the word", "A B x=C y=D", "A|B|x=C|y=D||");
    row("label without equals sign", "A B KxC Au", "A|B|KxC|Au||");
    row("label in another case", "A B kx=C AU=D", "A|B|kx=C|AU=D||");
    row("label inside the word", "A B zzKxzz=C", "A|B|C|||");
    row("equals sign before the label does not count", "A B x=Kx", "A|B|x=Kx|||");
    row("equals signs around the label", "A B x=Kx=C", "A|B|C|||");
    row("later equals signs stay", "A B Kx=C=D", "A|B|C=D|||");
    row("empty value", "A B Kx= Au=D", "A|B||D||");
    row("name and protocol keep labels", "Kx=A Au=B", "Kx=A|Au=B||||");
    row("second label does not count", "A B KxKx=C", "A|B|C|||");
}

void CertificateCipherTest::wordsAreTakenByPositionAndLabel()
{
    QFETCH(QByteArray, description);
    QFETCH(QStringList, fields);

    const CertCipher cipher = parsed(description.constData());
    QCOMPARE(QStringList({cipher.name, cipher.protocol, cipher.keyExchange, cipher.authentication,
                          cipher.encryption, cipher.mac}),
             fields);
    QVERIFY(!cipher.exportable);
    QCOMPARE(cipher.bits, 0);
}

void CertificateCipherTest::exportWordIsComparedWithoutCase_data()
{
    QTest::addColumn<QByteArray>("description");
    QTest::addColumn<bool>("exportable");
    QTest::newRow("lower case") << QByteArray("A B C D E F export") << true;
    QTest::newRow("upper case") << QByteArray("A B C D E F EXPORT") << true;
    QTest::newRow("mixed, line feed") << QByteArray("A B C D E F Export\n") << true;
    QTest::newRow("longer word") << QByteArray("A B C D E F exported") << false;
    QTest::newRow("too early") << QByteArray("A B C D E export") << false;
    QTest::newRow("too late") << QByteArray("A B C D E F G export") << false;
}

void CertificateCipherTest::exportWordIsComparedWithoutCase()
{
    QFETCH(QByteArray, description);
    QTEST(parsed(description.constData()).exportable, "exportable");
}

void CertificateCipherTest::wordListIsTakenAsItIs()
{
    SslCertificate certificate;
    certificate.setCipherDescription(
        QStringList{text(" A "), QString(), text("Kx = C D "), text("Au=D")});
    QCOMPARE(certificate.cipher().name, text("A"));
    QVERIFY(certificate.cipher().protocol.isEmpty());
    QCOMPARE(certificate.cipher().keyExchange, text("C D"));
    QCOMPARE(certificate.cipher().authentication, text("D"));
}

void CertificateCipherTest::descriptionReplacesThePreviousOne()
{
    SslCertificate certificate;
    certificate.setCipher(text("old"), 256, text("old"));
    certificate.setCipherDescription(text(FULL_DESCRIPTION));
    certificate.setCipherDescription(text("A"));
    const CertCipher& cipher = certificate.cipher();
    QCOMPARE(cipher.name, text("A"));
    QCOMPARE(cipher.bits, 0);
    QVERIFY(cipher.protocol.isEmpty());
    QVERIFY(cipher.keyExchange.isEmpty());
    QVERIFY(cipher.authentication.isEmpty());
    QVERIFY(cipher.encryption.isEmpty());
    QVERIFY(cipher.mac.isEmpty());
    QVERIFY(!cipher.exportable);
}

void CertificateCipherTest::descriptionKeepsTheKeySize()
{
    test::CertificateSpec spec;
    spec.keyType = test::KeyType::Rsa2048;
    const test::Identity identity = test::makeIdentity(spec);
    SslCertificate certificate(identity.x509(), false);
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
    certificate.setCipherDescription(text(FULL_DESCRIPTION));
    QCOMPARE(certificate.cipher().authenticationBits, 2048);
}

void CertificateCipherTest::setCipherTouchesThreeMembersOnly()
{
    SslCertificate certificate;
    certificate.setCipherDescription(text(FULL_DESCRIPTION));
    certificate.setCipher(text("name"), 128, text("version"));
    const CertCipher& cipher = certificate.cipher();
    QCOMPARE(cipher.name, text("name"));
    QCOMPARE(cipher.bits, 128);
    QCOMPARE(cipher.protocol, text("version"));
    QCOMPARE(cipher.keyExchange, text("RSA"));
    QCOMPARE(cipher.authentication, text("RSA"));
    QCOMPARE(cipher.encryption, text("AES(256)"));
    QCOMPARE(cipher.mac, text("SHA1"));
    QVERIFY(cipher.exportable);
}

void CertificateCipherTest::fiveArgumentConstructorLetsTheDescriptionWin()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    const SslCertificate certificate(identity.x509(), text(FULL_DESCRIPTION), text("ignored"), 256,
                                     text("ignored"));
    QCOMPARE(certificate.x509(), static_cast<const X509*>(identity.x509()));
    QCOMPARE(certificate.cipher().name, text("AES256-SHA"));
    QCOMPARE(certificate.cipher().protocol, text("SSLv3"));
    QCOMPARE(certificate.cipher().bits, 0);
    // Not the public-key algorithm: the description is parsed after the certificate was set.
    QCOMPARE(certificate.cipher().authentication, text("RSA"));
}

void CertificateCipherTest::fiveArgumentConstructorWithEmptyDescriptionDropsItsArguments()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    const SslCertificate certificate(identity.x509(), QString(), text("name"), 256,
                                     text("version"));
    QVERIFY(certificate.cipher().name.isEmpty());
    QVERIFY(certificate.cipher().protocol.isEmpty());
    QCOMPARE(certificate.cipher().bits, 0);
    QVERIFY(certificate.cipher().authentication.isEmpty());
}

void CertificateCipherTest::fiveArgumentConstructorDoesNotOwn()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    {
        const SslCertificate certificate(identity.x509(), QString(), QString(), 0, QString());
    }
    QVERIFY(!identity.der().isEmpty());
}

void CertificateCipherTest::textNamesEveryItem()
{
    SslCertificate certificate;
    certificate.setCipherDescription(text("A B Kx=C Au=D Enc=E Mac=F export"));
    certificate.setCipher(text("name"), 40, text("version"));
    QCOMPARE(certificate.cipherDescription(text(", ")),
             text("Cipher=name, 40 bit, Protocol=version, Key Exchange=C, Authentication=D, "
                  "Encryption=E, MAC=F, export"));
}

void CertificateCipherTest::textLeavesOutEmptyItems_data()
{
    QTest::addColumn<QByteArray>("description");
    QTest::addColumn<int>("bits");
    QTest::addColumn<QString>("expected");
    QTest::newRow("nothing") << QByteArray() << 0 << QString();
    QTest::newRow("negative bits") << QByteArray() << -1 << QString();
    QTest::newRow("bits alone") << QByteArray() << 1 << text("1 bit");
    QTest::newRow("gap") << QByteArray("A B Kx= Au=D Enc= Mac=F") << 0
                         << text("Authentication=D, MAC=F");
    QTest::newRow("first item empty")
        << QByteArray("A B Kx=C") << 56 << text("56 bit, Key Exchange=C");
}

void CertificateCipherTest::textLeavesOutEmptyItems()
{
    QFETCH(QByteArray, description);
    QFETCH(int, bits);

    SslCertificate certificate;
    certificate.setCipherDescription(QString::fromLatin1(description));
    certificate.setCipher(QString(), bits, QString());
    QTEST(certificate.cipherDescription(text(", ")), "expected");
}

void CertificateCipherTest::textOfTheCommonExample()
{
    SslCertificate certificate;
    certificate.setCipherDescription(text("AES256-SHA SSLv3 Kx=RSA Au=RSA Enc=AES(256) Mac=SHA1"));
    QCOMPARE(certificate.cipherDescription(text(", ")),
             text("Cipher=AES256-SHA, Protocol=SSLv3, Key Exchange=RSA, Authentication=RSA, "
                  "Encryption=AES(256), MAC=SHA1"));
}

void CertificateCipherTest::separatorMayBeAnything_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("expected");
    QTest::newRow("null") << QString() << text("Cipher=AProtocol=B");
    QTest::newRow("line feed") << text("\n") << text("Cipher=A\nProtocol=B");
    QTest::newRow("placeholder") << text("%1") << text("Cipher=A%1Protocol=B");
}

void CertificateCipherTest::separatorMayBeAnything()
{
    QFETCH(QString, separator);
    SslCertificate certificate;
    certificate.setCipherDescription(text("A B"));
    QTEST(certificate.cipherDescription(separator), "expected");
}

void CertificateCipherTest::realDescriptionsAreUnderstood()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    const QList<QByteArray> lines =
        test::runOpenSsl({text("ciphers"), text("-v"), text("ALL:COMPLEMENTOFALL")}).split('\n');
    int understood = 0;
    for (const QByteArray& line : lines) {
        if (line.isEmpty())
            continue;
        const QList<QByteArray> words = line.simplified().split(' ');
        const CertCipher cipher = parsed(line.constData());
        const QString again = QStringList{cipher.name,
                                          cipher.protocol,
                                          text("Kx=") + cipher.keyExchange,
                                          text("Au=") + cipher.authentication,
                                          text("Enc=") + cipher.encryption,
                                          text("Mac=") + cipher.mac}
                                  .join(QLatin1Char(' '));
        QCOMPARE(again, QString::fromLatin1(words.mid(0, 6).join(' ')));
        QCOMPARE(cipher.exportable, words.value(6) == "export");
        QVERIFY(!cipher.keyExchange.contains(QLatin1Char('=')));
        ++understood;
    }
    QVERIFY2(understood > 20, "openssl listed hardly any cipher");
}

QTEST_GUILESS_MAIN(CertificateCipherTest)
#include "tst_certificatecipher.moc"

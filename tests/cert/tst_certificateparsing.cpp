// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/DerWriter.h"
#include "tests/common/ErrorQueue.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtTest/QtTest>

#include <vector>

using vela::SslCertificate;
using vela::SslCertificatePtr;

namespace {

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

SslCertificatePtr parse(const QByteArray& pem)
{
    return SslCertificatePtr(new SslCertificate(pem.constData(), pem.size()));
}

} // namespace

class CertificateParsingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void pemTextIsParsed();
    void firstOfSeveralPemBlocksIsTaken();
    void textThatIsNoCertificateGivesAnEmptyObject_data();
    void textThatIsNoCertificateGivesAnEmptyObject();
    void truncatedPemGivesAnEmptyObject();
    void keyThatTakesForEverIsNotDecoded();
    void failuresLeaveTheErrorQueueAsItWas();
};

void CertificateParsingTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void CertificateParsingTest::pemTextIsParsed()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    const SslCertificatePtr certificate = parse(identity.certificatePem());
    QVERIFY(!certificate->isEmpty());
    QCOMPARE(certificate->subjectCommonName(), text("localhost"));
    QVERIFY(*certificate == SslCertificate(identity.x509(), false));
}

void CertificateParsingTest::firstOfSeveralPemBlocksIsTaken()
{
    test::CertificateSpec spec;
    spec.commonName = text("first");
    const test::Identity first = test::makeIdentity(spec);
    const test::Identity second = test::makeIdentity(test::CertificateSpec());
    const SslCertificatePtr certificate =
        parse("a comment\n" + first.keyPem() + first.certificatePem() + second.certificatePem());
    QCOMPARE(certificate->subjectCommonName(), text("first"));
}

void CertificateParsingTest::textThatIsNoCertificateGivesAnEmptyObject_data()
{
    const test::Identity identity = test::makeIdentity(test::CertificateSpec());
    QByteArray damagedBase64 = identity.certificatePem();
    damagedBase64[damagedBase64.size() / 2] = '!';
    QByteArray damagedDer = identity.certificatePem();
    damagedDer[damagedDer.indexOf('\n') + 2] = 'B';

    QTest::addColumn<QByteArray>("pem");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("no certificate");
    QTest::newRow("zeros") << QByteArray(1000, '\0');
    QTest::newRow("DER") << identity.der();
    QTest::newRow("private key") << identity.keyPem();
    QTest::newRow("begin line alone") << QByteArray("-----BEGIN CERTIFICATE-----\n");
    QTest::newRow("nothing between the lines")
        << QByteArray("-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n");
    QTest::newRow("damaged base64") << damagedBase64;
    QTest::newRow("damaged DER") << damagedDer;
}

void CertificateParsingTest::textThatIsNoCertificateGivesAnEmptyObject()
{
    QFETCH(QByteArray, pem);
    QVERIFY(parse(pem)->isEmpty());
    QVERIFY(SslCertificate(static_cast<const char*>(nullptr), 0).isEmpty());
}

void CertificateParsingTest::truncatedPemGivesAnEmptyObject()
{
    const QByteArray pem = test::makeIdentity(test::CertificateSpec()).certificatePem();
    const int endOfLastLine = pem.size() - 1;
    for (int length = 0; length < endOfLastLine; ++length) {
        // Memory of exactly this size: what lies behind it must not be read.
        const std::vector<char> memory(pem.cbegin(), pem.cbegin() + length);
        QVERIFY2(SslCertificate(memory.data(), length).isEmpty(),
                 qPrintable(text("%1").arg(length)));
    }
    QVERIFY(!SslCertificate(pem.constData(), endOfLastLine).isEmpty());
}

void CertificateParsingTest::keyThatTakesForEverIsNotDecoded()
{
    test::der::Certificate one;
    one.key = test::der::unendingKey();
    const QByteArray pem = test::toPem(test::der::encode(one));
    const SslCertificate certificate(pem.constData(), pem.size());
    QVERIFY(!certificate.isEmpty());
    QCOMPARE(certificate.subjectCommonName(), text("subject"));
    QCOMPARE(certificate.cipher().authentication, text("id-ecPublicKey"));
    QCOMPARE(certificate.cipher().authenticationBits, 0);
}

void CertificateParsingTest::failuresLeaveTheErrorQueueAsItWas()
{
    test::leaveOpenSslErrors();
    const unsigned long oldest = ERR_peek_error();
    const unsigned long newest = ERR_peek_last_error();
    QVERIFY(oldest != 0);

    QVERIFY(parse("no certificate")->isEmpty());
    QVERIFY(!parse(test::makeIdentity(test::CertificateSpec()).certificatePem())->isEmpty());
    QCOMPARE(ERR_peek_error(), oldest);
    QCOMPARE(ERR_peek_last_error(), newest);
    ERR_clear_error();
}

QTEST_GUILESS_MAIN(CertificateParsingTest)
#include "tst_certificateparsing.moc"

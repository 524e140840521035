// SPDX-License-Identifier: BSD-3-Clause

/*
    Certificates as fuzzers and parser tests have them: every file goes through the library, and
    what an engine parses must come out as an independent reading of the same file says.
*/

#include "tests/cert/CertificateCorpora.h"
#include "tests/common/PemFile.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtCore/QFile>
#include <QtTest/QtTest>

using vela::SslCertificate;

namespace {

//! The manifest writes the sign and, after 35 bytes, breaks off with a backslash.
void compareSerial(const QByteArray& serial, QByteArray expected)
{
    const QByteArray hex = serial.toHex().toUpper();
    if (expected.startsWith('-'))
        expected.remove(0, 1);
    if (!expected.endsWith('\\')) {
        QCOMPARE(hex, expected);
        return;
    }
    expected.chop(1);
    QCOMPARE(hex.left(expected.size()), expected);
}

//! Calls everything that reads a certificate, for the sanitizers' sake, and checks what must hold.
void readEverything(const SslCertificate& certificate)
{
    QVERIFY(!certificate.isEmpty());
    QCOMPARE(certificate.sha1Digest().size(), 20);
    QCOMPARE(certificate.md5Digest().size(), 16);
    QCOMPARE(SslCertificate::sha1Digest(certificate.x509()), certificate.sha1Digest());
    QCOMPARE(SslCertificate::md5Digest(certificate.x509()), certificate.md5Digest());
    QVERIFY(certificate.validFrom().isValid());
    QVERIFY(certificate.validUntil().isValid());
    QVERIFY(!certificate.cipher().authentication.isEmpty());
    QVERIFY(certificate.cipher().authenticationBits >= 0);
    QCOMPARE(certificate.issuerString().isEmpty(), certificate.issuerAttributes().isEmpty());
    QCOMPARE(certificate.subjectString().isEmpty(), certificate.subjectAttributes().isEmpty());
    const QList<QString> keys = certificate.subjectAttributes().keys();
    for (const QString& key : keys) {
        if (key == key.toUpper())
            QCOMPARE(certificate.subjectAttribute(key), certificate.subjectAttributes().value(key));
    }
    certificate.version();
}

} // namespace

class CertificateCorporaTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void corporaAreComplete_data();
    void corporaAreComplete();
    void fileIsReadAsTheManifestSays_data();
    void fileIsReadAsTheManifestSays();
    void referenceEngineIsLenientOnlyWhereExpected_data();
    void referenceEngineIsLenientOnlyWhereExpected();
    void truncatedFilesAreHarmless();
};

void CertificateCorporaTest::corporaAreComplete_data()
{
    QTest::addColumn<QByteArray>("corpus");
    QTest::addColumn<int>("count");
    QTest::newRow("der-openssl-fuzz-x509") << QByteArray("der-openssl-fuzz-x509") << 849;
    QTest::newRow("der-boringssl-fuzz-cert") << QByteArray("der-boringssl-fuzz-cert") << 148;
    QTest::newRow("der-boringssl-parse-unit") << QByteArray("der-boringssl-parse-unit") << 71;
}

void CertificateCorporaTest::corporaAreComplete()
{
    QFETCH(QByteArray, corpus);
    QFETCH(int, count);

    int found = 0;
    const QList<test::ManifestLine> lines = test::readManifest();
    for (const test::ManifestLine& line : lines) {
        if (line.corpus != corpus)
            continue;
        QVERIFY2(QFile::exists(test::corpusFileName(corpus, line.file)), line.file.constData());
        ++found;
    }
    QCOMPARE(found, count);
}

void CertificateCorporaTest::fileIsReadAsTheManifestSays_data()
{
    QTest::addColumn<QByteArray>("corpus");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("isParsed");
    QTest::addColumn<QByteArray>("sha1");
    QTest::addColumn<QByteArray>("serial");
    const QList<test::ManifestLine> lines = test::readManifest();
    for (const test::ManifestLine& line : lines) {
        if (test::leniencyFor(line.file))
            continue; // Has a test of its own.
        QTest::newRow(QByteArray(line.corpus + '/' + line.file).constData())
            << line.corpus << line.file << line.isParsed << line.sha1 << line.serial;
    }
}

void CertificateCorporaTest::fileIsReadAsTheManifestSays()
{
    QFETCH(QByteArray, corpus);
    QFETCH(QByteArray, file);
    QFETCH(bool, isParsed);
    QFETCH(QByteArray, sha1);
    QFETCH(QByteArray, serial);

    const QByteArray pem = test::toPem(test::contentOf(test::corpusFileName(corpus, file)));
    SslCertificate certificate(pem.constData(), pem.size());
    QCOMPARE(!certificate.isEmpty(), isParsed);
    QCOMPARE(ERR_peek_error(), 0UL);
    if (!isParsed)
        return;

    readEverything(certificate);
    QCOMPARE(certificate.sha1Digest().toHex(':').toUpper(), sha1);
    compareSerial(certificate.serialNumber(), serial);

    const SslCertificate copy(certificate);
    readEverything(copy);
    SslCertificate assigned;
    assigned = certificate;
    readEverything(assigned);
    QVERIFY(copy == certificate);
    QVERIFY(assigned == certificate);
    QCOMPARE(copy.serialNumber(), certificate.serialNumber());
    QCOMPARE(ERR_peek_error(), 0UL);
}

void CertificateCorporaTest::referenceEngineIsLenientOnlyWhereExpected_data()
{
    QTest::addColumn<QByteArray>("corpus");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("reason");
    const QList<test::ManifestLine> lines = test::readManifest();
    for (const test::ManifestLine& line : lines) {
        for (const test::Leniency& leniency : test::referenceEngineLeniencies()) {
            if (line.file == leniency.file)
                QTest::newRow(leniency.file)
                    << line.corpus << line.file << QByteArray(leniency.reason);
        }
    }
}

void CertificateCorporaTest::referenceEngineIsLenientOnlyWhereExpected()
{
    QFETCH(QByteArray, corpus);
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, reason);

    const QByteArray pem = test::toPem(test::contentOf(test::corpusFileName(corpus, file)));
    const SslCertificate certificate(pem.constData(), pem.size());
    if (!test::leniencyFor(file)) {
        QVERIFY(certificate.isEmpty());
        return;
    }
    qInfo("parsed by this engine, rejected by newer ones: %s", reason.constData());
    readEverything(certificate);
    readEverything(SslCertificate(certificate));
}

void CertificateCorporaTest::truncatedFilesAreHarmless()
{
    int cut = 0;
    const QList<test::ManifestLine> lines = test::readManifest();
    for (const test::ManifestLine& line : lines) {
        const QByteArray der = test::contentOf(test::corpusFileName(line.corpus, line.file));
        for (int eighth = 1; eighth < 8; ++eighth) {
            const QByteArray pem = test::toPem(der.left(der.size() * eighth / 8));
            const SslCertificate certificate(pem.constData(), pem.size());
            // Some files carry octets behind the certificate and survive the cut.
            if (!certificate.isEmpty())
                readEverything(certificate);
            else
                ++cut;
        }
    }
    QVERIFY(cut > lines.size());
}

QTEST_GUILESS_MAIN(CertificateCorporaTest)
#include "tst_certificatecorpora.moc"

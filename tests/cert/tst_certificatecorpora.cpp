// SPDX-License-Identifier: BSD-3-Clause

/*
    Certificates as fuzzers and parser tests have them: every file goes through the library, and
    what an engine parses must come out as an independent reading of the same file says.
*/

#include <Ferrule/SslCertificate.h>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtCore/QFile>
#include <QtTest/QtTest>

using vela::SslCertificate;

namespace {

struct ManifestLine
{
    QByteArray corpus;
    QByteArray file;
    bool isParsed = false;
    QByteArray sha1;
    QByteArray serial;
};

//! A file that the reference engine parses although the manifest's engine rejects it.
struct Leniency
{
    const char* file;
    const char* reason;
};

const Leniency REFERENCE_ENGINE_LENIENCIES[] = {
    {"3082fccd053176deff60", "an issuer value of a type that is not for names"},
    {"adae505f8265dd98c33e", "an issuer value of a type that is not for names"},
    {"c300419ab14525d6ff5a", "an issuer value of a type that is not for names"},
    {"cca1f2d61c71e5b4c5ea", "a subject value of a type that is not for names"},
    {"serial_not_minimal.der", "a serial number with superfluous leading octets"},
};

QList<ManifestLine> readManifest()
{
    QFile file(QStringLiteral(CORPORA_MANIFEST));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", CORPORA_MANIFEST, qPrintable(file.errorString()));
    file.readLine();
    QList<ManifestLine> lines;
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().replace('\n', "").split('\t');
        lines.append({fields.value(0), fields.value(1), fields.value(4) == "parse", fields.value(7),
                      fields.value(8)});
    }
    return lines;
}

QByteArray readCorpusFile(const QByteArray& corpus, const QByteArray& name)
{
    QFile file(QStringLiteral(CORPORA_DIRECTORY) + QLatin1Char('/') + QString::fromLatin1(corpus)
               + QLatin1Char('/') + QString::fromLatin1(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray toPem(const QByteArray& der)
{
    const QByteArray base64 = der.toBase64();
    QByteArray pem = "-----BEGIN CERTIFICATE-----\n";
    for (int i = 0; i < base64.size(); i += 64)
        pem += base64.mid(i, 64) + '\n';
    return pem + "-----END CERTIFICATE-----\n";
}

const char* leniencyFor(const QByteArray& file)
{
    if (SSLeay() >= 0x10100000L)
        return nullptr;
    for (const Leniency& leniency : REFERENCE_ENGINE_LENIENCIES) {
        if (file == leniency.file)
            return leniency.reason;
    }
    return nullptr;
}

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
    const QList<ManifestLine> lines = readManifest();
    for (const ManifestLine& line : lines) {
        if (line.corpus != corpus)
            continue;
        QVERIFY2(QFile::exists(QStringLiteral(CORPORA_DIRECTORY "/")
                               + QString::fromLatin1(corpus + '/' + line.file)),
                 line.file.constData());
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
    const QList<ManifestLine> lines = readManifest();
    for (const ManifestLine& line : lines) {
        if (leniencyFor(line.file))
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

    const QByteArray pem = toPem(readCorpusFile(corpus, file));
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
    const QList<ManifestLine> lines = readManifest();
    for (const ManifestLine& line : lines) {
        for (const Leniency& leniency : REFERENCE_ENGINE_LENIENCIES) {
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

    const QByteArray pem = toPem(readCorpusFile(corpus, file));
    const SslCertificate certificate(pem.constData(), pem.size());
    if (!leniencyFor(file)) {
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
    const QList<ManifestLine> lines = readManifest();
    for (const ManifestLine& line : lines) {
        const QByteArray der = readCorpusFile(line.corpus, line.file);
        for (int eighth = 1; eighth < 8; ++eighth) {
            const QByteArray pem = toPem(der.left(der.size() * eighth / 8));
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

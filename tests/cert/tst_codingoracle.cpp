// SPDX-License-Identifier: BSD-3-Clause

/*
    The library beside the `openssl` command: on the same files both must write the same octets, and
    in the same text both must find the same certificates.

    The command runs in a session without a terminal, because OpenSSL asks the terminal for the
    password of a block that is marked as encrypted.
*/

#include "support/OpenSslHandles.h"
#include "tests/cert/CertificateCorpora.h"
#include "tests/common/OpenSslCommand.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificateChain.h>

#include <openssl/err.h>

#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtTest/QtTest>

#include <cstring>
#include <vector>

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::X509Handle;

namespace {

const char BEGIN_LINE[] = "-----BEGIN CERTIFICATE-----\n";
const char END_LINE[] = "-----END CERTIFICATE-----\n";

/*!
    PEM streams in which the reference engine reads on where newer engines, the command's too, stop:
    each has a malformed block of another kind, which the newer reader rejects and the older one
    passes over.
*/
const QList<QByteArray> STREAM_LENIENCIES{"03af755d96978b43b678", "1382dd80e284b12b3ae1",
                                          "514765dbf465274b3627"};

struct Outcome
{
    bool isSuccess = false;
    QByteArray output;
    QByteArray errors;
};

//! Runs \a program without a terminal and with nothing on its standard input.
Outcome runApart(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QStringLiteral("setsid"),
                  QStringList{QStringLiteral("--wait"), program} + arguments);
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit)
        qFatal("%s: %s", qPrintable(program), qPrintable(process.errorString()));
    return {process.exitCode() == 0, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

//! Returns the content of the DER element at the beginning of \a der and moves \a der behind it.
QByteArray takeElement(QByteArray* der, bool withHeader = false)
{
    const auto octet = [der](int i) { return static_cast<unsigned char>(der->at(i)); };
    int header = 2;
    int length = octet(1);
    if (length > 0x80) {
        header += length - 0x80;
        length = 0;
        for (int i = 2; i < header; ++i)
            length = length * 256 + octet(i);
    }
    const QByteArray element =
        der->mid(withHeader ? 0 : header, length + (withHeader ? header : 0));
    der->remove(0, header + length);
    return element;
}

/*!
    Returns the sequence that the command makes of the certificates in a PEM text, as PEM; empty
    when it finds none. Of its subcommands `nseq` takes every certificate up to the first that
    cannot be read; the others take one alone, skip what is damaged, or refuse the whole text.
*/
QByteArray sequenceByCommand(QByteArray pem)
{
    // In a file OpenSSL takes a line that begins with NUL for the end, in memory it does not.
    // Within lines it treats both of these octets alike.
    pem.replace('\0', '\1');
    const test::PemDirectory directory;
    const Outcome sequence =
        runApart(test::openSslCommand(),
                 {QStringLiteral("nseq"), QStringLiteral("-toseq"), QStringLiteral("-in"),
                  directory.write(QStringLiteral("stream.pem"), pem)});
    if (!sequence.isSuccess && !sequence.errors.contains("Error reading certs file"))
        qFatal("openssl nseq -toseq: %s", sequence.errors.constData());
    return sequence.output;
}

//! Returns the DER of each certificate that the command finds in a PEM text.
QList<QByteArray> certificatesByCommand(const QByteArray& pem)
{
    QByteArray sequence = sequenceByCommand(pem);
    QList<QByteArray> certificates;
    if (sequence.isEmpty())
        return certificates;
    sequence.remove(0, sequence.indexOf('\n'));
    sequence.truncate(sequence.indexOf('-'));
    QByteArray der = QByteArray::fromBase64(sequence);
    QByteArray content = takeElement(&der);
    takeElement(&content); // The type.
    QByteArray tagged = takeElement(&content);
    QByteArray list = takeElement(&tagged);
    while (!list.isEmpty())
        certificates.append(takeElement(&list, true));
    return certificates;
}

//! Returns the PEM blocks that the command writes of the certificates in a PEM text.
QByteArray blocksByCommand(const QByteArray& pem)
{
    const QByteArray printed = test::runOpenSsl({QStringLiteral("nseq")}, sequenceByCommand(pem));
    QByteArray blocks;
    int begin = 0;
    while ((begin = printed.indexOf(BEGIN_LINE, begin)) >= 0) {
        const int end = printed.indexOf(END_LINE, begin) + int(std::strlen(END_LINE));
        blocks += printed.mid(begin, end - begin);
        begin = end;
    }
    return blocks;
}

//! Returns the DER of each certificate that the library finds in a PEM text.
QList<QByteArray> certificatesByLibrary(const QByteArray& pem)
{
    QList<x509_st*> handles = SslCertificateChain::readPem(pem.constData(), pem.size());
    QList<QByteArray> certificates;
    for (x509_st* handle : qAsConst(handles))
        certificates.append(SslCertificate::encodeDer(handle));
    SslCertificateChain::release(handles);
    return certificates;
}

X509Handle readDer(const QByteArray& der)
{
    const auto* data = reinterpret_cast<const unsigned char*>(der.constData());
    return X509Handle(SslCertificate::readDer(data, der.size()));
}

X509Handle readPem(const QByteArray& pem)
{
    return X509Handle(SslCertificate::readPem(pem.constData(), pem.size()));
}

//! Compares what the library writes of \a handle with the command's DER, and reads it back.
void compareWritten(x509_st* handle, const QByteArray& der)
{
    QCOMPARE(SslCertificate::encodeDer(handle).toHex(), der.toHex());
    QCOMPARE(SslCertificate::encodePem(handle).toLatin1(), test::toPem(der));

    const QByteArray sha1 = SslCertificate::sha1Digest(handle);
    const X509Handle fromDer = readDer(SslCertificate::encodeDer(handle));
    QCOMPARE(SslCertificate::sha1Digest(fromDer.get()), sha1);
    QCOMPARE(SslCertificate::encodeDer(fromDer.get()), der);
    const X509Handle fromPem = readPem(SslCertificate::encodePem(handle).toLatin1());
    QCOMPARE(SslCertificate::sha1Digest(fromPem.get()), sha1);
    QCOMPARE(SslCertificate::encodeDer(fromPem.get()), der);
}

//! Compares what the library and the command write of the same PEM blocks.
void compareAll(const std::vector<X509Handle>& handles, const QByteArray& blocks)
{
    const QList<QByteArray> expected = certificatesByCommand(blocks);
    QCOMPARE(expected.size(), int(handles.size()));
    QByteArray written;
    for (size_t i = 0; i < handles.size(); ++i) {
        compareWritten(handles.at(i).get(), expected.at(int(i)));
        written += SslCertificate::encodePem(handles.at(i).get()).toLatin1();
    }
    QCOMPARE(written, blocksByCommand(blocks));
}

} // namespace

class CodingOracleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void rootsAreWrittenAlike();
    void corpusIsWrittenAlike_data();
    void corpusIsWrittenAlike();
    void streamsAreComplete();
    void streamIsReadAlike_data();
    void streamIsReadAlike();
    void variantIsReadAlike_data();
    void variantIsReadAlike();
    void encryptedBlockEndsTheReading();

private:
    test::Identity m_first;
    test::Identity m_second;
};

void CodingOracleTest::initTestCase()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QVERIFY(!QStandardPaths::findExecutable(QStringLiteral("setsid")).isEmpty());
    m_first = test::makeIdentity(test::CertificateSpec());
    m_second = test::makeIdentity(test::CertificateSpec());
}

void CodingOracleTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void CodingOracleTest::rootsAreWrittenAlike()
{
    const QDir directory(QStringLiteral(ROOTS_DIRECTORY));
    const QStringList files = directory.entryList({QStringLiteral("*.pem")}, QDir::Files);
    QByteArray blocks;
    std::vector<X509Handle> handles;
    for (const QString& file : files) {
        const QString path = directory.filePath(file);
        handles.emplace_back(SslCertificate::readPem(path));
        QVERIFY2(handles.back(), qPrintable(file));
        blocks += test::contentOf(path);
    }
    QVERIFY(handles.size() >= 168);
    compareAll(handles, blocks);
}

void CodingOracleTest::corpusIsWrittenAlike_data()
{
    QTest::addColumn<QByteArray>("corpus");
    QTest::addColumn<int>("parsed");
    QTest::newRow("der-openssl-fuzz-x509") << QByteArray("der-openssl-fuzz-x509") << 581;
    QTest::newRow("der-boringssl-fuzz-cert") << QByteArray("der-boringssl-fuzz-cert") << 137;
    QTest::newRow("der-boringssl-parse-unit") << QByteArray("der-boringssl-parse-unit") << 59;
}

void CodingOracleTest::corpusIsWrittenAlike()
{
    QFETCH(QByteArray, corpus);
    QByteArray blocks;
    std::vector<X509Handle> handles;
    const QList<test::ManifestLine> lines = test::readManifest();
    for (const test::ManifestLine& line : lines) {
        if (line.corpus != corpus)
            continue;
        const QByteArray der = test::contentOf(test::corpusFileName(line.corpus, line.file));
        X509Handle handle = readDer(der);
        const bool isExpected = line.isParsed || test::leniencyFor(line.file);
        QVERIFY2(bool(handle) == isExpected, line.file.constData());
        if (!line.isParsed)
            continue;
        blocks += test::toPem(der);
        handles.push_back(std::move(handle));
    }
    QTEST(int(handles.size()), "parsed");
    compareAll(handles, blocks);
}

void CodingOracleTest::streamsAreComplete()
{
    const QDir directory(test::corpusFileName("pem-streams", QByteArray()));
    QCOMPARE(directory.entryList(QDir::Files).size(), 122);
    for (const QByteArray& stream : STREAM_LENIENCIES)
        QVERIFY2(directory.exists(QString::fromLatin1(stream)), stream.constData());
}

void CodingOracleTest::streamIsReadAlike_data()
{
    QTest::addColumn<QByteArray>("stream");
    const QDir directory(test::corpusFileName("pem-streams", QByteArray()));
    const QStringList files = directory.entryList(QDir::Files, QDir::Name);
    for (const QString& file : files)
        QTest::newRow(qPrintable(file)) << file.toLatin1();
}

void CodingOracleTest::streamIsReadAlike()
{
    QFETCH(QByteArray, stream);
    const QByteArray alone = test::contentOf(test::corpusFileName("pem-streams", stream));
    QVERIFY(!alone.contains("ENCRYPTED"));
    QVERIFY(certificatesByLibrary(alone).isEmpty());

    // No stream of the corpus holds a certificate; what counts is whether it ends the reading.
    const QByteArray between = m_first.certificatePem() + alone + '\n' + m_second.certificatePem();
    const QList<QByteArray> expected = certificatesByCommand(between);
    const QList<QByteArray> both{m_first.der(), m_second.der()};
    QVERIFY(expected == both || expected == both.mid(0, 1));
    if (test::isReferenceEngine() && STREAM_LENIENCIES.contains(stream)) {
        QCOMPARE(expected.size(), 1);
        QCOMPARE(certificatesByLibrary(between), both);
        return;
    }
    QCOMPARE(certificatesByLibrary(between), expected);
}

void CodingOracleTest::variantIsReadAlike_data()
{
    const QByteArray good = m_second.certificatePem();
    QByteArray crlf = good;
    crlf.replace('\n', "\r\n");
    QByteArray oldLabel = good;
    oldLabel.replace("CERTIFICATE", "X509 CERTIFICATE");
    QByteArray trusted = good;
    trusted.replace("CERTIFICATE", "TRUSTED CERTIFICATE");
    QByteArray unknown = good;
    unknown.replace("CERTIFICATE", "SOMETHING");
    QByteArray mixedLabels = good;
    mixedLabels.replace("END CERTIFICATE", "END X509 CERTIFICATE");
    QByteArray damaged = good;
    damaged[damaged.size() / 2] = '!';
    QByteArray blanks = good;
    blanks.replace('\n', " \t\n");
    QByteArray headers = good;
    headers.replace(BEGIN_LINE, QByteArray(BEGIN_LINE) + "Comment: text\n\n");
    QByteArray unpadded = good;
    unpadded.replace("=\n", "\n");
    QByteArray emptyLine = good;
    emptyLine.insert(int(std::strlen(BEGIN_LINE)), '\n');

    QTest::addColumn<QByteArray>("pem");
    QTest::newRow("carriage returns") << crlf;
    QTest::newRow("old label") << oldLabel;
    QTest::newRow("trusted certificate") << trusted;
    QTest::newRow("unknown label") << unknown;
    QTest::newRow("mixed labels") << mixedLabels;
    QTest::newRow("damaged Base64") << damaged;
    QTest::newRow("truncated") << good.left(200);
    QTest::newRow("no end line") << good.left(good.size() - int(std::strlen(END_LINE)));
    QTest::newRow("no line feed at the end") << good.left(good.size() - 1);
    QTest::newRow("blanks behind the lines") << blanks;
    QTest::newRow("headers") << headers;
    QTest::newRow("no padding") << unpadded;
    QTest::newRow("empty line at the beginning") << emptyLine;
    QTest::newRow("blank before the begin line") << ' ' + good;
    QTest::newRow("NUL octets") << QByteArray(3, '\0') + '\n' + good;
    QTest::newRow("long line of text") << QByteArray(5000, 'x') + '\n' + good;
}

void CodingOracleTest::variantIsReadAlike()
{
    QFETCH(QByteArray, pem);
    const QByteArray first = m_first.certificatePem();
    const QByteArray between = first + pem + '\n' + first;
    QCOMPARE(certificatesByLibrary(between), certificatesByCommand(between));
}

void CodingOracleTest::encryptedBlockEndsTheReading()
{
    const QByteArray first = m_first.certificatePem();
    const QByteArray second = m_second.certificatePem();
    QByteArray encrypted = second;
    encrypted.replace(BEGIN_LINE,
                      QByteArray(BEGIN_LINE)
                          + "Proc-Type: 4,ENCRYPTED\n"
                            "DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F\n\n");
    const QByteArray pem = first + encrypted + second;
    QCOMPARE(certificatesByCommand(pem), QList<QByteArray>{m_first.der()});

    // The library would ask this test's terminal: it reads in a program that has none.
    const test::PemDirectory directory;
    const Outcome outcome = runApart(QCoreApplication::applicationFilePath(),
                                     {QStringLiteral("--certificates-of"),
                                      directory.write(QStringLiteral("encrypted.pem"), pem)});
    QVERIFY2(outcome.isSuccess, outcome.errors.constData());
    QCOMPARE(outcome.output, m_first.der());
}

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) != QLatin1String("--certificates-of")) {
        CodingOracleTest test;
        return QTest::qExec(&test, argc, argv);
    }
    const QList<QByteArray> found = certificatesByLibrary(test::contentOf(arguments.value(2)));
    QFile output;
    return output.open(stdout, QIODevice::WriteOnly) && output.write(found.join()) >= 0 ? 0 : 1;
}

#include "tst_codingoracle.moc"

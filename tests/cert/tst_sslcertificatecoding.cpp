// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslHandles.h"
#include "tests/common/ErrorQueue.h"
#include "tests/common/MessageLog.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificate.h>

#include <openssl/err.h>

#include <QtCore/QBuffer>
#include <QtCore/QTextStream>
#include <QtTest/QtTest>

#include <functional>
#include <vector>

using vela::SslCertificate;
using vela::X509Handle;

using Operation = std::function<void()>;
Q_DECLARE_METATYPE(Operation)

namespace {

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

test::Identity makeNamed(const QString& commonName)
{
    test::CertificateSpec spec;
    spec.commonName = commonName;
    return test::makeIdentity(spec);
}

X509Handle readPem(const QByteArray& pem)
{
    return X509Handle(SslCertificate::readPem(pem.constData(), pem.size()));
}

X509Handle readDer(const QByteArray& der)
{
    const auto* data = reinterpret_cast<const unsigned char*>(der.constData());
    return X509Handle(SslCertificate::readDer(data, der.size()));
}

QByteArray sha1Of(const X509Handle& handle)
{
    return SslCertificate::sha1Digest(handle.get());
}

} // namespace

class SslCertificateCodingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void firstPemCertificateIsRead();
    void handleBelongsToTheCaller();
    void textWithoutACertificateGivesNull_data();
    void textWithoutACertificateGivesNull();
    void lengthOfMinusOneEndsAtTheNul();
    void pemIsNotReadBeyondItsLength();
    void pemFileIsRead();
    void wholePemFileIsRead();
    void pemResourceIsRead();
    void fileThatCannotBeOpenedReadsAsEmpty_data();
    void fileThatCannotBeOpenedReadsAsEmpty();

    void derThatWasEncodedReadsBackEqual();
    void octetsAfterTheDerAreIgnored();
    void truncatedDerGivesNull();
    void octetsThatAreNoCertificateGiveNull_data();
    void octetsThatAreNoCertificateGiveNull();
    void derIsWhatOpenSslWrites();

    void pemHasLinesOf64Characters_data();
    void pemHasLinesOf64Characters();
    void pemThatWasEncodedReadsBackEqual();
    void nullHandleWritesNothing();

    void fileIsCreated();
    void longerFileKeepsItsTail();
    void fileThatCannotBeOpenedIsNotWritten_data();
    void fileThatCannotBeOpenedIsNotWritten();
    void deviceIsWrittenWhereItStands();
    void deviceIsLeftOpenBehindTheText();
    void streamIsWrittenBetweenTheCallersTexts();
    void memberFormsWriteTheOwnHandle();
    void emptyObjectWritesNothing();

    void errorQueueStaysAsItWas_data();
    void errorQueueStaysAsItWas();

private:
    test::Identity m_identity;
    QByteArray m_pem;
};

void SslCertificateCodingTest::initTestCase()
{
    m_identity = test::makeIdentity(test::CertificateSpec());
    m_pem = test::toPem(m_identity.der());
}

void SslCertificateCodingTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void SslCertificateCodingTest::firstPemCertificateIsRead()
{
    const QByteArray second = makeNamed(text("second")).certificatePem();
    const X509Handle handle = readPem("a comment\n" + m_identity.keyPem() + m_pem + second);
    QVERIFY(handle);
    QCOMPARE(sha1Of(handle), SslCertificate::sha1Digest(m_identity.x509()));
}

void SslCertificateCodingTest::handleBelongsToTheCaller()
{
    const X509Handle kept = readPem(m_pem);
    {
        const X509Handle other = readPem(m_pem);
        QVERIFY(other.get() != kept.get());
    }
    QCOMPARE(SslCertificate::encodeDer(kept.get()), m_identity.der());
}

void SslCertificateCodingTest::textWithoutACertificateGivesNull_data()
{
    QByteArray damagedBase64 = m_pem;
    damagedBase64[damagedBase64.size() / 2] = '!';
    QByteArray damagedDer = m_pem;
    damagedDer[damagedDer.indexOf('\n') + 2] = 'B';

    QTest::addColumn<QByteArray>("pem");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("no certificate");
    QTest::newRow("zeros") << QByteArray(1000, '\0');
    QTest::newRow("DER") << m_identity.der();
    QTest::newRow("private key") << m_identity.keyPem();
    QTest::newRow("begin line alone") << QByteArray("-----BEGIN CERTIFICATE-----\n");
    QTest::newRow("damaged base64") << damagedBase64;
    QTest::newRow("damaged DER") << damagedDer;
    QTest::newRow("a good block behind a damaged one") << damagedBase64 + m_pem;
}

void SslCertificateCodingTest::textWithoutACertificateGivesNull()
{
    QFETCH(QByteArray, pem);
    const test::PemDirectory directory;
    QVERIFY(!readPem(pem));
    QVERIFY(!X509Handle(SslCertificate::readPem(directory.write(text("file.pem"), pem))));
    QVERIFY(!X509Handle(SslCertificate::readPem(nullptr, 0)));
}

void SslCertificateCodingTest::lengthOfMinusOneEndsAtTheNul()
{
    const X509Handle handle(SslCertificate::readPem(m_pem.constData(), -1));
    QVERIFY(handle);
    QCOMPARE(sha1Of(handle), SslCertificate::sha1Digest(m_identity.x509()));

    const QByteArray behindNul = QByteArray("text\n\0\n", 7) + m_pem;
    QVERIFY(!X509Handle(SslCertificate::readPem(behindNul.constData(), -1)));
    QVERIFY(readPem(behindNul));
}

void SslCertificateCodingTest::pemIsNotReadBeyondItsLength()
{
    const int endOfLastLine = m_pem.size() - 1;
    for (int length = 0; length < endOfLastLine; ++length) {
        const std::vector<char> memory(m_pem.cbegin(), m_pem.cbegin() + length);
        const X509Handle handle(SslCertificate::readPem(memory.data(), length));
        QVERIFY2(!handle, qPrintable(QString::number(length)));
    }
}

void SslCertificateCodingTest::pemFileIsRead()
{
    const test::PemDirectory directory;
    const QByteArray second = makeNamed(text("second")).certificatePem();
    const QString fileName = directory.write(text("two.pem"), "a comment\r\n" + m_pem + second);
    const X509Handle handle(SslCertificate::readPem(fileName));
    QVERIFY(handle);
    QCOMPARE(sha1Of(handle), SslCertificate::sha1Digest(m_identity.x509()));
}

void SslCertificateCodingTest::wholePemFileIsRead()
{
    const test::PemDirectory directory;
    const QByteArray padding = QByteArray(63, 'x') + '\n';
    const QString fileName = directory.write(
        text("long.pem"), QByteArray("text\n\0\n", 7) + padding.repeated(5000) + m_pem);
    QVERIFY(X509Handle(SslCertificate::readPem(fileName)));
}

void SslCertificateCodingTest::pemResourceIsRead()
{
    QVERIFY(X509Handle(SslCertificate::readPem(text(":/Certificates/RootCerts.pem"))));
}

void SslCertificateCodingTest::fileThatCannotBeOpenedReadsAsEmpty_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("no name") << QString();
    QTest::newRow("missing file") << text("missing.pem");
    QTest::newRow("missing directory") << text("/missing/certificate.pem");
    QTest::newRow("directory") << QDir::tempPath();
    QTest::newRow("missing resource") << text(":/missing.pem");
}

void SslCertificateCodingTest::fileThatCannotBeOpenedReadsAsEmpty()
{
    QFETCH(QString, fileName);
    const test::MessageLog log;
    const X509Handle handle(SslCertificate::readPem(fileName));
    QVERIFY(!handle);
    QCOMPARE(log.messages(), QStringList());
}

void SslCertificateCodingTest::derThatWasEncodedReadsBackEqual()
{
    const SslCertificate first(m_identity.x509(), false);
    const QByteArray der = SslCertificate::encodeDer(m_identity.x509());
    const SslCertificate second(readDer(der).release(), true);
    QVERIFY(!second.isEmpty());
    QVERIFY(second == first);
    QCOMPARE(SslCertificate::encodeDer(const_cast<x509_st*>(second.x509())), der);
}

void SslCertificateCodingTest::octetsAfterTheDerAreIgnored()
{
    const QByteArray der = m_identity.der();
    const X509Handle handle = readDer(der + der + "text");
    QVERIFY(handle);
    QCOMPARE(SslCertificate::encodeDer(handle.get()), der);
}

void SslCertificateCodingTest::truncatedDerGivesNull()
{
    const QByteArray der = m_identity.der();
    for (int length = 0; length < der.size(); ++length) {
        const std::vector<unsigned char> memory(der.cbegin(), der.cbegin() + length);
        const X509Handle handle(SslCertificate::readDer(memory.data(), length));
        QVERIFY2(!handle, qPrintable(QString::number(length)));
    }
}

void SslCertificateCodingTest::octetsThatAreNoCertificateGiveNull_data()
{
    QTest::addColumn<QByteArray>("der");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("no certificate");
    QTest::newRow("zeros") << QByteArray(1000, '\0');
    QTest::newRow("PEM") << m_pem;
    QTest::newRow("empty sequence") << QByteArray("\x30\x00", 2);
    QTest::newRow("length beyond memory") << QByteArray("\x30\x84\x7F\xFF\xFF\xFF\x30\x00", 8);
    QTest::newRow("octet in front") << '\0' + m_identity.der();
}

void SslCertificateCodingTest::octetsThatAreNoCertificateGiveNull()
{
    QFETCH(QByteArray, der);
    QVERIFY(!readDer(der));
}

void SslCertificateCodingTest::derIsWhatOpenSslWrites()
{
    QCOMPARE(SslCertificate::encodeDer(m_identity.x509()), m_identity.der());
}

void SslCertificateCodingTest::pemHasLinesOf64Characters_data()
{
    QTest::addColumn<int>("lengthOfName");
    // 48 octets make one line: every length of the last line occurs, the full one included.
    for (int length = 1; length <= 48; ++length)
        QTest::newRow(qPrintable(QString::number(length))) << length;
}

void SslCertificateCodingTest::pemHasLinesOf64Characters()
{
    QFETCH(int, lengthOfName);
    const test::Identity identity = makeNamed(QString(lengthOfName, QLatin1Char('n')));
    const QString pem = SslCertificate::encodePem(identity.x509());
    QCOMPARE(pem.toLatin1(), test::toPem(identity.der()));

    QStringList lines = pem.split(QLatin1Char('\n'));
    QCOMPARE(lines.takeFirst(), text("-----BEGIN CERTIFICATE-----"));
    QCOMPARE(lines.takeLast(), QString());
    QCOMPARE(lines.takeLast(), text("-----END CERTIFICATE-----"));
    const QString last = lines.takeLast();
    QVERIFY(!last.isEmpty() && last.size() <= 64);
    for (const QString& line : qAsConst(lines))
        QCOMPARE(line.size(), 64);
}

void SslCertificateCodingTest::pemThatWasEncodedReadsBackEqual()
{
    const QString pem = SslCertificate::encodePem(m_identity.x509());
    const SslCertificate second(readPem(pem.toLatin1()).release(), true);
    QVERIFY(!second.isEmpty());
    QVERIFY(second == SslCertificate(m_identity.x509(), false));
}

void SslCertificateCodingTest::nullHandleWritesNothing()
{
    QCOMPARE(SslCertificate::encodeDer(nullptr), QByteArray());
    QCOMPARE(SslCertificate::encodePem(nullptr), QString());

    const test::PemDirectory directory;
    const QString fileName = directory.write(text("file.pem"), "content");
    SslCertificate::writePem(nullptr, fileName);
    QCOMPARE(test::contentOf(fileName), QByteArray("content"));

    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    SslCertificate::writePem(nullptr, &buffer);
    QCOMPARE(buffer.data(), QByteArray());

    QString written;
    QTextStream stream(&written);
    SslCertificate::writePem(nullptr, &stream);
    stream.flush();
    QCOMPARE(written, QString());
}

void SslCertificateCodingTest::fileIsCreated()
{
    const test::PemDirectory directory;
    const QString fileName = QDir(directory.path()).filePath(text("new.pem"));
    SslCertificate::writePem(m_identity.x509(), fileName);
    QCOMPARE(test::contentOf(fileName), m_pem);
}

void SslCertificateCodingTest::longerFileKeepsItsTail()
{
    const test::PemDirectory directory;
    const QByteArray tail = "tail of what was there\r\n";
    const QString fileName =
        directory.write(text("file.pem"), QByteArray(m_pem.size(), 'x') + tail);
    SslCertificate::writePem(m_identity.x509(), fileName);
    QCOMPARE(test::contentOf(fileName), m_pem + tail);

    const QString shorter = directory.write(text("shorter.pem"), "short");
    SslCertificate::writePem(m_identity.x509(), shorter);
    QCOMPARE(test::contentOf(shorter), m_pem);
}

void SslCertificateCodingTest::fileThatCannotBeOpenedIsNotWritten_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("no name") << QString();
    QTest::newRow("missing directory") << text("missing/certificate.pem");
    QTest::newRow("directory") << text(".");
    QTest::newRow("resource") << text(":/Certificates/RootCerts.pem");
}

void SslCertificateCodingTest::fileThatCannotBeOpenedIsNotWritten()
{
    QFETCH(QString, fileName);
    const test::PemDirectory directory;
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    const test::MessageLog log;
    SslCertificate::writePem(m_identity.x509(), fileName);
    SslCertificate(m_identity.x509(), false).writePem(fileName);
    QVERIFY(QDir::setCurrent(previous));
    QCOMPARE(log.messages(), QStringList());
    QVERIFY(QDir(directory.path()).isEmpty());
}

void SslCertificateCodingTest::deviceIsWrittenWhereItStands()
{
    QBuffer buffer;
    buffer.setData(QByteArray(m_pem.size() + 10, 'x'));
    QVERIFY(buffer.open(QIODevice::ReadWrite));
    QVERIFY(buffer.seek(4));
    SslCertificate::writePem(m_identity.x509(), &buffer);
    QCOMPARE(buffer.data(), "xxxx" + m_pem + "xxxxxx");
}

void SslCertificateCodingTest::deviceIsLeftOpenBehindTheText()
{
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    SslCertificate::writePem(m_identity.x509(), &buffer);
    QVERIFY(buffer.isOpen());
    QCOMPARE(buffer.pos(), qint64(m_pem.size()));
    SslCertificate::writePem(m_identity.x509(), &buffer);
    QCOMPARE(buffer.data(), m_pem + m_pem);
}

void SslCertificateCodingTest::streamIsWrittenBetweenTheCallersTexts()
{
    QString written;
    QTextStream stream(&written);
    stream << "before ";
    SslCertificate::writePem(m_identity.x509(), &stream);
    stream << "after";
    stream.flush();
    QCOMPARE(written.toLatin1(), "before " + m_pem + "after");
}

void SslCertificateCodingTest::memberFormsWriteTheOwnHandle()
{
    const SslCertificate certificate(m_identity.x509(), false);
    QCOMPARE(certificate.encodePem().toLatin1(), m_pem);

    const test::PemDirectory directory;
    const QString fileName =
        directory.write(text("file.pem"), QByteArray(m_pem.size(), 'x') + "tail");
    certificate.writePem(fileName);
    QCOMPARE(test::contentOf(fileName), m_pem + "tail");

    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    certificate.writePem(&buffer);
    QCOMPARE(buffer.data(), m_pem);

    QString written;
    QTextStream stream(&written);
    certificate.writePem(&stream);
    stream.flush();
    QCOMPARE(written.toLatin1(), m_pem);
}

void SslCertificateCodingTest::emptyObjectWritesNothing()
{
    const SslCertificate empty;
    QCOMPARE(empty.encodePem(), QString());

    const test::PemDirectory directory;
    const QString fileName = directory.write(text("file.pem"), "content");
    empty.writePem(fileName);
    QCOMPARE(test::contentOf(fileName), QByteArray("content"));

    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    empty.writePem(&buffer);
    QString written;
    QTextStream stream(&written);
    empty.writePem(&stream);
    stream.flush();
    QCOMPARE(buffer.data(), QByteArray());
    QCOMPARE(written, QString());
}

void SslCertificateCodingTest::errorQueueStaysAsItWas_data()
{
    const QByteArray der = m_identity.der();
    X509* x509 = m_identity.x509();
    QTest::addColumn<Operation>("operation");
    QTest::newRow("PEM read") << Operation([this] { readPem(m_pem); });
    QTest::newRow("no PEM read") << Operation([] { readPem("no certificate"); });
    QTest::newRow("null read") << Operation([] { SslCertificate::readPem(nullptr, -1); });
    QTest::newRow("damaged PEM read") << Operation([this] { readPem(m_pem.left(200)); });
    QTest::newRow("missing file read")
        << Operation([] { SslCertificate::readPem(text("missing.pem")); });
    QTest::newRow("DER read") << Operation([der] { readDer(der); });
    QTest::newRow("damaged DER read") << Operation([der] { readDer(der.left(200)); });
    QTest::newRow("DER written") << Operation([x509] { SslCertificate::encodeDer(x509); });
    QTest::newRow("PEM written") << Operation([x509] { SslCertificate::encodePem(x509); });
    QTest::newRow("no DER written") << Operation([] { SslCertificate::encodeDer(nullptr); });
    QTest::newRow("no PEM written") << Operation([] { SslCertificate::encodePem(nullptr); });
}

void SslCertificateCodingTest::errorQueueStaysAsItWas()
{
    QFETCH(Operation, operation);
    operation();
    QCOMPARE(ERR_peek_error(), 0UL);

    test::leaveOpenSslErrors();
    const unsigned long oldest = ERR_peek_error();
    const unsigned long newest = ERR_peek_last_error();
    QVERIFY(oldest != 0);
    operation();
    QCOMPARE(ERR_get_error(), oldest);
    unsigned long last = oldest;
    while (const unsigned long next = ERR_get_error())
        last = next;
    QCOMPARE(last, newest);
}

QTEST_GUILESS_MAIN(SslCertificateCodingTest)
#include "tst_sslcertificatecoding.moc"

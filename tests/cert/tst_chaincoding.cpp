// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/ErrorQueue.h"
#include "tests/common/MessageLog.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificateChain.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtCore/QBuffer>
#include <QtCore/QDir>
#include <QtCore/QTextStream>
#include <QtTest/QtTest>

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

using Certificates = QList<SslCertificatePtr>;
using Handles = QList<x509_st*>;

namespace {

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

test::Identity makeNamed(const char* commonName)
{
    test::CertificateSpec spec;
    spec.commonName = text(commonName);
    return test::makeIdentity(spec);
}

Handles readPem(const QByteArray& pem)
{
    return SslCertificateChain::readPem(pem.constData(), pem.size());
}

SslCertificatePtr wrap(x509_st* handle)
{
    return SslCertificatePtr(new SslCertificate(handle, false));
}

QList<QByteArray> sha1Of(const Handles& handles)
{
    QList<QByteArray> digests;
    for (const x509_st* handle : handles)
        digests.append(SslCertificate::sha1Digest(handle));
    return digests;
}

} // namespace

class ChainCodingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void threeCertificatesAreReadAndReleased();
    void otherTextIsSkipped();
    void damagedBlockEndsTheReading_data();
    void damagedBlockEndsTheReading();
    void textWithoutCertificatesGivesAnEmptyList();
    void lengthOfMinusOneEndsAtTheNul();

    void encodedChainReadsBackEqual();
    void blocksFollowEachOther();
    void chainIsWrittenToAFile();
    void fileThatCannotBeOpenedIsNotWritten();
    void chainIsWrittenToADevice();
    void chainIsWrittenToAStream();
    void elementsWithoutACertificateAreLeftOut();
    void emptyChainWritesNothing();
    void errorQueueStaysAsItWas();

private:
    test::Identity m_leaf;
    test::Identity m_root;
    QByteArray m_leafPem;
    QByteArray m_rootPem;
};

void ChainCodingTest::initTestCase()
{
    m_leaf = makeNamed("leaf");
    m_root = makeNamed("root");
    m_leafPem = test::toPem(m_leaf.der());
    m_rootPem = test::toPem(m_root.der());
}

void ChainCodingTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void ChainCodingTest::threeCertificatesAreReadAndReleased()
{
    const QByteArray thirdPem = makeNamed("third").certificatePem();
    Handles handles = readPem(m_leafPem + m_rootPem + thirdPem);
    QCOMPARE(handles.size(), 3);
    const SslCertificateChain chain(handles);
    QCOMPARE(chain.at(0)->subjectCommonName(), text("leaf"));
    QCOMPARE(chain.at(1)->subjectCommonName(), text("root"));
    QCOMPARE(chain.at(2)->subjectCommonName(), text("third"));

    SslCertificateChain::release(handles);
    QVERIFY(handles.isEmpty());
}

void ChainCodingTest::otherTextIsSkipped()
{
    Handles handles =
        readPem("a comment\n" + m_leafPem + "\r\n" + m_leaf.keyPem() + m_rootPem + "the end");
    QCOMPARE(sha1Of(handles), sha1Of({m_leaf.x509(), m_root.x509()}));
    SslCertificateChain::release(handles);
}

void ChainCodingTest::damagedBlockEndsTheReading_data()
{
    QByteArray damagedBase64 = m_rootPem;
    damagedBase64[damagedBase64.size() / 2] = '!';
    QByteArray damagedDer = m_rootPem;
    damagedDer[damagedDer.indexOf('\n') + 2] = 'B';
    QByteArray otherEnd = m_rootPem;
    otherEnd.replace("END CERTIFICATE", "END CERTIFICAT");

    QTest::addColumn<QByteArray>("damaged");
    QTest::newRow("base64") << damagedBase64;
    QTest::newRow("DER") << damagedDer;
    QTest::newRow("end line of another kind") << otherEnd;
    QTest::newRow("empty") << QByteArray(
        "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n");
    QTest::newRow("another block's base64") << m_leaf.keyPem().replace('M', '!');
}

void ChainCodingTest::damagedBlockEndsTheReading()
{
    QFETCH(QByteArray, damaged);
    Handles handles = readPem(m_leafPem + damaged + m_rootPem);
    QCOMPARE(sha1Of(handles), sha1Of({m_leaf.x509()}));
    SslCertificateChain::release(handles);
    QVERIFY(readPem(damaged + m_leafPem).isEmpty());
}

void ChainCodingTest::textWithoutCertificatesGivesAnEmptyList()
{
    QVERIFY(readPem(QByteArray()).isEmpty());
    QVERIFY(readPem("no certificate").isEmpty());
    QVERIFY(readPem(m_leaf.der()).isEmpty());
    QVERIFY(SslCertificateChain::readPem(nullptr, 0).isEmpty());
}

void ChainCodingTest::lengthOfMinusOneEndsAtTheNul()
{
    const QByteArray pem = m_leafPem + QByteArray("\0\n", 2) + m_rootPem;
    Handles whole = readPem(pem);
    QCOMPARE(whole.size(), 2);
    SslCertificateChain::release(whole);
    Handles first = SslCertificateChain::readPem(pem.constData(), -1);
    QCOMPARE(sha1Of(first), sha1Of({m_leaf.x509()}));
    SslCertificateChain::release(first);
}

void ChainCodingTest::encodedChainReadsBackEqual()
{
    const SslCertificateChain chain(Handles{m_leaf.x509(), m_root.x509()});
    Handles handles = readPem(chain.encodePem().toLatin1());
    QCOMPARE(handles.size(), 2);
    for (int i = 0; i < handles.size(); ++i) {
        QCOMPARE(SslCertificate::sha1Digest(handles.at(i)), chain.at(i)->sha1Digest());
        QCOMPARE(SslCertificate::md5Digest(handles.at(i)), chain.at(i)->md5Digest());
    }
    SslCertificateChain::release(handles);
}

void ChainCodingTest::blocksFollowEachOther()
{
    const Handles handles{m_leaf.x509(), m_root.x509(), m_leaf.x509()};
    const QByteArray expected = m_leafPem + m_rootPem + m_leafPem;
    QCOMPARE(SslCertificateChain(handles).encodePem().toLatin1(), expected);
    QCOMPARE(SslCertificateChain::encodePem(handles).toLatin1(), expected);
}

void ChainCodingTest::chainIsWrittenToAFile()
{
    const test::PemDirectory directory;
    const Handles handles{m_leaf.x509(), m_root.x509()};
    const QByteArray expected = m_leafPem + m_rootPem;
    const QByteArray longer = QByteArray(expected.size(), 'x') + "tail";

    const QString created = QDir(directory.path()).filePath(text("created.pem"));
    SslCertificateChain(handles).writePem(created);
    QCOMPARE(test::contentOf(created), expected);
    const QString createdRaw = QDir(directory.path()).filePath(text("raw.pem"));
    SslCertificateChain::writePem(handles, createdRaw);
    QCOMPARE(test::contentOf(createdRaw), expected);

    const QString existing = directory.write(text("existing.pem"), longer);
    SslCertificateChain(handles).writePem(existing);
    QCOMPARE(test::contentOf(existing), expected + "tail");
    directory.write(text("existing.pem"), longer);
    SslCertificateChain::writePem(handles, existing);
    QCOMPARE(test::contentOf(existing), expected + "tail");
}

void ChainCodingTest::fileThatCannotBeOpenedIsNotWritten()
{
    const test::PemDirectory directory;
    const Handles handles{m_leaf.x509()};
    const test::MessageLog log;
    const QString inMissing = QDir(directory.path()).filePath(text("missing/file.pem"));
    for (const QString& fileName : {QString(), inMissing, directory.path()}) {
        SslCertificateChain(handles).writePem(fileName);
        SslCertificateChain::writePem(handles, fileName);
    }
    QVERIFY(QDir(directory.path()).isEmpty());
    QCOMPARE(log.messages(), QStringList());
}

void ChainCodingTest::chainIsWrittenToADevice()
{
    const Handles handles{m_leaf.x509(), m_root.x509()};
    const QByteArray once = m_leafPem + m_rootPem;
    QBuffer buffer;
    buffer.setData(QByteArray(2 * once.size() + 8, 'x'));
    QVERIFY(buffer.open(QIODevice::ReadWrite));
    QVERIFY(buffer.seek(4));
    SslCertificateChain(handles).writePem(&buffer);
    SslCertificateChain::writePem(handles, &buffer);
    QCOMPARE(buffer.data(), "xxxx" + once + once + "xxxx");
}

void ChainCodingTest::chainIsWrittenToAStream()
{
    const Handles handles{m_leaf.x509(), m_root.x509()};
    QString written;
    QTextStream stream(&written);
    stream << "before ";
    SslCertificateChain(handles).writePem(&stream);
    stream << "between ";
    SslCertificateChain::writePem(handles, &stream);
    stream << "after";
    stream.flush();
    const QByteArray once = m_leafPem + m_rootPem;
    QCOMPARE(written.toLatin1(), "before " + once + "between " + once + "after");
}

void ChainCodingTest::elementsWithoutACertificateAreLeftOut()
{
    const SslCertificatePtr empty(new SslCertificate);
    const SslCertificateChain chain(Certificates{SslCertificatePtr(), wrap(m_leaf.x509()), empty,
                                                 wrap(m_root.x509()), SslCertificatePtr()});
    QCOMPARE(chain.encodePem().toLatin1(), m_leafPem + m_rootPem);
    const Handles handles{nullptr, m_leaf.x509(), nullptr, m_root.x509(), nullptr};
    QCOMPARE(SslCertificateChain::encodePem(handles).toLatin1(), m_leafPem + m_rootPem);
    QCOMPARE(SslCertificateChain(Certificates{SslCertificatePtr(), empty}).encodePem(), QString());
}

void ChainCodingTest::emptyChainWritesNothing()
{
    QCOMPARE(SslCertificateChain().encodePem(), QString());
    QCOMPARE(SslCertificateChain::encodePem(Handles()), QString());

    const test::PemDirectory directory;
    const QString fileName = directory.write(text("file.pem"), "content");
    SslCertificateChain().writePem(fileName);
    SslCertificateChain::writePem(Handles(), fileName);
    QCOMPARE(test::contentOf(fileName), QByteArray("content"));
}

void ChainCodingTest::errorQueueStaysAsItWas()
{
    test::leaveOpenSslErrors();
    const unsigned long oldest = ERR_peek_error();
    const unsigned long newest = ERR_peek_last_error();
    QVERIFY(oldest != 0);

    Handles handles = readPem(m_leafPem + m_rootPem + m_leafPem.left(200));
    QCOMPARE(handles.size(), 2);
    QVERIFY(SslCertificateChain::readPem(nullptr, -1).isEmpty());
    QVERIFY(!SslCertificateChain(handles).encodePem().isEmpty());
    SslCertificateChain::release(handles);

    QCOMPARE(ERR_get_error(), oldest);
    unsigned long last = oldest;
    while (const unsigned long next = ERR_get_error())
        last = next;
    QCOMPARE(last, newest);
}

QTEST_GUILESS_MAIN(ChainCodingTest)
#include "tst_chaincoding.moc"

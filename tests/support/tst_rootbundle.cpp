// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

namespace {

const QByteArray LINE_END = QByteArrayLiteral("\r\n");
const QByteArray BEGIN = QByteArrayLiteral("-----BEGIN CERTIFICATE-----");
const QByteArray END = QByteArrayLiteral("-----END CERTIFICATE-----");
constexpr int LINE_LENGTH = 64;

QByteArray contents(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read", qPrintable(path));
    return file.readAll();
}

QString rootsPath(const QString& name = QString())
{
    return QStringLiteral(FERRULE_RESOURCES "/roots/") + name;
}

//! What the table in the roots' README says about \a row.
QString noted(const QString& row)
{
    const QRegularExpression line(QStringLiteral("^\\| %1 \\| (.*) \\|$").arg(row),
                                  QRegularExpression::MultilineOption);
    return line.match(QString::fromUtf8(contents(rootsPath(QStringLiteral("README.md")))))
        .captured(1);
}

QList<QByteArray> splitLines(QByteArray text)
{
    QList<QByteArray> lines;
    for (int end = text.indexOf(LINE_END); end >= 0; end = text.indexOf(LINE_END)) {
        lines << text.left(end);
        text.remove(0, end + LINE_END.size());
    }
    return lines;
}

} // namespace

/*
    The bundle byte by byte, and that it holds the roots beside which it is kept.
*/
class RootBundleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void beginsWithOneLineEnd();
    void endsWithALineEnd();
    void everyLineEndsWithCrLf();
    void holdsNothingButBlocks();
    void base64LinesAreFull();
    void blocksHoldDistinctCertificates();
    void holdsTheCollectedRootsInOrderOfTheirNames();
    void listOfRootsIsComplete();
    void noteOfOriginIsComplete();

private:
    QByteArray m_bundle;
    QList<QByteArray> m_lines;
    QList<QByteArray> m_blocks; // What stands between the first and the last line of each.
};

void RootBundleTest::initTestCase()
{
    m_bundle = contents(QStringLiteral(":/Certificates/RootCerts.pem"));
    m_lines = splitLines(m_bundle);
    for (const QByteArray& line : qAsConst(m_lines)) {
        if (line == BEGIN)
            m_blocks << QByteArray();
        else if (!m_blocks.isEmpty() && line != END)
            m_blocks.last() += line;
    }
    QVERIFY(!m_blocks.isEmpty());
}

void RootBundleTest::beginsWithOneLineEnd()
{
    QVERIFY(m_bundle.startsWith(LINE_END + BEGIN + LINE_END));
}

void RootBundleTest::endsWithALineEnd()
{
    QVERIFY(m_bundle.endsWith(LINE_END + END + LINE_END));
}

void RootBundleTest::everyLineEndsWithCrLf()
{
    QCOMPARE(m_bundle.count('\r'), m_bundle.count(LINE_END));
    QCOMPARE(m_bundle.count('\n'), m_bundle.count(LINE_END));
}

void RootBundleTest::holdsNothingButBlocks()
{
    bool inside = false;
    int base64Lines = 0;
    for (int i = 1; i < m_lines.size(); ++i) {
        const QByteArray& line = m_lines.at(i);
        if (line == BEGIN) {
            QVERIFY2(!inside, "a block begins inside another");
            inside = true;
            base64Lines = 0;
        } else if (line == END) {
            QVERIFY2(inside && base64Lines > 0, "an empty block ends");
            inside = false;
        } else {
            QVERIFY2(inside, "there is text between blocks");
            ++base64Lines;
        }
    }
    QVERIFY(!inside);
}

void RootBundleTest::base64LinesAreFull()
{
    const QRegularExpression full(QStringLiteral("\\A[A-Za-z0-9+/]{64}\\z"));
    const QRegularExpression last(QStringLiteral("\\A[A-Za-z0-9+/]+={0,2}\\z"));
    for (int i = 2; i < m_lines.size(); ++i) {
        const QByteArray& line = m_lines.at(i);
        if (line == BEGIN || line == END)
            continue;
        const bool isLast = m_lines.at(i + 1) == END;
        QVERIFY2((isLast ? last : full).match(QString::fromLatin1(line)).hasMatch(), line);
        QVERIFY2(line.size() <= LINE_LENGTH && line.size() % 4 == 0, line);
    }
}

void RootBundleTest::blocksHoldDistinctCertificates()
{
    QSet<QByteArray> fingerprints;
    for (const QByteArray& block : qAsConst(m_blocks)) {
        const QByteArray der = QByteArray::fromBase64(block);
        const auto* bytes = reinterpret_cast<const unsigned char*>(der.constData());
        const vela::SslCertificate certificate(vela::SslCertificate::readDer(bytes, der.size()),
                                               true);
        QVERIFY2(!certificate.isEmpty(), block);
        fingerprints << certificate.sha1Digest();
    }
    QCOMPARE(fingerprints.size(), m_blocks.size());
}

void RootBundleTest::holdsTheCollectedRootsInOrderOfTheirNames()
{
    QStringList files = QDir(rootsPath()).entryList({QStringLiteral("*.pem")}, QDir::Files);
    std::sort(files.begin(), files.end()); // By code unit, wherever the test runs.
    QCOMPARE(files.size(), m_blocks.size());
    for (int i = 0; i < files.size(); ++i) {
        QByteArray pem = contents(rootsPath(files.at(i)));
        pem.replace(BEGIN, "").replace(END, "").replace('\r', "").replace('\n', "");
        QVERIFY2(pem == m_blocks.at(i), qPrintable(files.at(i)));
    }
}

void RootBundleTest::listOfRootsIsComplete()
{
    QStringList files = QDir(rootsPath()).entryList({QStringLiteral("*.pem")}, QDir::Files);
    const QString text = QString::fromUtf8(contents(rootsPath(QStringLiteral("roots.tsv"))));
    QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.takeFirst(), QStringLiteral("file\tsha1\tnotAfter\tpackages"));
    QCOMPARE(lines.size(), files.size());
    for (const QString& line : qAsConst(lines)) {
        const QStringList columns = line.split(QLatin1Char('\t'));
        QCOMPARE(columns.size(), 4);
        const QByteArray pem = contents(rootsPath(columns.at(0)));
        const vela::SslCertificate certificate(pem.constData(), pem.size());
        QCOMPARE(certificate.sha1Digest().toHex(), columns.at(1).toLatin1());
        QVERIFY2(files.removeOne(columns.at(0)), qPrintable(line));
    }
}

void RootBundleTest::noteOfOriginIsComplete()
{
    QVERIFY(noted(QStringLiteral("source")).contains(QStringLiteral("ca-certificates")));
    QVERIFY(QDate::fromString(noted(QStringLiteral("collected")), Qt::ISODate).isValid());
    QVERIFY(noted(QStringLiteral("licence")).contains(QStringLiteral("MPL-2.0")));
    QCOMPARE(noted(QStringLiteral("roots")).toInt(), m_blocks.size());
}

QTEST_GUILESS_MAIN(RootBundleTest)
#include "tst_rootbundle.moc"

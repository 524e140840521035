// SPDX-License-Identifier: BSD-3-Clause
// ferrule-certificates: what it reads, shows and writes, and how it fails.

#include "tests/examples/Program.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

using namespace test;

namespace {

QByteArray hex(const QByteArray& bytes)
{
    return bytes.toHex(':').toUpper();
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Changes the Base64 of the block so that it no longer decodes to a certificate.
QByteArray damaged(QByteArray pem)
{
    const int firstLine = pem.indexOf('\n') + 1;
    return pem.replace(firstLine, 8, "////////");
}

} // namespace

class tst_FerruleCertificates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpNamesEveryOptionAndStatus();
    void versionIsPrinted();
    void wrongCommandLine_data();
    void wrongCommandLine();
    void everyCertificateOfAChainIsShown();
    void namesSerialFingerprintsAndValidityAreShown();
    void versionOfTheCertificate_data();
    void versionOfTheCertificate();
    void contentCannotForgeLines();
    void standardInput_data();
    void standardInput();
    void otherBlocksAreSkipped();
    void nothingToRead_data();
    void nothingToRead();
    void damagedFile_data();
    void damagedFile();
    void bytesBehindDerAreDamage();
    void severalFilesAreShownAndTheFirstFailureCounts();
    void pemIsWrittenBackUnchanged();
    void derIsWrittenBackUnchanged();
    void derHoldsTheEndCertificateAlone();
    void longerOldFileIsReplacedAsAWhole();
    void fileThatCannotBeWritten();
    void nothingIsWrittenFromADamagedFile();
    void standardOutputFails();

private:
    QString fileOf(const QList<Identity>& chain, const char* name = "chain.pem") const;
    QByteArray pemOf(const QList<Identity>& chain) const;

    PemDirectory m_directory;
    Identity m_root;
    Identity m_issuer;
    Identity m_end;
};

QByteArray tst_FerruleCertificates::pemOf(const QList<Identity>& chain) const
{
    QByteArray pem;
    for (const Identity& identity : chain)
        pem += identity.certificatePem();
    return pem;
}

QString tst_FerruleCertificates::fileOf(const QList<Identity>& chain, const char* name) const
{
    return m_directory.write(QString::fromLatin1(name), pemOf(chain));
}

void tst_FerruleCertificates::initTestCase()
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Test Root");
    m_root = makeIdentity(spec);
    spec.commonName = QStringLiteral("Test Issuer");
    m_issuer = makeIdentity(spec, &m_root);
    spec = CertificateSpec();
    spec.subject = {{"O", "Example Org"}, {"CN", "example.org"}};
    spec.serialHex = "0BADCAFE0123456789";
    spec.notBeforeText = "250102030405Z";
    spec.notAfterText = "491231235958Z";
    spec.keyType = KeyType::Rsa2048;
    m_end = makeIdentity(spec, &m_issuer);
}

void tst_FerruleCertificates::helpNamesEveryOptionAndStatus()
{
    CertificatesProgram program(words("--help"));
    QCOMPARE(program.run(), 0);
    for (const QString& text : words("--bundle --accept --pem --der --help --version FILE never "
                                     "once session always undecided"))
        QVERIFY2(program.output().contains(text.toLatin1()), qPrintable(text));
    for (int status = 0; status <= 6; ++status)
        QVERIFY(program.output().contains("\n  " + QByteArray::number(status) + "  "));
    QVERIFY(program.output().contains("NO path validation"));
    QCOMPARE(program.errors(), QByteArray());
}

void tst_FerruleCertificates::versionIsPrinted()
{
    CertificatesProgram program(words("--version"));
    QCOMPARE(program.run(), 0);
    QVERIFY(QRegularExpression(QStringLiteral("^ferrule-certificates \\d+\\.\\d+\\.\\d+\n$"))
                .match(QString::fromLatin1(program.output()))
                .hasMatch());
}

void tst_FerruleCertificates::wrongCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no file") << QStringList();
    QTest::newRow("empty file") << QStringList{QString()};
    QTest::newRow("standard input twice") << words("- -");
    QTest::newRow("unknown option") << words("--frobnicate a");
    QTest::newRow("missing value") << words("a --bundle");
    QTest::newRow("empty bundle") << words("--bundle= a");
    QTest::newRow("empty PEM output") << words("--pem= a");
    QTest::newRow("empty DER output") << words("--der= a");
    QTest::newRow("empty accept") << words("--accept= a");
    QTest::newRow("unknown accept") << words("--accept often a");
    QTest::newRow("accept in capitals") << words("--accept Always a");
    QTest::newRow("accept number") << words("--accept 3 a");
    QTest::newRow("PEM of two files") << words("--pem o a b");
    QTest::newRow("DER of two files") << words("--der o a b");
}

void tst_FerruleCertificates::wrongCommandLine()
{
    QFETCH(QStringList, arguments);
    CertificatesProgram program(arguments);
    QCOMPARE(program.run(), 1);
    QVERIFY2(isOneLine(program.errors()), program.errors().constData());
    QVERIFY(program.errors().endsWith("(--help explains)\n"));
    QCOMPARE(program.output(), QByteArray());
}

void tst_FerruleCertificates::everyCertificateOfAChainIsShown()
{
    const QString file = fileOf({m_end, m_issuer, m_root});
    CertificatesProgram program({file});
    QCOMPARE(program.run(), 0);
    VERIFY_SHOWS(program, "file         " + file.toLocal8Bit() + ": PEM, certificates: 3");
    VERIFY_SHOWS(program, "certificate  1 of 3: end certificate");
    VERIFY_SHOWS(program, "certificate  2 of 3: issuer");
    VERIFY_SHOWS(program, "certificate  3 of 3: root");
    VERIFY_SHOWS(program, "public key   rsaEncryption, 2048 bits");
    VERIFY_SHOWS(program, "public key   id-ecPublicKey");
    QCOMPARE(program.errors(), QByteArray());
}

void tst_FerruleCertificates::namesSerialFingerprintsAndValidityAreShown()
{
    CertificatesProgram program({fileOf({m_end})});
    QCOMPARE(program.run(), 0);
    const QByteArray der = m_end.der();
    const QList<QByteArray> lines = {
        "subject      CN=example.org",
        "             O=Example Org",
        "issuer       CN=Test Issuer",
        "serial       0B:AD:CA:FE:01:23:45:67:89",
        "SHA-1        " + hex(QCryptographicHash::hash(der, QCryptographicHash::Sha1)),
        "MD5          " + hex(QCryptographicHash::hash(der, QCryptographicHash::Md5)),
        "valid from   2025-01-02T03:04:05Z",
        "valid until  2049-12-31T23:59:58Z",
    };
    for (const QByteArray& line : lines)
        VERIFY_SHOWS(program, line);
}

void tst_FerruleCertificates::versionOfTheCertificate_data()
{
    QTest::addColumn<int>("encoded");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("1") << 0 << QByteArray("1");
    QTest::newRow("2") << 1 << QByteArray("2");
    QTest::newRow("3") << 2 << QByteArray("3");
}

void tst_FerruleCertificates::versionOfTheCertificate()
{
    QFETCH(int, encoded);
    QFETCH(QByteArray, shown);
    CertificateSpec spec;
    spec.version = encoded;
    CertificatesProgram program({fileOf({makeIdentity(spec)})});
    QCOMPARE(program.run(), 0);
    VERIFY_SHOWS(program, "version      " + shown);
}

void tst_FerruleCertificates::contentCannotForgeLines()
{
    CertificateSpec spec;
    spec.subject = {{"O", "x\njudgement    accepted"}, {"OU", "\x1b[2J"}, {"CN", "a,CN=b"}};
    CertificatesProgram program({fileOf({makeIdentity(spec)})});
    QCOMPARE(program.run(), 0);
    QVERIFY2(!program.shows("judgement    accepted"), program.output().constData());
    QVERIFY(!program.output().contains('\x1b'));
    VERIFY_SHOWS(program, "subject      CN=a,CN=b");
    VERIFY_SHOWS(program, "             O=x\\x0Ajudgement    accepted");
    VERIFY_SHOWS(program, "             OU=\\x1B[2J");
}

void tst_FerruleCertificates::standardInput_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("heading");
    const QByteArray pem = pemOf({m_end, m_issuer});
    QTest::newRow("PEM") << pem << QByteArray("-: PEM, certificates: 2");
    QTest::newRow("PEM with CRLF")
        << QByteArray(pem).replace("\n", "\r\n") << QByteArray("-: PEM, certificates: 2");
    QTest::newRow("PEM between texts")
        << "before\n" + pem.trimmed() + "\nbehind" << QByteArray("-: PEM, certificates: 2");
    QTest::newRow("DER") << m_end.der() << QByteArray("-: DER, certificates: 1");
}

void tst_FerruleCertificates::standardInput()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, heading);
    CertificatesProgram program(words("-"));
    QCOMPARE(program.run(input), 0);
    VERIFY_SHOWS(program, "file         " + heading);
    VERIFY_SHOWS(program, "subject      CN=example.org");
}

void tst_FerruleCertificates::otherBlocksAreSkipped()
{
    const QByteArray pem =
        m_end.keyPem() + m_end.certificatePem() + m_root.keyPem() + m_issuer.certificatePem();
    CertificatesProgram program({m_directory.write(QStringLiteral("mixed.pem"), pem)});
    QCOMPARE(program.run(), 0);
    VERIFY_SHOWS(program, "certificate  2 of 2: issuer");
}

void tst_FerruleCertificates::nothingToRead_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("reason");
    const auto row = [&](const char* name, const QByteArray& content, const char* reason) {
        QTest::newRow(name) << m_directory.write(QString::fromLatin1(name), content)
                            << QByteArray(reason);
    };
    // In the words of the system.
#ifdef Q_OS_WIN
    const QByteArray missing("File not found");
    const QByteArray directory("Access denied");
#else
    const QByteArray missing("No such file");
    const QByteArray directory("directory");
#endif
    QTest::newRow("missing") << m_directory.path() + QStringLiteral("/missing") << missing;
    QTest::newRow("directory") << m_directory.path() << directory;
    row("empty", QByteArray(), "holds no certificate");
    row("text", "Nothing to see here.\n", "holds no certificate");
    row("key", m_end.keyPem(), "holds no certificate");
    row("truncated DER", m_end.der().chopped(1), "holds no certificate");
    row("too large", QByteArray(16 * 1024 * 1024 + 1, '\n'), "too large");
}

void tst_FerruleCertificates::nothingToRead()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, reason);
    CertificatesProgram program({file});
    QCOMPARE(program.run(), 2);
    QVERIFY2(isOneLine(program.errors()), program.errors().constData());
    QVERIFY2(program.errors().contains(file.toLocal8Bit() + ": "), program.errors().constData());
    QVERIFY2(program.errors().contains(reason), program.errors().constData());
    QVERIFY(!program.output().contains("\nfile "));
}

void tst_FerruleCertificates::damagedFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("read");
    QTest::addColumn<int>("notRead");
    const QByteArray end = m_end.certificatePem();
    const QByteArray issuer = m_issuer.certificatePem();
    const QByteArray root = m_root.certificatePem();
    QTest::newRow("first of three") << damaged(end) + issuer + root << 0 << 3;
    QTest::newRow("second of three") << end + damaged(issuer) + root << 1 << 2;
    QTest::newRow("last of three") << end + issuer + damaged(root) << 2 << 1;
    QTest::newRow("the only one") << damaged(end) << 0 << 1;
    QTest::newRow("no end line") << end + issuer.left(issuer.indexOf("-----END")) << 1 << 1;
    QTest::newRow("a damaged key between")
        << end + damaged(m_end.keyPem()).replace("-----END", "----END") + issuer << 1 << 1;
}

void tst_FerruleCertificates::damagedFile()
{
    QFETCH(QByteArray, content);
    QFETCH(int, read);
    QFETCH(int, notRead);
    CertificatesProgram program(words("-"));
    QCOMPARE(program.run(content), 3);
    const QByteArray expected =
        "-: damaged: certificates read before the damage: " + QByteArray::number(read)
        + ", not read: " + QByteArray::number(notRead) + "\n";
    QVERIFY2(program.errors().endsWith(expected), program.errors().constData());
    QVERIFY(isOneLine(program.errors()));
    QCOMPARE(program.output().count("\ncertificate "), read);
    QCOMPARE(program.shows("judgement    none: the file is damaged"), read > 0);
}

void tst_FerruleCertificates::bytesBehindDerAreDamage()
{
    CertificatesProgram program(words("-"));
    QCOMPARE(program.run(m_end.der() + m_issuer.der()), 3);
    QVERIFY(program.errors().contains("-: damaged: more than one certificate in DER"));
    VERIFY_SHOWS(program, "certificate  1 of 1: end certificate");
    VERIFY_SHOWS(program, "judgement    none: the file is damaged");
}

void tst_FerruleCertificates::severalFilesAreShownAndTheFirstFailureCounts()
{
    const QString missing = m_directory.path() + QStringLiteral("/missing");
    const QString broken =
        m_directory.write(QStringLiteral("broken.pem"), damaged(m_end.certificatePem()));
    CertificatesProgram program(
        {fileOf({m_end}, "1.pem"), broken, missing, fileOf({m_root}, "2.pem")});
    QCOMPARE(program.run(), 3);
    QCOMPARE(program.output().count("\nfile "), 2);
    VERIFY_SHOWS(program, "certificate  1 of 1: end certificate");
    VERIFY_SHOWS(program, "certificate  1 of 1: end certificate and root");
    QCOMPARE(program.errors().count('\n'), 2);
}

void tst_FerruleCertificates::pemIsWrittenBackUnchanged()
{
    const QString file = fileOf({m_end, m_issuer, m_root});
    const QString out = m_directory.path() + QStringLiteral("/out.pem");
    CertificatesProgram program({QStringLiteral("--pem"), out, file});
    QCOMPARE(program.run(), 0);
    QCOMPARE(contentOf(out), contentOf(file));
}

void tst_FerruleCertificates::derIsWrittenBackUnchanged()
{
    const QString out = m_directory.path() + QStringLiteral("/out.der");
    const QString pem = m_directory.path() + QStringLiteral("/of-der.pem");
    CertificatesProgram program(
        {QStringLiteral("--der"), out, QStringLiteral("--pem"), pem, QStringLiteral("-")});
    QCOMPARE(program.run(m_end.der()), 0);
    QCOMPARE(contentOf(out), m_end.der());
    QCOMPARE(contentOf(pem), m_end.certificatePem());
}

void tst_FerruleCertificates::derHoldsTheEndCertificateAlone()
{
    const QString out = m_directory.path() + QStringLiteral("/end.der");
    CertificatesProgram program({QStringLiteral("--der"), out, fileOf({m_end, m_issuer})});
    QCOMPARE(program.run(), 0);
    QCOMPARE(contentOf(out), m_end.der());
}

void tst_FerruleCertificates::longerOldFileIsReplacedAsAWhole()
{
    const QString file = fileOf({m_end, m_issuer, m_root}, "old.pem");
    CertificatesProgram program({QStringLiteral("--pem"), file, QStringLiteral("-")});
    QCOMPARE(program.run(m_end.certificatePem()), 0);
    QCOMPARE(contentOf(file), m_end.certificatePem());
}

void tst_FerruleCertificates::fileThatCannotBeWritten()
{
    for (const char* option : {"--pem", "--der"}) {
        const QString out = m_directory.path() + QStringLiteral("/missing/out");
        CertificatesProgram program({QString::fromLatin1(option), out, fileOf({m_end})});
        QCOMPARE(program.run(), 5);
        QVERIFY2(isOneLine(program.errors()), program.errors().constData());
        QVERIFY(program.errors().contains(out.toLocal8Bit() + ": "));
        VERIFY_SHOWS(program, "certificate  1 of 1: end certificate");
    }
}

void tst_FerruleCertificates::nothingIsWrittenFromADamagedFile()
{
    const QString out = m_directory.path() + QStringLiteral("/untouched.pem");
    CertificatesProgram program({QStringLiteral("--pem"), out, QStringLiteral("-")});
    QCOMPARE(program.run(m_end.certificatePem() + damaged(m_issuer.certificatePem())), 3);
    QVERIFY(!QFileInfo::exists(out));
}

void tst_FerruleCertificates::standardOutputFails()
{
    if (!QFile::exists(QStringLiteral("/dev/full")))
        QSKIP("no /dev/full on this machine");
    CertificatesProgram program({fileOf({m_end})});
    program.setStandardOutputFile(QStringLiteral("/dev/full"));
    QCOMPARE(program.run(), 6);
    QVERIFY2(isOneLine(program.errors()), program.errors().constData());
    QVERIFY(program.errors().startsWith("ferrule-certificates: standard output: No space left"));
}

QTEST_GUILESS_MAIN(tst_FerruleCertificates)
#include "tst_ferrulecertificates.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    Trusted roots that cannot be read: the others stay trusted, and each reading leaves one line in
    the log. The roots of these tests are one in the bundle, one in a directory and one of the user.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include "store/platform/linux/roots/RootCache.h"
#include "store/platform/linux/roots/RootReport.h"
#include "tests/common/LogStream.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <openssl/err.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <memory>

using test::leafPlan;
using test::PlannedCertificate;
using test::toPem;

namespace {

// What the library's calls of these functions meet with.
int openError = 0;
int readError = 0;
QByteArray onlyPathThere; //!< Nothing else is, unless empty.

} // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
int __real_stat(const char* path, struct stat* status);

int __wrap_open(const char* path, int flags, ...)
{
    if (openError != 0) {
        errno = openError;
        return -1;
    }
    return __real_open(path, flags);
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size)
{
    if (readError != 0) {
        errno = readError;
        return -1;
    }
    return __real_read(descriptor, buffer, size);
}

int __wrap_stat(const char* path, struct stat* status)
{
    if (!onlyPathThere.isEmpty() && !QByteArray(path).startsWith(onlyPathThere)) {
        errno = ENOENT;
        return -1;
    }
    return __real_stat(path, status);
}

} // extern "C"

namespace {

QByteArray selfSigned(const char* name)
{
    return PlannedCertificate(leafPlan(QString::fromLatin1(name))).der();
}

QByteArray block(const QByteArray& content)
{
    return "-----BEGIN CERTIFICATE-----\n" + content + "\n-----END CERTIFICATE-----\n";
}

//! A block that is whole, around something that is no certificate.
QByteArray garbageBlock()
{
    return toPem("no certificate");
}

void makePipe(const QString& path)
{
    if (mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
        qFatal("mkfifo: %s", qPrintable(path));
}

} // namespace

class RootFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void soundRootsLeaveNoLine();
    void bundleThatCannotBeUsed_data();
    void bundleThatCannotBeUsed();
    void damageInTheBundle_data();
    void damageInTheBundle();
    void bundleThatCannotBeRead_data();
    void bundleThatCannotBeRead();
    void directoryThatCannotBeUsed_data();
    void directoryThatCannotBeUsed();
    void otherThingsInADirectoryAreNoFault();
    void userFileThatCannotBeUsed_data();
    void userFileThatCannotBeUsed();
    void userDirectoryThatCannotBeUsed_data();
    void userDirectoryThatCannotBeUsed();
    void systemWithoutABundle();
    void severalFaultsMakeOneLine();
    void nameCannotBreakTheLine();
    void eachReadingMakesALine();
    void readingLeavesNothingInTheErrorQueue();

private:
    using Action = std::function<void()>;

    QString directory() const { return m_roots->path(QStringLiteral("certs")); }
    QString userFile() const { return m_roots->userDirectory() + QStringLiteral("/mine.pem"); }
    //! Returns which of the three roots are trusted, after a new reading of all.
    QString trusted();
    QString line(const QString& faults) const;
    QString line(const QString& path, const QString& reason) const;

    QByteArray m_inBundle;
    QByteArray m_inDirectory;
    QByteArray m_ofUser;
    std::unique_ptr<test::TrustedRoots> m_roots;
    std::unique_ptr<test::LogStream> m_log;
};

void RootFaultsTest::initTestCase()
{
    m_inBundle = selfSigned("in the bundle");
    m_inDirectory = selfSigned("in the directory");
    m_ofUser = selfSigned("of the user");
}

void RootFaultsTest::init()
{
    m_roots = std::make_unique<test::TrustedRoots>();
    m_roots->environment().set("SSL_CERT_DIR", QFile::encodeName(directory()));
    m_roots->setRoots({m_inBundle});
    test::writeFile(directory() + QStringLiteral("/other.pem"), toPem(m_inDirectory));
    test::writeFile(userFile(), toPem(m_ofUser));
    QCOMPARE(chmod(QFile::encodeName(m_roots->userDirectory()).constData(), 0700), 0);
    QCOMPARE(chmod(QFile::encodeName(userFile()).constData(), 0600), 0);
    m_log = std::make_unique<test::LogStream>();
}

void RootFaultsTest::cleanup()
{
    openError = 0;
    readError = 0;
    onlyPathThere.clear();
    m_log.reset();
    m_roots.reset();
}

QString RootFaultsTest::trusted()
{
    test::ChainClient client;
    const test::ChainClient another; // What has been read is not read again.
    QString names;
    const QList<QPair<QByteArray, QString>> roots = {{m_inBundle, QStringLiteral("bundle ")},
                                                     {m_inDirectory, QStringLiteral("directory ")},
                                                     {m_ofUser, QStringLiteral("user")}};
    for (const auto& root : roots) {
        if (client.ask(root.first).errors == CERT_TRUST_NO_ERROR)
            names += root.second;
    }
    return names.trimmed();
}

QString RootFaultsTest::line(const QString& faults) const
{
    return QStringLiteral("Ferrule failure: [vela::RootCache::current] "
                          "Trusted roots passed over: %1\n")
        .arg(faults);
}

QString RootFaultsTest::line(const QString& path, const QString& reason) const
{
    return line(path + QStringLiteral(": ") + reason);
}

void RootFaultsTest::soundRootsLeaveNoLine()
{
    QCOMPARE(trusted(), QStringLiteral("bundle directory user"));
    m_roots->environment().set("SSL_CERT_DIR", "");
    QCOMPARE(trusted(), QStringLiteral("bundle user"));
    m_roots->environment().set("SSL_CERT_FILE", "");
    QVERIFY(QDir(m_roots->path(QStringLiteral("data"))).removeRecursively());
    QCOMPARE(trusted(), QString());
    QCOMPARE(m_log->text(), QString());
}

void RootFaultsTest::bundleThatCannotBeUsed_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* what, const char* reason) {
        QTest::newRow(what) << QString::fromLatin1(what) << QString::fromLatin1(reason);
    };
    row("missing", "No such file or directory");
    row("directory", "not a regular file");
    row("pipe", "not a regular file");
    row("device", "not a regular file");
    row("link to nothing", "No such file or directory");
    row("link to itself", "Too many levels of symbolic links");
    row("below a file", "Not a directory");
    row("empty", "no certificates");
}

void RootFaultsTest::bundleThatCannotBeUsed()
{
    QFETCH(QString, what);
    QFETCH(QString, reason);
    QString path = m_roots->bundlePath();
    const std::map<QString, Action> actions = {
        {QStringLiteral("directory"), [&] { QDir().mkdir(path); }},
        {QStringLiteral("pipe"), [&] { makePipe(path); }},
        {QStringLiteral("device"), [&] { QFile::link(QStringLiteral("/dev/full"), path); }},
        {QStringLiteral("link to nothing"), [&] { QFile::link(path + QLatin1Char('x'), path); }},
        {QStringLiteral("link to itself"), [&] { QFile::link(path, path); }},
        {QStringLiteral("below a file"),
         [&] {
             path = userFile() + QStringLiteral("/bundle.pem");
             m_roots->environment().set("SSL_CERT_FILE", QFile::encodeName(path));
         }},
        {QStringLiteral("empty"), [&] { m_roots->setBundle(QByteArray()); }},
    };
    QVERIFY(QFile::remove(path));
    if (actions.count(what) != 0)
        actions.at(what)();
    QCOMPARE(trusted(), QStringLiteral("directory user"));
    QCOMPARE(m_log->text(), line(path, reason));
}

void RootFaultsTest::damageInTheBundle_data()
{
    QTest::addColumn<QByteArray>("bundle");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<bool>("isRootLeft");
    const QString one = QStringLiteral("1 damaged certificate");
    const QString none = QStringLiteral("no certificates");
    const QByteArray good = toPem(m_inBundle);
    const QByteArray other = toPem(selfSigned("other"));
    const auto row = [](const char* name, const QByteArray& bundle, const QString& reason,
                        bool isRootLeft) { QTest::newRow(name) << bundle << reason << isRootLeft; };
    row("garbage in front", garbageBlock() + good, one, true);
    row("garbage in the middle", other + garbageBlock() + good, one, true);
    row("garbage at the end", good + garbageBlock(), one, true);
    row("not base64", other + block("!!!! ????") + good, one, true);
    row("empty block", other + block("") + good, one, true);
    row("block without an end", good + "-----BEGIN CERTIFICATE-----\nMIIB", one, true);
    row("last block cut off", good + other.left(other.size() / 2), one, true);
    row("three of them", garbageBlock() + good + garbageBlock() + garbageBlock(),
        QStringLiteral("3 damaged certificates"), true);
    row("certificate cut short", other + toPem(m_inBundle.left(m_inBundle.size() - 5)), one, false);
    row("nothing else", garbageBlock(), one, false);
    row("DER", m_inBundle, none, false);
    row("text", "There is nothing here.\n", none, false);
    row("zeros", QByteArray(1000, '\0'), none, false);
    row("a list of revoked certificates",
        "-----BEGIN X509 CRL-----\nMAA=\n-----END X509 CRL-----\n", none, false);
}

void RootFaultsTest::damageInTheBundle()
{
    QFETCH(QByteArray, bundle);
    QFETCH(QString, reason);
    QFETCH(bool, isRootLeft);
    m_roots->setBundle(bundle);
    QCOMPARE(trusted(), isRootLeft ? QStringLiteral("bundle directory user")
                                   : QStringLiteral("directory user"));
    QCOMPARE(m_log->text(), line(m_roots->bundlePath(), reason));
}

void RootFaultsTest::bundleThatCannotBeRead_data()
{
    QTest::addColumn<int>("errorOfOpen");
    QTest::addColumn<int>("errorOfRead");
    QTest::addColumn<bool>("isHuge");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no permission") << EACCES << 0 << false << QStringLiteral("Permission denied");
    QTest::newRow("no descriptor left")
        << EMFILE << 0 << false << QStringLiteral("Too many open files");
    QTest::newRow("disk fault") << 0 << EIO << false << QStringLiteral("Input/output error");
    QTest::newRow("huge") << 0 << 0 << true << QStringLiteral("File too large");
}

void RootFaultsTest::bundleThatCannotBeRead()
{
    QFETCH(int, errorOfOpen);
    QFETCH(int, errorOfRead);
    QFETCH(bool, isHuge);
    QFETCH(QString, reason);
    m_roots->environment().set("SSL_CERT_DIR", "");
    QVERIFY(QFile::remove(userFile()));
    if (isHuge)
        QVERIFY(QFile::resize(m_roots->bundlePath(), 65 * 1024 * 1024));
    openError = errorOfOpen;
    readError = errorOfRead;
    QCOMPARE(trusted(), QString());
    QCOMPARE(m_log->text(), line(m_roots->bundlePath(), reason));
}

void RootFaultsTest::directoryThatCannotBeUsed_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reason");
    QTest::newRow("missing") << QStringLiteral("missing")
                             << QStringLiteral("No such file or directory");
    QTest::newRow("file") << QStringLiteral("file") << QStringLiteral("not a directory");
}

void RootFaultsTest::directoryThatCannotBeUsed()
{
    QFETCH(QString, name);
    QFETCH(QString, reason);
    test::writeFile(m_roots->path(QStringLiteral("file")), toPem(m_inDirectory));
    const QString path = m_roots->path(name);
    m_roots->environment().set("SSL_CERT_DIR", QFile::encodeName(path));
    QCOMPARE(trusted(), QStringLiteral("bundle user"));
    QCOMPARE(m_log->text(), line(path, reason));
}

void RootFaultsTest::otherThingsInADirectoryAreNoFault()
{
    test::writeFile(directory() + QStringLiteral("/README"), "Not a certificate.\n");
    test::writeFile(directory() + QStringLiteral("/java/cacerts"), "binary");
    makePipe(directory() + QStringLiteral("/pipe.pem"));
    QVERIFY(QFile::link(QStringLiteral("missing"), directory() + QStringLiteral("/gone.0")));
    QCOMPARE(trusted(), QStringLiteral("bundle directory user"));
    QCOMPARE(m_log->text(), QString());
}

void RootFaultsTest::userFileThatCannotBeUsed_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* what, const char* reason) {
        QTest::newRow(what) << QString::fromLatin1(what) << QString::fromLatin1(reason);
    };
    row("empty", "no certificates");
    row("damaged", "1 damaged certificate");
    row("pipe", "not a regular file");
    row("directory", "not a regular file");
    row("link to nothing", "No such file or directory");
    row("for others to write", "in the reach of other users");
}

void RootFaultsTest::userFileThatCannotBeUsed()
{
    QFETCH(QString, what);
    QFETCH(QString, reason);
    const QString path = userFile();
    const QByteArray encodedPath = QFile::encodeName(path);
    const std::map<QString, Action> actions = {
        {QStringLiteral("empty"), [&] { QVERIFY(QFile::resize(path, 0)); }},
        {QStringLiteral("damaged"), [&] { test::writeFile(path, garbageBlock()); }},
        {QStringLiteral("pipe"),
         [&] {
             QVERIFY(QFile::remove(path));
             makePipe(path);
         }},
        {QStringLiteral("directory"),
         [&] {
             QVERIFY(QFile::remove(path));
             QDir().mkdir(path);
         }},
        {QStringLiteral("link to nothing"),
         [&] {
             QVERIFY(QFile::remove(path));
             QFile::link(QStringLiteral("missing"), path);
         }},
        {QStringLiteral("for others to write"),
         [&] { QCOMPARE(chmod(encodedPath.constData(), 0620), 0); }},
    };
    actions.at(what)();
    QCOMPARE(trusted(), QStringLiteral("bundle directory"));
    QCOMPARE(m_log->text(), line(path, reason));
}

void RootFaultsTest::userDirectoryThatCannotBeUsed_data()
{
    QTest::addColumn<bool>("isFile");
    QTest::addColumn<QString>("reason");
    QTest::newRow("file") << true << QStringLiteral("not a directory");
    QTest::newRow("for others to write") << false << QStringLiteral("in the reach of other users");
}

void RootFaultsTest::userDirectoryThatCannotBeUsed()
{
    QFETCH(bool, isFile);
    QFETCH(QString, reason);
    const QString path = m_roots->userDirectory();
    if (isFile) {
        QVERIFY(QDir(path).removeRecursively());
        test::writeFile(path, toPem(m_ofUser));
    } else {
        QCOMPARE(chmod(QFile::encodeName(path).constData(), 0770), 0);
    }
    QCOMPARE(trusted(), QStringLiteral("bundle directory"));
    QCOMPARE(m_log->text(), line(path, reason));
}

void RootFaultsTest::systemWithoutABundle()
{
    m_roots->environment().set("SSL_CERT_FILE", QByteArray());
    m_roots->environment().set("SSL_CERT_DIR", QByteArray());
    onlyPathThere = QFile::encodeName(m_roots->path(QString()));
    QCOMPARE(trusted(), QStringLiteral("user"));
    QCOMPARE(m_log->text(),
             line(QStringLiteral("the system"), QStringLiteral("no bundle of authorities found")));
}

void RootFaultsTest::severalFaultsMakeOneLine()
{
    QStringList faults;
    m_roots->setBundle(garbageBlock());
    faults.append(m_roots->bundlePath() + QStringLiteral(": 1 damaged certificate"));
    for (int i = 1; i <= 7; ++i) {
        const QString path = directory() + QStringLiteral("/%1.pem").arg(i);
        test::writeFile(path, garbageBlock());
        faults.append(path + QStringLiteral(": 1 damaged certificate"));
    }
    QCOMPARE(trusted(), QStringLiteral("directory user"));
    const int named = int(vela::RootReport::MAX_NAMED);
    QCOMPARE(named, 5);
    QCOMPARE(m_log->text(), line(QStringList(faults.mid(0, named)).join(QStringLiteral("; "))
                                 + QStringLiteral("; 3 more")));
}

void RootFaultsTest::nameCannotBreakTheLine()
{
    const QString path = m_roots->path(QStringLiteral("two\nlines\x1b.pem"));
    m_roots->environment().set("SSL_CERT_FILE", QFile::encodeName(path));
    QCOMPARE(trusted(), QStringLiteral("directory user"));
    QCOMPARE(m_log->text(), line(m_roots->path(QStringLiteral("two?lines?.pem")),
                                 QStringLiteral("No such file or directory")));
}

void RootFaultsTest::eachReadingMakesALine()
{
    m_roots->setBundle(toPem(m_inBundle) + garbageBlock());
    const QString once = line(m_roots->bundlePath(), QStringLiteral("1 damaged certificate"));
    QCOMPARE(trusted(), QStringLiteral("bundle directory user"));
    QCOMPARE(trusted(), QStringLiteral("bundle directory user"));
    QCOMPARE(m_log->text(), once);
    QVERIFY(QFile::remove(userFile()));
    QCOMPARE(trusted(), QStringLiteral("bundle directory"));
    QCOMPARE(m_log->text(), once + once);
    m_roots->setRoots({m_inBundle});
    QCOMPARE(trusted(), QStringLiteral("bundle directory"));
    QCOMPARE(m_log->text(), once + once);
}

void RootFaultsTest::readingLeavesNothingInTheErrorQueue()
{
    ERR_clear_error();
    m_roots->setBundle(garbageBlock() + block("!!!!") + toPem(m_inBundle) + "-----BEGIN");
    trusted();
    QCOMPARE(ERR_peek_error(), 0UL);
}

QTEST_GUILESS_MAIN(RootFaultsTest)
#include "tst_rootfaults.moc"

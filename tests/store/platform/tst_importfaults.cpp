// SPDX-License-Identifier: BSD-3-Clause

/*
    Roots that cannot be added for the user: the answer, the line in the log, and that everything
    stays as it was.
*/

#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include "store/platform/CryptoApi.h"
#include "tests/common/LogStream.h"
#include "tests/store/StoreCertificates.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>

using test::leafPlan;
using test::PlannedCertificate;
using vela::WinCertStore;

namespace {

// What the library's calls of these functions meet with.
int writeError = 0; //!< After some bytes have been written.
int syncError = 0;
bool isWritingInterrupted = false; //!< Each write at first, and then it writes a single byte.

} // namespace

extern "C" {

ssize_t __real_write(int descriptor, const void* buffer, size_t size);
int __real_fsync(int descriptor);

ssize_t __wrap_write(int descriptor, const void* buffer, size_t size)
{
    static int calls = 0;
    if (writeError == 0 && !isWritingInterrupted)
        return __real_write(descriptor, buffer, size);
    if (++calls % 2 != 0)
        return isWritingInterrupted ? (errno = EINTR, -1) : __real_write(descriptor, buffer, 10);
    if (isWritingInterrupted)
        return __real_write(descriptor, buffer, 1);
    errno = writeError;
    return -1;
}

int __wrap_fsync(int descriptor)
{
    if (syncError == 0)
        return __real_fsync(descriptor);
    errno = syncError;
    return -1;
}

} // extern "C"

namespace {

/*! Lets no file of the process grow beyond some bytes, as on a disk that is full. */
class SizeLimit
{
public:
    explicit SizeLimit(rlim_t size)
        : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = size;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            qFatal("SizeLimit: %s", qPrintable(qt_error_string()));
    }

    ~SizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    Q_DISABLE_COPY(SizeLimit)

    void (*const m_handler)(int);
    rlimit m_before = {};
};

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

mode_t modeOf(const QString& path)
{
    struct stat status = {};
    stat(QFile::encodeName(path).constData(), &status);
    return status.st_mode;
}

} // namespace

class ImportFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void directoryThatCannotBeMade_data();
    void directoryThatCannotBeMade();
    void fullDisk();
    void faultWhileWriting_data();
    void faultWhileWriting();
    void nameTakenByADirectory();
    void pipeIsReplacedWithoutWaiting();
    void linkIsReplacedAndItsTargetStays_data();
    void linkIsReplacedAndItsTargetStays();
    void plantedLinkIsNotFollowed_data();
    void plantedLinkIsNotFollowed();
    void linkAboveTheUsersDataIsFollowed();
    void writingGoesOnAfterAnInterruption();
    void successLeavesNoLine();

private:
    bool import() { return m_store->importSystemRootCert(m_certificate); }
    //! The file of the certificate that the tests import.
    QString path() const;
    QString line(int code) const;
    //! Imports another root, which has to stay as it is, and returns the path of its file.
    QString importAnother();
    QStringList files() const;

    QByteArray m_der;
    vela::SslCertificatePtr m_certificate;
    std::unique_ptr<test::TrustedRoots> m_roots;
    std::unique_ptr<WinCertStore> m_store;
    std::unique_ptr<test::LogStream> m_log;
};

void ImportFaultsTest::init()
{
    m_roots = std::make_unique<test::TrustedRoots>();
    m_roots->environment().set("SSL_CERT_FILE", "");
    m_der = PlannedCertificate(leafPlan(QStringLiteral("imported"))).der();
    m_certificate = test::parse(test::toPem(m_der));
    m_store = std::make_unique<WinCertStore>(nullptr);
    m_log = std::make_unique<test::LogStream>();
}

void ImportFaultsTest::cleanup()
{
    writeError = 0;
    syncError = 0;
    isWritingInterrupted = false;
    m_log.reset();
    m_store.reset();
    m_roots.reset();
}

QString ImportFaultsTest::path() const
{
    const QByteArray digest = QCryptographicHash::hash(m_der, QCryptographicHash::Sha256).toHex();
    return m_roots->userDirectory() + QLatin1Char('/') + QString::fromLatin1(digest)
           + QStringLiteral(".pem");
}

QString ImportFaultsTest::line(int code) const
{
    return QStringLiteral("Ferrule failure: [vela::WinCertStore::importSystemRootCert] %1: \n")
        .arg(code);
}

QString ImportFaultsTest::importAnother()
{
    const QByteArray der = PlannedCertificate(leafPlan(QStringLiteral("another"))).der();
    if (!m_store->importSystemRootCert(test::parse(test::toPem(der))))
        qFatal("the other root was not imported");
    return m_roots->userDirectory() + QLatin1Char('/') + files().value(0);
}

QStringList ImportFaultsTest::files() const
{
    return QDir(m_roots->userDirectory())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

void ImportFaultsTest::directoryThatCannotBeMade_data()
{
    QTest::addColumn<QString>("home");
    QTest::newRow("below a file") << QStringLiteral("file");
    QTest::newRow("below a file's child") << QStringLiteral("file/child");
    QTest::newRow("below a device") << QStringLiteral("/dev/null");
    QTest::newRow("where nobody can write") << QStringLiteral("/proc/self");
    QTest::newRow("below a link to nothing") << QStringLiteral("link");
}

void ImportFaultsTest::directoryThatCannotBeMade()
{
    QFETCH(QString, home);
    const QString file = m_roots->path(QStringLiteral("file"));
    test::writeFile(file, "content");
    QVERIFY(
        QFile::link(QStringLiteral("/proc/self/missing"), m_roots->path(QStringLiteral("link"))));
    m_roots->environment().set("XDG_DATA_HOME", QFile::encodeName(m_roots->path(home)));
    QVERIFY(!import());
    QCOMPARE(m_log->text(), line(ERROR_ACCESS_DENIED));
    QCOMPARE(contentOf(file), QByteArray("content"));
}

void ImportFaultsTest::fullDisk()
{
    const QString other = importAnother();
    const QByteArray content = contentOf(other);
    bool isImported = true;
    {
        const SizeLimit limit(100);
        isImported = import();
    }
    QVERIFY(!isImported);
    QCOMPARE(m_log->text(), line(ERROR_WRITE_FAULT));
    QCOMPARE(files(), QStringList(QFileInfo(other).fileName()));
    QCOMPARE(contentOf(other), content);
    QVERIFY(import());
    QCOMPARE(files().size(), 2);
}

void ImportFaultsTest::faultWhileWriting_data()
{
    QTest::addColumn<int>("errorOfWrite");
    QTest::addColumn<int>("errorOfSync");
    QTest::newRow("no space") << ENOSPC << 0;
    QTest::newRow("disk fault") << EIO << 0;
    QTest::newRow("no space, found late") << 0 << ENOSPC;
}

void ImportFaultsTest::faultWhileWriting()
{
    QFETCH(int, errorOfWrite);
    QFETCH(int, errorOfSync);
    test::writeFile(path(), "damaged, but the user's own");
    writeError = errorOfWrite;
    syncError = errorOfSync;
    QVERIFY(!import());
    QCOMPARE(m_log->text(), line(ERROR_WRITE_FAULT));
    QCOMPARE(files(), QStringList(QFileInfo(path()).fileName()));
    QCOMPARE(contentOf(path()), QByteArray("damaged, but the user's own"));
}

void ImportFaultsTest::nameTakenByADirectory()
{
    test::writeFile(path() + QStringLiteral("/file"), "content");
    QVERIFY(!import());
    QCOMPARE(m_log->text(), line(ERROR_WRITE_FAULT));
    QCOMPARE(files(), QStringList(QFileInfo(path()).fileName()));
    QCOMPARE(contentOf(path() + QStringLiteral("/file")), QByteArray("content"));
}

void ImportFaultsTest::pipeIsReplacedWithoutWaiting()
{
    QVERIFY(QDir().mkpath(m_roots->userDirectory()));
    QCOMPARE(mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
    QVERIFY(import());
    QCOMPARE(modeOf(path()), mode_t(S_IFREG | 0600));
    QCOMPARE(contentOf(path()), test::toPem(m_der));
}

void ImportFaultsTest::linkIsReplacedAndItsTargetStays_data()
{
    QTest::addColumn<bool>("isTargetTheSame");
    QTest::newRow("another file") << false;
    QTest::newRow("a file with the certificate") << true;
}

void ImportFaultsTest::linkIsReplacedAndItsTargetStays()
{
    QFETCH(bool, isTargetTheSame);
    const QByteArray content = isTargetTheSame ? test::toPem(m_der) : QByteArray("content");
    const QString target = m_roots->path(QStringLiteral("precious"));
    test::writeFile(target, content);
    QVERIFY(QDir().mkpath(m_roots->userDirectory()));
    QVERIFY(QFile::link(target, path()));
    QVERIFY(import());
    QVERIFY(!QFileInfo(path()).isSymLink());
    QCOMPARE(contentOf(path()), test::toPem(m_der));
    QCOMPARE(contentOf(target), content);
    QCOMPARE(files().size(), 1);
}

void ImportFaultsTest::plantedLinkIsNotFollowed_data()
{
    QTest::addColumn<QString>("link");
    QTest::newRow("the directory of roots") << QStringLiteral("/ferrule/roots");
    QTest::newRow("the one above") << QStringLiteral("/ferrule");
}

//! Somebody else has made the link, to a directory where this process may do what he may not.
void ImportFaultsTest::plantedLinkIsNotFollowed()
{
    QFETCH(QString, link);
    const QString data = m_roots->path(QStringLiteral("planted"));
    const QString target = m_roots->path(QStringLiteral("target"));
    QVERIFY(QDir().mkpath(target) && QDir().mkpath(QFileInfo(data + link).path()));
    QCOMPARE(chmod(QFile::encodeName(target).constData(), 0755), 0);
    QVERIFY(QFile::link(target, data + link));
    m_roots->environment().set("XDG_DATA_HOME", QFile::encodeName(data));
    QVERIFY(!import());
    QCOMPARE(m_log->text(), line(ERROR_ACCESS_DENIED));
    QCOMPARE(modeOf(target), mode_t(S_IFDIR | 0755));
    QVERIFY(QDir(target).isEmpty());
}

//! That is where the user wants the data of programs.
void ImportFaultsTest::linkAboveTheUsersDataIsFollowed()
{
    const QString target = m_roots->path(QStringLiteral("target"));
    QVERIFY(QDir().mkpath(target));
    QVERIFY(QFile::link(target, m_roots->path(QStringLiteral("link to data"))));
    m_roots->environment().set("XDG_DATA_HOME",
                               QFile::encodeName(m_roots->path(QStringLiteral("link to data"))));
    QVERIFY(import());
    QCOMPARE(QDir(target + QStringLiteral("/ferrule/roots")).count(), 3U); // And two periods.
}

void ImportFaultsTest::writingGoesOnAfterAnInterruption()
{
    isWritingInterrupted = true;
    const bool isImported = import();
    isWritingInterrupted = false;
    QVERIFY(isImported);
    QCOMPARE(contentOf(path()), test::toPem(m_der));
}

void ImportFaultsTest::successLeavesNoLine()
{
    QVERIFY(import());
    QVERIFY(import());
    QCOMPARE(m_log->text(), QString());
    QCOMPARE(files().size(), 1);
    QCOMPARE(modeOf(path()), mode_t(S_IFREG | 0600));
    QCOMPARE(modeOf(m_roots->userDirectory()), mode_t(S_IFDIR | 0700));
}

QTEST_GUILESS_MAIN(ImportFaultsTest)
#include "tst_importfaults.moc"

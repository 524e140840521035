// SPDX-License-Identifier: BSD-3-Clause
#include "TrustedRoots.h"

#include "store/platform/linux/roots/RegularFile.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <sys/stat.h>

#include <cerrno>
#include <functional>

namespace {

constexpr int MAX_SIZE = 100000;

} // namespace

using Action = std::function<void(const QString&)>;

Q_DECLARE_METATYPE(Action)

class RegularFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void contentIsReadAsAWhole_data();
    void contentIsReadAsAWhole();
    void largerFileIsRefused();
    void contentThatIsLongerThanItsFileSaysIsRead();
    void whatIsNoFileIsRefusedAtOnce_data();
    void whatIsNoFileIsRefusedAtOnce();

private:
    vela::FileContent read() const
    {
        return vela::readRegularFile(QFile::encodeName(path()).toStdString(), MAX_SIZE);
    }
    QString path() const { return m_directory.filePath(QStringLiteral("file")); }

    QTemporaryDir m_directory;
};

void RegularFileTest::contentIsReadAsAWhole_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 1000, MAX_SIZE - 1, MAX_SIZE})
        QTest::addRow("%d bytes", size) << size;
}

void RegularFileTest::contentIsReadAsAWhole()
{
    QFETCH(int, size);
    QByteArray content(size, '\0');
    for (int i = 0; i < size; ++i)
        content[i] = char(i % 251);
    test::writeFile(path(), content);
    QCOMPARE(read().bytes, content);
    QCOMPARE(read().error, 0);
}

void RegularFileTest::largerFileIsRefused()
{
    test::writeFile(path(), QByteArray(MAX_SIZE + 1, 'x'));
    QCOMPARE(read().error, EFBIG);
    QCOMPARE(read().bytes, QByteArray());
}

void RegularFileTest::contentThatIsLongerThanItsFileSaysIsRead()
{
    // Such as the kernel's own, which have content but no size.
    const vela::FileContent content = vela::readRegularFile("/proc/self/stat", MAX_SIZE);
    QCOMPARE(content.error, 0);
    QVERIFY(content.bytes.startsWith(QByteArray::number(QCoreApplication::applicationPid()) + ' '));
    QVERIFY(content.bytes.endsWith('\n'));
}

void RegularFileTest::whatIsNoFileIsRefusedAtOnce_data()
{
    QTest::addColumn<Action>("make");
    QTest::addColumn<int>("error");
    const auto row = [](const char* name, int error, const Action& make) {
        QTest::newRow(name) << make << error;
    };
    row("nothing", ENOENT, [](const QString&) {});
    row("directory", EISDIR, [](const QString& path) { QVERIFY(QDir().mkdir(path)); });
    row("pipe", EINVAL, [](const QString& path) {
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    });
    row("device", EINVAL,
        [](const QString& path) { QVERIFY(QFile::link(QStringLiteral("/dev/zero"), path)); });
    row("link to itself", ELOOP, [](const QString& path) { QVERIFY(QFile::link(path, path)); });
}

void RegularFileTest::whatIsNoFileIsRefusedAtOnce()
{
    QFETCH(Action, make);
    QFETCH(int, error);
    QFile::remove(path());
    QDir().rmdir(path());
    make(path());
    QCOMPARE(read().error, error);
    QCOMPARE(read().bytes, QByteArray());
}

QTEST_GUILESS_MAIN(RegularFileTest)
#include "tst_regularfile.moc"

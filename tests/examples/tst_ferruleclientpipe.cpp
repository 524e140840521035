// SPDX-License-Identifier: BSD-3-Clause
// ferrule-client as part of a pipe: what it carries, how it ends, and what it keeps in memory.

#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <QtCore/QCryptographicHash>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <poll.h>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;

namespace {

constexpr int MEBIBYTE = 1024 * 1024;

// A sanitizer's own memory says nothing about the program's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr qint64 MEMORY_LIMIT = Q_INT64_C(1) << 40;
#else
constexpr qint64 MEMORY_LIMIT = 48 * MEBIBYTE;
#endif

QByteArray digest(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

/*! A named pipe that the test reads when it pleases. */
class Fifo
{
public:
    Fifo()
        : m_path(m_directory.path() + QStringLiteral("/fifo"))
    {
        if (mkfifo(QFile::encodeName(m_path).constData(), 0600) == 0)
            m_descriptor =
                open(QFile::encodeName(m_path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    ~Fifo() { closeReader(); }

    QString path() const { return m_path; }
    void closeReader()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }
    QByteArray read()
    {
        QByteArray data(MEBIBYTE, Qt::Uninitialized);
        const ssize_t count = ::read(m_descriptor, data.data(), static_cast<size_t>(data.size()));
        data.truncate(static_cast<int>(qMax<ssize_t>(0, count)));
        return data;
    }
    bool isFull() const
    {
        pollfd entry = {m_descriptor, POLLOUT, 0};
        return poll(&entry, 1, 0) == 0;
    }

private:
    PemDirectory m_directory;
    QString m_path;
    int m_descriptor = -1;
};

} // namespace

class tst_FerruleClientPipe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void echoComesBackWhole();
    void bothDirectionsAtOnceLoseNothing();
    void inputOfAnyKindEnds_data();
    void inputOfAnyKindEnds();
    void receivingGoesOnAfterTheInput();
    void closeAfterInputWaitsForTheEcho();
    void unreadableInput();
    void fullDevice();
    void closedOutput();
    void readerOfTheOutputGone();
    void slowReaderHoldsBackThePeer();
    void slowPeerHoldsBackTheInput();

private:
    QString largeFile(const QByteArray& data) const
    {
        return m_directory.write(QStringLiteral("large"), data);
    }

    Authority m_authority;
    PemDirectory m_directory;
};

void tst_FerruleClientPipe::echoComesBackWhole()
{
    const QByteArray data = randomBytes(8 * MEBIBYTE + 1, 1);
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --close-after-input 0"));
    client.start();
    client.write(data);
    QVERIFY(client.waitForSize(data.size()));
    QCOMPARE(client.finishInput(), 0);
    QCOMPARE(digest(client.output()), digest(data));
    QVERIFY(server.waitForOutput(" in 8388609 out 8388609: closed by the client\n"));
}

void tst_FerruleClientPipe::bothDirectionsAtOnceLoseNothing()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    const QByteArray sent = randomBytes(8 * MEBIBYTE, 2);
    const QByteArray received = randomBytes(3 * MEBIBYTE, 3).toHex();
    OpenSslServer server(m_authority, words("-naccept 1"));
    ClientProgram client(server.port(), words("--quiet --close-after-input 0"));
    client.start();
    QVERIFY(server.waitForOutput("Secure Renegotiation IS"));
    server.write(received);
    client.write(sent);
    QVERIFY(client.waitForSize(received.size()));
    QVERIFY(server.waitForOutput(sent.right(64)));
    QCOMPARE(client.finishInput(), 0);
    QCOMPARE(digest(client.output()), digest(received));
    const int begin = server.output().indexOf(sent.left(64));
    QVERIFY(begin > 0);
    QCOMPARE(digest(server.output().mid(begin, sent.size())), digest(sent));
}

void tst_FerruleClientPipe::inputOfAnyKindEnds_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::newRow("file") << QStringLiteral("< %1");
    QTest::newRow("empty device") << QStringLiteral("< /dev/null");
    QTest::newRow("closed") << QStringLiteral("<&-");
    QTest::newRow("pipe") << QString();
}

void tst_FerruleClientPipe::inputOfAnyKindEnds()
{
    QFETCH(QString, redirection);
    const QByteArray data = randomBytes(3 * MEBIBYTE, 4);
    const QString input = m_directory.write(QStringLiteral("small"), "a request\n");
    ServerProgram server(m_authority, {QStringLiteral("--file"), largeFile(data)});
    Program shell(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"), QStringLiteral("exec " CLIENT_PROGRAM " --quiet 127.0.0.1:%1 %2")
                                   .arg(server.port())
                                   .arg(redirection.replace(QStringLiteral("%1"), input))});
    shell.start();
    QCOMPARE(shell.finishInput(), 0);
    QCOMPARE(shell.errors(), QByteArray());
    QCOMPARE(digest(shell.output()), digest(data));
}

void tst_FerruleClientPipe::receivingGoesOnAfterTheInput()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    OpenSslServer server(m_authority, words("-naccept 1"));
    ClientProgram client(server.port(), words("--quiet"));
    client.start();
    client.write("question\n");
    client.closeWriteChannel();
    QVERIFY(server.waitForOutput("question\n"));
    server.write("answer\n");
    QVERIFY(client.waitForOutput("answer\n"));
    server.write("Q\n"); // Ends the server and with it the connection.
    QCOMPARE(client.finish(), 0);
    QCOMPARE(client.output(), QByteArray("answer\n"));
}

void tst_FerruleClientPipe::closeAfterInputWaitsForTheEcho()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet --close-after-input 3"));
    client.start();
    client.write("echo me\n");
    QCOMPARE(client.finishInput(), 0);
    QCOMPARE(client.output(), QByteArray("echo me\n"));
}

void tst_FerruleClientPipe::unreadableInput()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardInputFile(m_directory.path());
    client.start();
    QCOMPARE(client.finish(), 9);
    QVERIFY(client.errors().startsWith("ferrule-client: standard input: "));
    QVERIFY(isOneLine(client.errors()));
}

void tst_FerruleClientPipe::fullDevice()
{
    if (!QFile::exists(QStringLiteral("/dev/full")))
        QSKIP("no /dev/full on this machine");
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardOutputFile(QStringLiteral("/dev/full"));
    client.start();
    client.write("echo me\n");
    QCOMPARE(client.finish(), 9);
    QVERIFY(client.errors().startsWith("ferrule-client: standard output: No space left"));
    QVERIFY(isOneLine(client.errors()));
}

void tst_FerruleClientPipe::closedOutput()
{
    const QString file = largeFile("content\n");
    ServerProgram server(m_authority, {QStringLiteral("--file"), file});
    Program shell(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"),
         QStringLiteral("exec " CLIENT_PROGRAM " --quiet 127.0.0.1:%1 >&-").arg(server.port())});
    shell.start();
    QCOMPARE(shell.finishInput(), 9);
    QVERIFY(shell.errors().startsWith("ferrule-client: standard output: "));
}

void tst_FerruleClientPipe::readerOfTheOutputGone()
{
    Fifo fifo;
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardOutputFile(fifo.path(), QIODevice::Append);
    client.start();
    client.write("echo me\n");
    QByteArray echo;
    QTRY_COMPARE(echo += fifo.read(), QByteArray("echo me\n"));
    fifo.closeReader();
    client.write("and again\n");
    QCOMPARE(client.finish(), 9);
    QVERIFY(client.errors().contains("Broken pipe"));
}

void tst_FerruleClientPipe::slowReaderHoldsBackThePeer()
{
    const QByteArray data = randomBytes(64 * MEBIBYTE, 5);
    Fifo fifo;
    ServerProgram server(m_authority, {QStringLiteral("--file"), largeFile(data)});
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardOutputFile(fifo.path(), QIODevice::Append);
    client.start();
    QTRY_VERIFY_WITH_TIMEOUT(fifo.isFull(), 20000);

    QByteArray received;
    QElapsedTimer clock;
    clock.start();
    while (received.size() < data.size() - 4096 && !clock.hasExpired(60000)) {
        QCoreApplication::processEvents();
        received += fifo.read();
    }
    QVERIFY2(client.peakMemory() < MEMORY_LIMIT,
             QByteArray::number(client.peakMemory()).constData());
    while (client.state() != QProcess::NotRunning && !clock.hasExpired(60000)) {
        QTest::qWait(1);
        received += fifo.read();
    }
    QCOMPARE(client.finish(), 0);
    received += fifo.read();
    QCOMPARE(digest(received), digest(data));
}

void tst_FerruleClientPipe::slowPeerHoldsBackTheInput()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    OpenSslServer server(m_authority, words("-naccept 1"));
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardInputFile(QStringLiteral("/dev/zero"));
    client.start();
    QVERIFY(server.waitForOutput("Secure Renegotiation IS"));
    QCOMPARE(::kill(static_cast<pid_t>(server.processId()), SIGSTOP), 0);

    // The input has no end: without a limit the memory would grow until it is used up.
    qint64 peak = 0;
    int unchanged = 0;
    QTRY_VERIFY_WITH_TIMEOUT((unchanged = client.peakMemory() == peak ? unchanged + 1 : 0,
                              peak = client.peakMemory(), unchanged >= 10 || peak > MEMORY_LIMIT),
                             20000);
    QVERIFY(peak > 0);
    QVERIFY2(peak < MEMORY_LIMIT, QByteArray::number(peak).constData());

    server.kill();
    QCOMPARE(client.finish(), 8);
    QVERIFY2(client.errors().contains("before all input was sent"), client.errors().constData());
    QVERIFY(isOneLine(client.errors()));
}

QTEST_GUILESS_MAIN(tst_FerruleClientPipe)

#include "tst_ferruleclientpipe.moc"

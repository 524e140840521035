// SPDX-License-Identifier: BSD-3-Clause
#include "support/LogFailure.h"
#include "support/TextConversion.h"

#include "tests/common/LogStream.h"

#include <Ferrule/Log.h>

#include <QtTest/QtTest>

#include <atomic>
#include <chrono>
#include <future>
#include <iomanip>
#include <locale>
#include <stdexcept>
#include <thread>
#include <vector>

using test::LogStream;
using vela::Log;

namespace {

//! Writes numbers as "1.234.567".
class Grouping : public std::numpunct<wchar_t>
{
    wchar_t do_thousands_sep() const override { return L'.'; }
    std::string do_grouping() const override { return "\3"; }
};

/*
    Behaves as it is told to when characters come, and notes whether another thread can use the log
    meanwhile.
*/
class Buffer : public std::wstringbuf
{
public:
    enum class Fault {
        None,
        Refuse,
        Throw
    };

    explicit Buffer(Fault fault = Fault::None)
        : m_fault(fault)
    {
    }

    int writes = 0;
    int flushes = 0;
    bool heldDuringWrite = false;
    std::future<void> rival;

private:
    std::streamsize xsputn(const wchar_t* text, std::streamsize length) override
    {
        ++writes;
        if (m_fault == Fault::Throw)
            throw std::runtime_error("no room");
        if (m_fault == Fault::Refuse)
            return 0;
        rival = std::async(std::launch::async, takeAndLeaveLog);
        const auto status = rival.wait_for(std::chrono::milliseconds(50));
        heldDuringWrite = status == std::future_status::timeout;
        return std::wstringbuf::xsputn(text, length);
    }

    static void takeAndLeaveLog() { const vela::MutexLocker locker(Log::instance().mutex()); }

    int sync() override
    {
        ++flushes;
        return std::wstringbuf::sync();
    }

    Fault m_fault;
};

const QString ENGINE_LINE =
    QStringLiteral("Ferrule failure: [vela::WinCertStore::createChainEngine] "
                   "Initialisation of Certificiate Chain Engine failed: 2148098052\n");

void logEngineFailure()
{
    vela::logFailure("vela::WinCertStore::createChainEngine",
                     L"Initialisation of Certificiate Chain Engine failed: ", 2148098052UL);
}

} // namespace

class LogFailureTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lineHasPrefixFunctionMessageAndCode();
    void lineOfTextOnly();
    void lineBeginsWithThePrefixOfLevelThree();
    void nothingIsWrittenWithoutAStream();
    void onlyTheStreamOfLevelThreeIsUsed();
    void logLevelDecides_data();
    void logLevelDecides();
    void formattingOfTheStreamDoesNotShowAndStays();
    void eachLineIsOneWriteAndFlushed();
    void mutexIsHeldDuringTheWrite();
    void failingStreamIsTheHostsBusiness_data();
    void failingStreamIsTheHostsBusiness();
    void streamTakenAwayIsNotUsedAgain();
    void threadsWriteWholeLines();
    void textIsConvertedFromUtf8_data();
    void textIsConvertedFromUtf8();
};

void LogFailureTest::lineHasPrefixFunctionMessageAndCode()
{
    LogStream stream;
    logEngineFailure();
    QCOMPARE(stream.text(), ENGINE_LINE);
    logEngineFailure();
    QCOMPARE(stream.text(), ENGINE_LINE + ENGINE_LINE);
}

void LogFailureTest::lineOfTextOnly()
{
    LogStream stream;
    vela::logFailure("vela::WinCertStore::importSystemRootCert", L"5: Zugriff verweigert \u00fc");
    QCOMPARE(stream.text(),
             QStringLiteral("Ferrule failure: [vela::WinCertStore::importSystemRootCert] "
                            "5: Zugriff verweigert \u00fc\n"));
}

void LogFailureTest::lineBeginsWithThePrefixOfLevelThree()
{
    LogStream stream;
    logEngineFailure();
    const std::wstring prefix = Log::instance().pre(static_cast<Log::Level>(3), L"Ferrule");
    QVERIFY(stream.text().startsWith(QString::fromStdWString(prefix + L"[")));
}

void LogFailureTest::nothingIsWrittenWithoutAStream()
{
    LogStream stream;
    Log::instance().setStream(nullptr);
    logEngineFailure();
    QCOMPARE(stream.text(), QString());
}

void LogFailureTest::onlyTheStreamOfLevelThreeIsUsed()
{
    LogStream others;
    std::wostringstream failures;
    Log::instance().setStream(static_cast<Log::Level>(3), &failures);
    logEngineFailure();
    QCOMPARE(others.text(), QString());
    QCOMPARE(QString::fromStdWString(failures.str()), ENGINE_LINE);
}

void LogFailureTest::logLevelDecides_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("written");
    QTest::newRow("0") << 0 << true;
    QTest::newRow("1") << 1 << true;
    QTest::newRow("2") << 2 << true;
    QTest::newRow("3") << 3 << true;
    QTest::newRow("4") << 4 << false;
    QTest::newRow("5") << 5 << false;
    QTest::newRow("1000") << 1000 << false;
}

void LogFailureTest::logLevelDecides()
{
    QFETCH(int, level);
    QFETCH(bool, written);
    LogStream stream;
    Log::instance().setLogLevel(static_cast<Log::Level>(level));
    logEngineFailure();
    QCOMPARE(stream.text(), written ? ENGINE_LINE : QString());
}

void LogFailureTest::formattingOfTheStreamDoesNotShowAndStays()
{
    LogStream stream;
    stream.imbue(std::locale(std::locale::classic(), new Grouping));
    stream << std::hex << std::showbase << std::left << std::setfill(L'*') << std::setw(200);
    const std::ios_base::fmtflags flags = stream.flags();
    logEngineFailure();
    QCOMPARE(stream.text(), ENGINE_LINE);
    QCOMPARE(stream.flags(), flags);
    QCOMPARE(stream.width(), std::streamsize(200));
    QCOMPARE(stream.fill(), L'*');
    stream.width(6);
    stream << 255;
    QCOMPARE(stream.text(), ENGINE_LINE + QStringLiteral("0xff**"));
}

void LogFailureTest::eachLineIsOneWriteAndFlushed()
{
    LogStream lifetime;
    Buffer buffer;
    std::wostream stream(&buffer);
    Log::instance().setStream(&stream);
    logEngineFailure();
    QCOMPARE(buffer.writes, 1);
    QCOMPARE(buffer.flushes, 1);
    QCOMPARE(QString::fromStdWString(buffer.str()), ENGINE_LINE);
}

void LogFailureTest::mutexIsHeldDuringTheWrite()
{
    LogStream lifetime;
    Buffer buffer;
    std::wostream stream(&buffer);
    Log::instance().setStream(&stream);
    logEngineFailure();
    QVERIFY(buffer.heldDuringWrite);
    buffer.rival.get(); // Comes to an end: the mutex is free again.
}

void LogFailureTest::failingStreamIsTheHostsBusiness_data()
{
    QTest::addColumn<int>("fault");
    QTest::addColumn<int>("exceptions");
    const int all = std::ios_base::badbit | std::ios_base::failbit | std::ios_base::eofbit;
    QTest::newRow("refuses") << int(Buffer::Fault::Refuse) << 0;
    QTest::newRow("refuses and throws") << int(Buffer::Fault::Refuse) << all;
    QTest::newRow("buffer throws") << int(Buffer::Fault::Throw) << 0;
    QTest::newRow("buffer and stream throw") << int(Buffer::Fault::Throw) << all;
}

void LogFailureTest::failingStreamIsTheHostsBusiness()
{
    QFETCH(int, fault);
    QFETCH(int, exceptions);
    LogStream lifetime;
    Buffer buffer(static_cast<Buffer::Fault>(fault));
    std::wostream stream(&buffer);
    stream.exceptions(static_cast<std::ios_base::iostate>(exceptions));
    Log::instance().setStream(&stream);
    logEngineFailure();
    logEngineFailure();
    QVERIFY(stream.bad());
    QCOMPARE(QString::fromStdWString(buffer.str()), QString());
    std::async(std::launch::async, [] { Log::instance().setStream(nullptr); }).get();
    QVERIFY(!Log::instance().getStream(Log::Failure));
}

void LogFailureTest::streamTakenAwayIsNotUsedAgain()
{
    LogStream lifetime;
    std::atomic<bool> stop{false};
    std::thread thread([&stop] {
        while (!stop)
            logEngineFailure();
    });
    for (int round = 0; round < 200; ++round) {
        std::wostringstream stream; // The sanitizers notice when it is used after its end.
        Log::instance().setStream(&stream);
        Log::instance().setStream(nullptr);
    }
    stop = true;
    thread.join();
}

void LogFailureTest::threadsWriteWholeLines()
{
    constexpr int THREADS = 8;
    constexpr int LINES = 200;
    LogStream stream;
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; ++number) {
        threads.emplace_back([number] {
            for (int line = 0; line < LINES; ++line)
                vela::logFailure("vela::worker", L"line ", number * LINES + line);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    QStringList expected;
    for (int line = 0; line < THREADS * LINES; ++line)
        expected += QStringLiteral("Ferrule failure: [vela::worker] line %1").arg(line);
    QVERIFY(stream.text().endsWith(QLatin1Char('\n')));
    QStringList lines = stream.text().split(QLatin1Char('\n'));
    lines.removeLast();
    lines.sort();
    expected.sort();
    QCOMPARE(lines, expected);
}

void LogFailureTest::textIsConvertedFromUtf8_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty") << QByteArray("") << QString();
    QTest::newRow("ASCII") << QByteArray("vela::Log") << QStringLiteral("vela::Log");
    QTest::newRow("two bytes") << QByteArray("\xc3\xbc") << QStringLiteral("\u00fc");
    QTest::newRow("four bytes") << QByteArray("\xf0\x9f\x94\x91")
                                << QString::fromUcs4(U"\U0001f511");
}

void LogFailureTest::textIsConvertedFromUtf8()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, expected);
    QCOMPARE(QString::fromStdWString(vela::tconvert(text.constData())), expected);
    QVERIFY(vela::tconvert(nullptr).empty());
}

QTEST_GUILESS_MAIN(LogFailureTest)
#include "tst_logfailure.moc"

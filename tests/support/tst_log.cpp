// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/Log.h>

#include <QtTest/QtTest>

#include <future>
#include <sstream>

using vela::Log;

Q_DECLARE_METATYPE(vela::Log::Level)

namespace {

Log::Level level(int number)
{
    return static_cast<Log::Level>(number);
}

//! Leaves the log as a host finds it that has set nothing.
void silence()
{
    Log::instance().setStream(nullptr);
    Log::instance().setLogLevel(Log::Debug);
}

/*
    Hosts' static objects may use the log. This one is made when the program starts and destroyed
    after main().
*/
class StaticHost
{
public:
    StaticHost() { Log::instance().setStream(&m_stream); }
    ~StaticHost() { Log::instance().setStream(nullptr); }

    std::wostream* stream() { return &m_stream; }

private:
    std::wostringstream m_stream;
};

const bool silentAtStart = !Log::instance().getStream(Log::Failure);
StaticHost staticHost;
const bool setBeforeMain = Log::instance().getStream(Log::Failure) == staticHost.stream();

} // namespace

class LogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void usableBeforeMain();
    void init();
    void levelsHaveTheirNumbers();
    void thereIsOneLog();
    void hasNoStreamUntilTheHostSetsOne();
    void oneStreamForAllLevels();
    void oneStreamForOneLevel();
    void levelsOutOfRangeHaveNoStream_data();
    void levelsOutOfRangeHaveNoStream();
    void logLevelIsKept();
    void prefixNamesTheLevel_data();
    void prefixNamesTheLevel();
    void mutexIsRecursive();
    void mutexKeepsOtherThreadsFromTakingTheStreamAway();
    void cleanupTestCase();
};

void LogTest::usableBeforeMain()
{
    QVERIFY(silentAtStart);
    QVERIFY(setBeforeMain);
}

void LogTest::init()
{
    silence();
}

void LogTest::cleanupTestCase()
{
    Log::instance().setStream(staticHost.stream());
}

void LogTest::levelsHaveTheirNumbers()
{
    QCOMPARE(static_cast<int>(Log::Failure), 3);
    QCOMPARE(static_cast<int>(Log::Silent), 4);
    QVERIFY(Log::Debug < Log::Information && Log::Information < Log::Warning
            && Log::Warning < Log::Failure);
}

void LogTest::thereIsOneLog()
{
    QCOMPARE(&Log::instance(), &Log::instance());
}

void LogTest::hasNoStreamUntilTheHostSetsOne()
{
    for (int number = 0; number < 4; ++number)
        QVERIFY(!Log::instance().getStream(level(number)));
}

void LogTest::oneStreamForAllLevels()
{
    std::wostringstream stream;
    Log::instance().setStream(&stream);
    for (int number = 0; number < 4; ++number)
        QCOMPARE(Log::instance().getStream(level(number)), &stream);
    silence();
}

void LogTest::oneStreamForOneLevel()
{
    std::wostringstream failures;
    std::wostringstream others;
    Log& log = Log::instance();
    log.setStream(&others);
    log.setStream(Log::Failure, &failures);
    QCOMPARE(log.getStream(Log::Failure), &failures);
    QCOMPARE(log.getStream(Log::Warning), &others);
    log.setStream(Log::Failure, nullptr);
    QVERIFY(!log.getStream(Log::Failure));
    QCOMPARE(log.getStream(Log::Warning), &others);
    silence();
}

void LogTest::levelsOutOfRangeHaveNoStream_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("below") << -1;
    QTest::newRow("silent") << 4;
    QTest::newRow("far above") << 1000000;
}

void LogTest::levelsOutOfRangeHaveNoStream()
{
    QFETCH(int, number);
    std::wostringstream stream;
    Log::instance().setStream(&stream);
    Log::instance().setStream(level(number), &stream);
    QVERIFY(!Log::instance().getStream(level(number)));
    silence();
}

void LogTest::logLevelIsKept()
{
    QCOMPARE(Log::instance().logLevel(), Log::Debug);
    for (int number = 0; number < 6; ++number) {
        Log::instance().setLogLevel(level(number));
        QCOMPARE(static_cast<int>(Log::instance().logLevel()), number);
    }
}

void LogTest::prefixNamesTheLevel_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, int number, const char* prefix, const char* expected) {
        QTest::newRow(name) << number << QString::fromLatin1(prefix)
                            << QString::fromLatin1(expected);
    };
    row("debug", 0, "Host", "Host debug: ");
    row("information", 1, "Host", "Host information: ");
    row("warning", 2, "Host", "Host warning: ");
    row("failure", 3, "Host", "Host failure: ");
    row("no prefix", 3, "", "failure: ");
    row("not a level", 4, "Host", "Host ");
    row("below all levels", -1, "Host", "Host ");
}

void LogTest::prefixNamesTheLevel()
{
    QFETCH(int, number);
    QFETCH(QString, prefix);
    QFETCH(QString, expected);
    QCOMPARE(QString::fromStdWString(Log::instance().pre(level(number), prefix.toStdWString())),
             expected);
}

void LogTest::mutexIsRecursive()
{
    const vela::MutexLocker outer(Log::instance().mutex());
    const vela::MutexLocker inner(Log::instance().mutex());
    QVERIFY(!Log::instance().getStream(Log::Failure)); // Locks for a third time.
}

void LogTest::mutexKeepsOtherThreadsFromTakingTheStreamAway()
{
    std::wostringstream stream;
    Log::instance().setStream(&stream);
    std::future<void> taking;
    {
        const vela::MutexLocker locker(Log::instance().mutex());
        taking = std::async(std::launch::async, [] { Log::instance().setStream(nullptr); });
        QCOMPARE(taking.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        QCOMPARE(Log::instance().getStream(Log::Failure), &stream);
    }
    taking.get();
    QVERIFY(!Log::instance().getStream(Log::Failure));
}

QTEST_GUILESS_MAIN(LogTest)
#include "tst_log.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "serverlife/Process.h"

#include "common/Child.h"
#include "common/Options.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QSocketNotifier>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <unistd.h>

namespace {

std::atomic<int> clockAhead{0};

double processorSeconds(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        bench::fail(QStringLiteral("the kernel does not tell of memory"));
    return file.readAll().split(' ').at(1).toDouble() * static_cast<double>(sysconf(_SC_PAGESIZE));
}

} // namespace

// In place of the C library's for all that is in the process, whose parameter's name is reserved.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" __attribute__((visibility("default"))) time_t time(time_t* result)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t ahead = now.tv_sec + clockAhead;
    if (result)
        *result = ahead;
    return ahead;
}

namespace bench {

ProcessWatch::ProcessWatch()
{
    m_lastTick = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        const double now = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
        m_longest = std::max(m_longest, now - m_lastTick);
        m_lastTick = now;
    });
    m_timer.start(1);
}

QJsonObject ProcessWatch::tell()
{
    const QJsonObject told{{QStringLiteral("resident"), residentBytes()},
                           {QStringLiteral("seconds"), processorSeconds(CLOCK_PROCESS_CPUTIME_ID)},
                           {QStringLiteral("pause"), m_longest * 1000}};
    m_longest = 0;
    return told;
}

void advanceClock(int seconds)
{
    clockAhead += seconds;
}

void answerFromLoop(const std::function<QJsonObject(const QJsonObject&)>& answer)
{
    QByteArray waiting;
    QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&] {
        char piece[4096];
        const auto size = read(STDIN_FILENO, piece, sizeof piece);
        if (size <= 0)
            QCoreApplication::quit();
        else
            waiting.append(piece, static_cast<int>(size));
        for (int end = waiting.indexOf('\n'); end >= 0; end = waiting.indexOf('\n')) {
            tellParent(answer(QJsonDocument::fromJson(waiting.left(end)).object()));
            waiting.remove(0, end + 1);
        }
    });
    QCoreApplication::exec();
}

} // namespace bench

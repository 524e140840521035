// SPDX-License-Identifier: BSD-3-Clause
#include "common/Events.h"

#include "common/Options.h"

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <sched.h>
#include <sys/resource.h>

namespace bench {

void processEventsUntil(const std::function<bool()>& condition, int interval)
{
    constexpr int LIMIT_MS = 60000;
    QElapsedTimer elapsed;
    elapsed.start();
    QTimer waker; // An event loop that waits for more would otherwise not notice the time.
    waker.start(interval);
    while (!condition()) {
        if (elapsed.elapsed() > LIMIT_MS)
            fail(QStringLiteral("what was waited for did not happen within a minute"));
        QThread::currentThread()->eventDispatcher()->processEvents(QEventLoop::WaitForMoreEvents);
    }
}

void raiseFileLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        fail(QStringLiteral("the limit of open files could not be raised"));
}

void useOneProcessor()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    int processor = 0;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) {
        while (processor < CPU_SETSIZE - 1 && !CPU_ISSET(processor, &allowed))
            ++processor;
    }
    CPU_ZERO(&allowed);
    CPU_SET(processor, &allowed);
    if (sched_setaffinity(0, sizeof allowed, &allowed) != 0)
        fail(QStringLiteral("the process could not be confined to one processor"));
}

} // namespace bench

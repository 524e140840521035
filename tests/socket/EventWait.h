// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_EVENTWAIT_H
#define FERRULE_TESTS_EVENTWAIT_H

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QTimer>

namespace test {

constexpr int PATIENCE_MSECS = 20000;

//! How long to wait for an event. On Windows, Qt goes on waiting when it has sent posted events.
#ifdef Q_OS_WIN
constexpr int NAP_MSECS = 5;
#else
constexpr int NAP_MSECS = PATIENCE_MSECS;
#endif

/*!
    Runs the calling thread's events until \a done returns true; false when that takes longer than
    \a msecs. Carries out deferred deletions, and wakes up with the event, not at intervals.
*/
template <typename Done>
bool waitFor(Done done, int msecs = PATIENCE_MSECS)
{
    const QDeadlineTimer deadline(msecs);
    QTimer alarm;
    alarm.start(qMin(msecs, NAP_MSECS));
    for (;;) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (done())
            return true;
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

//! Runs what is waiting now, and what that leads to at once.
inline void settle()
{
    for (int pass = 0; pass < 5; ++pass) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

} // namespace test

#endif

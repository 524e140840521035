// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_PROCESS_H
#define FERRULE_BENCH_PROCESS_H

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <functional>

namespace bench {

/*!
    Tells of this process what the kernel knows, and for how long its event loop was busy before a
    timer of a millisecond had its turn. Busy means processor time: who else runs on the machine is
    no matter.
*/
class ProcessWatch : public QObject
{
public:
    //! Watches the event loop of this thread from now on.
    ProcessWatch();

    //! Tells of memory, of processor time and of the longest pause since the last time.
    QJsonObject tell();

private:
    QTimer m_timer;
    double m_lastTick = 0;
    double m_longest = 0;
};

//! Lets the clock by which OpenSSL ends sessions go forward.
void advanceClock(int seconds);

//! Answers the lines of standard input from the event loop, and ends the loop when they do.
void answerFromLoop(const std::function<QJsonObject(const QJsonObject&)>& answer);

} // namespace bench

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_EVENTS_H
#define FERRULE_BENCH_EVENTS_H

#include <functional>

namespace bench {

/*!
    Processes the thread's events until \a condition holds; after a minute ends the program. It
   looks after each event, and every \a interval milliseconds for what other threads do.
*/
void processEventsUntil(const std::function<bool()>& condition, int interval = 100);

//! Lets the process have as many open files as it may, for a thousand connections.
void raiseFileLimit();

//! Confines this process, and the threads and processes that it starts, to one processor.
void useOneProcessor();

} // namespace bench

#endif

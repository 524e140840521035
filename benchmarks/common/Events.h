// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_EVENTS_H
#define FERRULE_BENCH_EVENTS_H

#include <functional>

namespace bench {

//! Processes the thread's events until \a condition holds; after a minute ends the program.
void processEventsUntil(const std::function<bool()>& condition);

//! Lets the process have as many open files as it may, for a thousand connections.
void raiseFileLimit();

} // namespace bench

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_WRITECALLS_H
#define FERRULE_BENCH_WRITECALLS_H

namespace bench {

//! Begins to count the system calls that write to \a descriptor, from 0.
void countWriteCalls(int descriptor);
int countedWriteCalls();

} // namespace bench

#endif

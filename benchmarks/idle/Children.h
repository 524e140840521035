// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_CHILDREN_H
#define FERRULE_BENCH_CHILDREN_H

#include "common/Setup.h"

namespace bench {

//! By how many bytes a process has grown.
struct Growth
{
    qint64 resident = 0;
    qint64 heap = 0;
};

//! Whether this process is one of those that measureChildren() starts, which do runChild() only.
bool isChild();
int runChild();

//! Starts a server and a client and has them make so many connections that count.
void measureChildren(const Setup& setup, int connections, Growth& client, Growth& server);

} // namespace bench

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_LIVES_H
#define FERRULE_BENCH_LIVES_H

#include "common/Setup.h"

namespace bench {

//! What the clients of a server make of their connections.
enum class Visit {
    Full,     //!< A handshake, and one octet of the server's.
    Resumed,  //!< The same with the session of the one before.
    Abandoned //!< A ClientHello, and nothing behind the answer.
};

//! How a server process fares under a great many connections.
struct ServerLife
{
    double bytesKept = 0;    //!< For each connection but the first 30 %.
    double secondsFirst = 0; //!< Of processor time for each of the first tenth.
    double secondsLast = 0;  //!< Of processor time for each of the last tenth.
    double longestPause = 0; //!< Milliseconds of one pass of its event loop, while sessions expire.
};

//! Has a new server process serve \a connections, and then lets the time of its sessions be over.
ServerLife liveThrough(const Setup& setup, Visit visit, int connections);

//! Returns by how many bytes a new client process grows with tickets of 60 KB on one connection.
double growWithTickets(const Setup& setup, int tickets);

//! Whether this process is one of those that these functions start, which do runLife() only.
bool isLife();
int runLife();

} // namespace bench

#endif

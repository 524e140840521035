// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_FRESHPORT_H
#define FERRULE_TESTS_FRESHPORT_H

#include <QtNetwork/QTcpServer>

namespace test {

/*!
    Has \a server listen on a loopback port that this process has not had from here before. The
    library pools sessions by host and port: on a port that comes back, a client would offer the
    session of an earlier server. May be called from any thread.
*/
void listenOnFreshPort(QTcpServer* server);

} // namespace test

#endif

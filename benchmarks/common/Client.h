// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_CLIENT_H
#define FERRULE_BENCH_CLIENT_H

#include "BareLoop.h"
#include "Endpoint.h"
#include "Talk.h"

#include <QtCore/QEventLoop>

namespace bench {

//! An event loop that does not wait for ever: a minute without an end is one of the program.
class PatientLoop
{
public:
    void run();
    void end() { m_loop.quit(); }

private:
    QEventLoop m_loop;
};

//! Connects a Qt socket, and waits for the server's greeting.
std::unique_ptr<QTcpSocket> greetedClient(const EndpointFactory& factory, quint16 port);

//! Deletes sockets that are only waiting for an event loop to do so, and ends their connections.
void deleteSpentSockets();

//! Ends the connection of \a client before it returns.
void close(std::unique_ptr<QTcpSocket> client);

//! The same as greetedClient() for the bare loop.
std::unique_ptr<BareConnection> greetedConnection(const EngineContext& context, quint16 port);

} // namespace bench

#endif

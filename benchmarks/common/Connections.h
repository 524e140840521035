// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_CONNECTIONS_H
#define FERRULE_BENCH_CONNECTIONS_H

#include "common/Endpoint.h"

#include <QtNetwork/QTcpServer>

#include <vector>

namespace bench {

//! Whether clients may resume sessions of those before them.
enum class Handshakes {
    Resumed,
    Full
};

using Clients = std::vector<std::unique_ptr<QTcpSocket>>;

/*!
    Appends \a count clients to \a clients that are connected to \a port and ready. It connects a
   few at a time, for a server's queue of new connections is short.
*/
void connectClients(Clients& clients, EndpointFactory& factory, int count, quint16 port,
                    Handshakes handshakes);

//! Listens on loopback and makes an end for each connection.
class EndServer : public QTcpServer
{
public:
    //! Calls \a ready with each end that can send; the end lives as long as its connection.
    EndServer(const Setup& setup, std::function<void(QTcpSocket*)> ready);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    EndpointFactory m_factory;
    std::function<void(QTcpSocket*)> m_ready;
};

} // namespace bench

#endif

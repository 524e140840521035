// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_VISITOR_H
#define FERRULE_BENCH_VISITOR_H

#include "common/BareLoop.h"
#include "serverlife/Lives.h"

#include <QtCore/QByteArray>

namespace bench {

//! Makes connections to a server with the engine alone, one behind the other.
class Visitor
{
public:
    Visitor(const Setup& setup, quint16 port, Visit visit);
    ~Visitor();

    void visit(int count);

    //! Makes full handshakes from now on, where sessions were resumed.
    void forgetSession();

private:
    Q_DISABLE_COPY(Visitor)

    void converse();
    void abandon() const;

    EngineContext m_context;
    quint16 m_port;
    Visit m_visit;
    QByteArray m_hello;
    SSL_SESSION* m_session = nullptr;
};

//! A server of the engine's with one client, which it sends tickets with an octet behind each.
class TicketServer
{
public:
    explicit TicketServer(const Setup& setup);
    ~TicketServer();

    quint16 port() const { return m_port; }
    void accept();
    void send(int tickets);

private:
    Q_DISABLE_COPY(TicketServer)

    EngineContext m_context;
    int m_listener;
    quint16 m_port = 0;
    SSL* m_ssl = nullptr;
};

} // namespace bench

#endif

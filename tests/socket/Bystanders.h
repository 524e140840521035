// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_BYSTANDERS_H
#define FERRULE_TESTS_BYSTANDERS_H

#include "HostConversation.h"

#include <QtCore/QDebug>

namespace test {

//! Two connections, one in each role, that stay up whatever happens to the other sockets.
class Bystanders
{
public:
    Bystanders()
        : m_client(Role::Client)
        , m_server(Role::Server)
    {
        for (HostConversation* conversation : {&m_client, &m_server}) {
            const EmissionLog log(conversation->socket());
            conversation->connectAnew();
            if (!conversation->becomesConnected(log))
                qFatal("a bystander did not connect");
        }
    }

    bool stillExchange()
    {
        return m_client.exchanges("how is the client?") && m_server.exchanges("how is the server?");
    }

private:
    HostConversation m_client;
    HostConversation m_server;
};

} // namespace test

#endif

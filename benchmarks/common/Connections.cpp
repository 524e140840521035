// SPDX-License-Identifier: BSD-3-Clause
#include "common/Connections.h"

#include "common/Events.h"
#include "common/Options.h"

#include <algorithm>

namespace bench {

void connectClients(Clients& clients, EndpointFactory& factory, int count, quint16 port,
                    Handshakes handshakes)
{
    constexpr int AT_ONCE = 45;
    int ready = 0;
    for (int begun = 0; begun < count;) {
        const int next = std::min(count, begun + AT_ONCE);
        for (; begun < next; ++begun) {
            // Ferrule keeps sessions by the name of the host.
            const int spelling =
                handshakes == Handshakes::Full ? static_cast<int>(clients.size()) : 0;
            clients.push_back(factory.connectClient(spelledLoopback(spelling), port));
            QTcpSocket* client = clients.back().get();
            whenReady(client, factory.setup(), [&factory, &ready, client, handshakes] {
                ++ready;
                if (handshakes == Handshakes::Resumed)
                    factory.keepSession(client);
            });
        }
        processEventsUntil([&] { return ready == begun; });
    }
}

EndServer::EndServer(const Setup& setup, std::function<void(QTcpSocket*)> ready)
    : m_factory(setup)
    , m_ready(std::move(ready))
{
    if (!listen(QHostAddress::LocalHost))
        fail(QStringLiteral("cannot listen on loopback"));
}

void EndServer::incomingConnection(qintptr descriptor)
{
    QTcpSocket* end = m_factory.makeServerEnd(descriptor);
    end->setParent(this);
    connect(end, &QTcpSocket::disconnected, end, &QObject::deleteLater);
    whenReady(end, m_factory.setup(), [this, end] { m_ready(end); });
}

} // namespace bench

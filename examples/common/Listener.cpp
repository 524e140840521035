// SPDX-License-Identifier: BSD-3-Clause
#include "common/Listener.h"

#include "common/ClientConnection.h"
#include "common/Console.h"
#include "common/Endpoint.h"
#include "common/TerminationNotifier.h"

#include <QtCore/QCoreApplication>

#include <utility>

Listener::Listener(Factory factory)
    : m_factory(std::move(factory))
{
    connect(&m_server, &QTcpServer::newConnection, this, &Listener::acceptClients);
    connect(&m_server, &QTcpServer::acceptError, this,
            [this] { console::complain(m_server.errorString()); });
}

Listener::~Listener()
{
    // The server may own the transports of the connections: they have to go first.
    qDeleteAll(m_connections);
}

int Listener::serve(const QHostAddress& address, quint16 port, int failureStatus)
{
    TerminationNotifier notifier;
    connect(&notifier, &TerminationNotifier::requested, this, [this] {
        stop();
        QCoreApplication::exit();
    });
    return listen(address, port) ? QCoreApplication::exec() : failureStatus;
}

bool Listener::listen(const QHostAddress& address, quint16 port)
{
    if (!m_server.listen(address, port)) {
        console::complain(m_server.errorString());
        return false;
    }
    const Endpoint endpoint = {m_server.serverAddress().toString(), m_server.serverPort()};
    console::print(QStringLiteral("listening on ") + endpoint.text());
    return true;
}

void Listener::stop()
{
    m_server.close();
    const QList<ClientConnection*> connections = m_connections;
    for (ClientConnection* connection : connections)
        connection->end(QStringLiteral("the server was stopped"));
}

void Listener::acceptClients()
{
    while (QTcpSocket* transport = m_server.nextPendingConnection()) {
        ClientConnection* connection = m_factory(transport);
        m_connections.append(connection);
        connect(connection, &ClientConnection::ended, this,
                [this, connection] { forget(connection); });
        connection->start();
    }
}

void Listener::forget(ClientConnection* connection)
{
    m_connections.removeOne(connection);
    connection->deleteLater();
    // Without descriptors left, the server pauses; there is one again now.
    if (m_server.isListening())
        m_server.resumeAccepting();
}

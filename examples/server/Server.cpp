// SPDX-License-Identifier: BSD-3-Clause
#include "server/Server.h"

#include "common/Console.h"
#include "server/Connection.h"

Server::Server(const ServerOptions& options)
    : m_options(options)
{
    connect(&m_listener, &QTcpServer::newConnection, this, &Server::acceptClients);
    connect(&m_listener, &QTcpServer::acceptError, this,
            [this] { console::complain(m_listener.errorString()); });
}

Server::~Server()
{
    // The listener owns the transports of the connections: they have to go first.
    qDeleteAll(m_connections);
}

QString Server::listen()
{
    if (!m_listener.listen(m_options.address, m_options.port))
        return m_listener.errorString();
    const bool bracketed = m_options.address.protocol() == QAbstractSocket::IPv6Protocol;
    console::print(QString::fromLatin1(bracketed ? "listening on [%1]:%2" : "listening on %1:%2")
                       .arg(m_listener.serverAddress().toString())
                       .arg(m_listener.serverPort()));
    return QString();
}

void Server::stop()
{
    m_listener.close();
    const QList<Connection*> connections = m_connections;
    for (Connection* connection : connections)
        connection->end(QStringLiteral("the server was stopped"));
}

void Server::acceptClients()
{
    while (QTcpSocket* transport = m_listener.nextPendingConnection()) {
        auto* connection = new Connection(transport, m_options, nullptr);
        m_connections.append(connection);
        connect(connection, &Connection::ended, this, [this, connection] { forget(connection); });
        connection->start();
    }
}

void Server::forget(Connection* connection)
{
    m_connections.removeOne(connection);
    connection->deleteLater();
    // Without descriptors left, the listener pauses; there is one again now.
    if (m_listener.isListening())
        m_listener.resumeAccepting();
}

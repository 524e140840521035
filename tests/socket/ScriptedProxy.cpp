// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedProxy.h"

#include "tests/common/FreshPort.h"

namespace test {

ScriptedProxy::ScriptedProxy()
{
    connect(this, &QTcpServer::newConnection, this, &ScriptedProxy::takeConnections);
    listenOnFreshPort(this);
}

void ScriptedProxy::takeConnections()
{
    while (QTcpSocket* connection = nextPendingConnection()) {
        connect(connection, &QIODevice::readyRead, this,
                [this, connection] { takeRequest(connection); });
        Q_EMIT arrived(connection);
    }
}

void ScriptedProxy::takeRequest(QTcpSocket* connection)
{
    if (!connection->peek(connection->bytesAvailable()).contains("\r\n\r\n"))
        return;
    connection->disconnect(this);
    m_connection = connection;
    m_requests.append(connection->readAll());
    connection->write(reply);
    Q_EMIT requested(connection);
}

ServingProxy::ServingProxy(const Identity& identity)
{
    connect(this, &ScriptedProxy::requested, this, [this, identity](QTcpSocket* connection) {
        m_servers.push_back(std::make_unique<EnginePeer>(EnginePeer::Server, connection, identity));
    });
}

} // namespace test

#include "moc_ScriptedProxy.cpp"

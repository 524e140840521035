// SPDX-License-Identifier: BSD-3-Clause
#include "Client.h"

#include "Options.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

namespace bench {

void PatientLoop::run()
{
    QTimer limit;
    QObject::connect(&limit, &QTimer::timeout, &limit,
                     [] { fail(QStringLiteral("nothing came to an end for a minute")); });
    limit.start(60000);
    m_loop.exec();
}

std::unique_ptr<QTcpSocket> greetedClient(const EndpointFactory& factory, quint16 port)
{
    std::unique_ptr<QTcpSocket> client = factory.connectClient(QStringLiteral("127.0.0.1"), port);
    PatientLoop loop;
    const auto connection =
        QObject::connect(client.get(), &QIODevice::readyRead, client.get(), [&] { loop.end(); });
    whenReady(client.get(), factory.setup(), [] {});
    loop.run();
    QObject::disconnect(connection);
    char greeting = 0;
    if (client->read(&greeting, 1) != 1 || greeting != GREETING)
        fail(QStringLiteral("a server did not greet"));
    return client;
}

void deleteSpentSockets()
{
    // Twice, for a Ferrule socket leaves another one behind.
    for (int i = 0; i < 2; ++i)
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void close(std::unique_ptr<QTcpSocket> client)
{
    client->disconnectFromHost();
    client.reset();
    deleteSpentSockets();
}

std::unique_ptr<BareConnection> greetedConnection(const EngineContext& context, quint16 port)
{
    auto connection = std::make_unique<BareConnection>(context, EngineContext::Role::Client,
                                                       BareConnection::connectTo(port));
    char greeting = 0;
    connection->readExactly(&greeting, 1);
    return connection;
}

} // namespace bench

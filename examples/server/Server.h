// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_SERVER_H
#define FERRULE_EXAMPLES_SERVER_H

#include "server/ServerOptions.h"

#include <QtCore/QList>
#include <QtNetwork/QTcpServer>

class Connection;

/*! Accepts clients and makes a Connection of each. */
class Server : public QObject
{
    Q_OBJECT

public:
    explicit Server(const ServerOptions& options);
    ~Server() override;

    //! Begins to listen and prints where. Returns an error text, null for success.
    QString listen();

    //! Stops listening and drops all clients.
    void stop();

private:
    void acceptClients();
    void forget(Connection* connection);

    const ServerOptions m_options;
    QTcpServer m_listener;
    QList<Connection*> m_connections;
};

#endif

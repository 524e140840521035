// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_LISTENER_H
#define FERRULE_EXAMPLES_LISTENER_H

#include <QtCore/QList>
#include <QtNetwork/QTcpServer>

#include <functional>

class ClientConnection;

/*! Accepts clients and makes a ClientConnection of each. */
class Listener : public QObject
{
    Q_OBJECT

public:
    /*!
        Makes the object for the client behind a socket. The socket is the listener's unless that
        object takes it over.
    */
    using Factory = std::function<ClientConnection*(QTcpSocket* transport)>;

    explicit Listener(Factory factory);
    ~Listener() override;

    /*!
        Listens on \a address and \a port, prints where, and runs the event loop until the system
        asks the program to end; then drops all clients and returns 0. Complains and returns
        \a failureStatus when it cannot listen.
    */
    int serve(const QHostAddress& address, quint16 port, int failureStatus);

private:
    bool listen(const QHostAddress& address, quint16 port);
    void stop();
    void acceptClients();
    void forget(ClientConnection* connection);

    const Factory m_factory;
    QTcpServer m_server;
    QList<ClientConnection*> m_connections;
};

#endif

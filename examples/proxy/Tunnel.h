// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_TUNNEL_H
#define FERRULE_EXAMPLES_TUNNEL_H

#include "common/ClientConnection.h"
#include "proxy/ConnectRequest.h"

#include <QtCore/QTimer>
#include <QtNetwork/QTcpSocket>

#include <memory>

class Relay;
struct ProxyOptions;

/*!
    One client of the proxy: takes its request, connects to the server that it names and carries
    bytes between the two. Prints a line about itself when the connection is over.
*/
class Tunnel : public ClientConnection
{
    Q_OBJECT

public:
    //! Serves the client of the connected \a client; \a options must outlive the object.
    Tunnel(QTcpSocket* client, const ProxyOptions& options);
    ~Tunnel() override;

    void start() override;
    void end(const QString& reason) override;

private:
    void readRequest();
    void judge(const QByteArray& header);
    void connectToServer();
    void relay();
    void refuse(int status, const QString& reason);
    void handleTimeout();

    const ProxyOptions& m_options;
    QTcpSocket* m_client;
    QTcpSocket m_server;
    std::unique_ptr<Relay> m_relay;
    QTimer m_limit;
    const QString m_clientText;
    ConnectRequest m_request;
    QByteArray m_received;
    QString m_refusal; // Why the client was refused.
    int m_status = 0;  // As answered, 0 before.
    bool m_ended = false;
};

#endif

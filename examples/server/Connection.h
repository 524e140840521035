// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CONNECTION_H
#define FERRULE_EXAMPLES_CONNECTION_H

#include "common/ClientConnection.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>
#include <QtCore/QTimer>

struct ServerOptions;

/*! One client of the server. Prints a line about itself when the connection is over. */
class Connection : public ClientConnection
{
    Q_OBJECT

public:
    //! Serves the client of the connected \a transport; \a options must outlive the object.
    Connection(QTcpSocket* transport, const ServerOptions& options);

    void start() override;
    void end(const QString& reason) override;

private:
    void greet();
    void receive();
    void echo(const QByteArray& data);
    void sendFile();
    void finishFile();
    void limitClosing(QAbstractSocket::SocketState state);
    void handleError(QAbstractSocket::SocketError error);
    qint64 backlog() const;

    const ServerOptions& m_options;
    vela::SslSocket m_socket;
    QTcpSocket* m_transport;
    QString m_client;
    QFile m_file;
    QTimer m_limit;
    qint64 m_in = 0;
    qint64 m_out = 0;
    bool m_established = false;
    bool m_fileSent = false;
    bool m_ended = false;
};

#endif

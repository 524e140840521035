// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CONNECTION_H
#define FERRULE_EXAMPLES_CONNECTION_H

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>
#include <QtCore/QTimer>

struct ServerOptions;

/*!
    One client of the server. Prints a line about itself and emits ended() once, when the connection
    is over; the object is to be deleted then, with deleteLater().
*/
class Connection : public QObject
{
    Q_OBJECT

public:
    //! Serves the client of the connected \a transport; \a options must outlive the object.
    Connection(QTcpSocket* transport, const ServerOptions& options, QObject* parent);

    //! Drops the client, \a reason being what the line says.
    void end(const QString& reason);

    //! Must be called once, when ended() is connected: the connection may end at once.
    void start();

Q_SIGNALS:
    void ended();

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
    QString m_cipher;
    QFile m_file;
    QTimer m_limit;
    qint64 m_in = 0;
    qint64 m_out = 0;
    bool m_established = false;
    bool m_fileSent = false;
    bool m_ended = false;
};

#endif

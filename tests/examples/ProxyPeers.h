// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_PROXYPEERS_H
#define FERRULE_TESTS_PROXYPEERS_H

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace test {

//! What ferrule-proxy answers when the tunnel stands.
inline const QByteArray ESTABLISHED = "HTTP/1.0 200 Connection established\r\n\r\n";

/*! A plain TCP client of the proxy; what it has received is kept. */
class RawClient : public QTcpSocket
{
public:
    explicit RawClient(quint16 port)
    {
        connect(this, &QIODevice::readyRead, this, [this] {
            if (isReading)
                received += readAll();
        });
        connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        waitForConnected();
    }

    bool isReading = true;
    QByteArray received;
};

inline QByteArray connectRequest(quint16 port, const QByteArray& fields = QByteArray())
{
    return "CONNECT 127.0.0.1:" + QByteArray::number(port) + " HTTP/1.0\r\n" + fields + "\r\n";
}

/*! A server that sends back what it receives. */
class EchoServer : public QTcpServer
{
public:
    EchoServer()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* client = nextPendingConnection();
            connect(client, &QIODevice::readyRead, client,
                    [client] { client->write(client->readAll()); });
        });
    }
};

} // namespace test

#endif

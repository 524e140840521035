// SPDX-License-Identifier: BSD-3-Clause
#include "proxy/Tunnel.h"

#include "common/Console.h"
#include "common/Platform.h"
#include "proxy/ProxyOptions.h"
#include "proxy/Relay.h"

#include <QtNetwork/QHostAddress>

namespace {

// How long a client that was refused may take to close the connection.
constexpr int CLOSING_MSECS = 10 * 1000;

/*
    Nothing of the request is repeated in an answer. Clients of the library take an answer for
    success if it contains "200", wherever that stands.
*/
QByteArray answer(int status)
{
    switch (status) {
    case 200:
        return "HTTP/1.0 200 Connection established\r\n\r\n";
    case 405:
        return "HTTP/1.0 405 Method Not Allowed\r\nAllow: CONNECT\r\n\r\n";
    case 407:
        return "HTTP/1.0 407 Proxy Authentication Required\r\n"
               "Proxy-Authenticate: Basic realm=\"ferrule-proxy\"\r\n\r\n";
    case 408:
        return "HTTP/1.0 408 Request Timeout\r\n\r\n";
    case 431:
        return "HTTP/1.0 431 Request Header Fields Too Large\r\n\r\n";
    case 502:
        return "HTTP/1.0 502 Bad Gateway\r\n\r\n";
    case 504:
        return "HTTP/1.0 504 Gateway Timeout\r\n\r\n";
    default:
        return "HTTP/1.0 400 Bad Request\r\n\r\n";
    }
}

} // namespace

Tunnel::Tunnel(QTcpSocket* client, const ProxyOptions& options)
    : m_options(options)
    , m_client(client)
    , m_clientText(Endpoint{client->peerAddress().toString(), client->peerPort()}.text())
{
    m_client->setParent(this);
    m_client->setReadBufferSize(ConnectRequest::SIZE_LIMIT);
    m_limit.setSingleShot(true);
    connect(m_client, &QIODevice::readyRead, this, &Tunnel::readRequest);
    connect(m_client, &QAbstractSocket::disconnected, this, [this] {
        end(m_refusal.isEmpty() ? QStringLiteral("closed by the client") : m_refusal);
    });
    connect(&m_server, &QAbstractSocket::connected, this, &Tunnel::relay);
    connect(&m_server, &QAbstractSocket::errorOccurred, this,
            [this] { refuse(502, m_server.errorString()); });
    connect(&m_limit, &QTimer::timeout, this, &Tunnel::handleTimeout);
}

Tunnel::~Tunnel() = default;

void Tunnel::start()
{
    if (m_options.timeoutMsecs > 0)
        m_limit.start(m_options.timeoutMsecs);
    if (m_client->state() != QAbstractSocket::ConnectedState)
        end(QStringLiteral("closed by the client"));
    else
        readRequest();
}

void Tunnel::readRequest()
{
    if (m_status != 0) {
        m_client->readAll(); // Closing with something unread would take the answer from the client.
        return;
    }
    if (!m_request.target.host.isEmpty())
        return; // What comes before the server does waits in the socket.
    m_received += m_client->read(ConnectRequest::SIZE_LIMIT - m_received.size());
    const int size = ConnectRequest::headerSize(m_received);
    if (size > 0) {
        const QByteArray header = m_received.left(size);
        m_received.remove(0, size);
        judge(header);
    } else if (m_received.size() >= ConnectRequest::SIZE_LIMIT) {
        refuse(431, QStringLiteral("the request is too long"));
    }
}

void Tunnel::judge(const QByteArray& header)
{
    const int status = m_request.parse(header);
    if (status != 200)
        refuse(status, QStringLiteral("not a CONNECT to a host and port"));
    else if (m_request.credentials != m_options.credentials && !m_options.credentials.isEmpty())
        refuse(407, QStringLiteral("no authorisation, or a wrong one"));
    else
        connectToServer();
}

void Tunnel::connectToServer()
{
    if (m_limit.isActive())
        m_limit.start();
    m_server.connectToHost(m_request.target.host, m_request.target.port);
}

void Tunnel::relay()
{
    m_limit.stop();
    m_status = 200;
    m_client->disconnect(this);
    m_server.disconnect(this);
    m_relay = std::make_unique<Relay>(m_client, m_received + m_client->readAll(), &m_server,
                                      answer(m_status));
    connect(m_relay.get(), &Relay::ended, this, &Tunnel::end);
    m_relay->start();
}

void Tunnel::refuse(int status, const QString& reason)
{
    m_status = status;
    m_refusal = reason;
    m_server.disconnect(this);
    m_client->write(answer(status));
    m_client->flush();
    platform::endSending(m_client->socketDescriptor());
    m_client->readAll();
    m_limit.start(CLOSING_MSECS);
}

void Tunnel::handleTimeout()
{
    if (m_status != 0)
        end(m_refusal);
    else if (m_request.target.host.isEmpty())
        refuse(408, QStringLiteral("no request in time"));
    else
        refuse(504, QStringLiteral("no connection in time"));
}

void Tunnel::end(const QString& reason)
{
    if (m_ended)
        return;
    m_ended = true;
    m_limit.stop();
    m_client->disconnect(this);
    m_server.disconnect(this);
    qint64 up = 0;
    qint64 down = 0;
    if (m_relay) {
        m_relay->stop();
        up = m_relay->carriedUp();
        down = qMax<qint64>(0, m_relay->carriedDown() - answer(m_status).size());
    }
    const Endpoint& target = m_request.target;
    console::print(
        QStringLiteral("%1 %2 %3 up %4 down %5: %6")
            .arg(m_clientText,
                 target.host.isEmpty() ? QStringLiteral("-") : console::printable(target.text()),
                 m_status == 0 ? QStringLiteral("-") : QString::number(m_status),
                 QString::number(up), QString::number(down), reason));
    m_client->abort();
    m_server.abort();
    Q_EMIT ended();
}

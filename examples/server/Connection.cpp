// SPDX-License-Identifier: BSD-3-Clause
#include "server/Connection.h"

#include "common/Console.h"
#include "common/Endpoint.h"
#include "common/Platform.h"
#include "server/ServerOptions.h"

#include <QtNetwork/QHostAddress>

namespace {

constexpr qint64 FILE_PIECE = 64 * 1024;
constexpr qint64 FILE_BACKLOG = 256 * 1024;
constexpr qint64 TRANSPORT_READ_BUFFER = 64 * 1024;

// How long a client may take for its part in the end of the connection.
constexpr int CLOSING_MSECS = 10 * 1000;

} // namespace

Connection::Connection(QTcpSocket* transport, const ServerOptions& options)
    : m_options(options)
    , m_socket(vela::SslSocket::Server)
    , m_transport(transport)
    , m_client(Endpoint{transport->peerAddress().toString(), transport->peerPort()}.text())
    , m_file(options.file)
{
    m_limit.setSingleShot(true);
    m_socket.setPathToCertificate(options.tls.certificate);
    m_socket.setPathToPrivateKey(options.tls.key);
    connect(&m_socket, &QAbstractSocket::connected, this, &Connection::greet);
    connect(&m_socket, &QIODevice::readyRead, this, &Connection::receive);
    connect(&m_socket, &QIODevice::bytesWritten, this, &Connection::sendFile);
    connect(&m_socket, &QAbstractSocket::errorOccurred, this, &Connection::handleError);
    connect(&m_socket, &QAbstractSocket::stateChanged, this, &Connection::limitClosing);
    connect(&m_socket, &QAbstractSocket::disconnected, this,
            [this] { end(QStringLiteral("closed by the client")); });
    connect(&m_limit, &QTimer::timeout, this, [this] {
        end(m_established ? QStringLiteral("the client did not close, or not take the rest")
                          : QStringLiteral("no handshake in time"));
    });
}

void Connection::start()
{
    if (m_options.timeoutMsecs > 0)
        m_limit.start(m_options.timeoutMsecs);
    // A client that floods the server gets no more than its share of each turn.
    m_transport->setReadBufferSize(TRANSPORT_READ_BUFFER);
    m_socket.setSocket(m_transport);
    if (m_transport->state() != QAbstractSocket::ConnectedState)
        end(QStringLiteral("closed by the client"));
}

void Connection::greet()
{
    m_limit.stop();
    m_established = true;
    if (m_options.file.isEmpty())
        return;
    if (m_file.open(QIODevice::ReadOnly))
        sendFile();
    else
        end(m_file.errorString());
}

void Connection::receive()
{
    const QByteArray data = m_socket.readAll();
    m_in += data.size();
    if (m_options.file.isEmpty() && !m_ended)
        echo(data);
}

void Connection::echo(const QByteArray& data)
{
    m_out += m_socket.write(data);
    // Nothing tells the library to stop receiving, so the echo grows with what the client sends.
    if (backlog() > m_options.backlogLimit)
        end(QStringLiteral("the client does not take its echo"));
}

void Connection::sendFile()
{
    if (!m_file.isOpen() || m_ended)
        return;
    while (!m_file.atEnd() && backlog() < FILE_BACKLOG) {
        const QByteArray piece = m_file.read(FILE_PIECE);
        if (piece.isEmpty() && m_file.error() != QFileDevice::NoError) {
            end(m_file.errorString());
            return;
        }
        m_out += m_socket.write(piece);
    }
    if (m_file.atEnd() && !m_fileSent && backlog() == 0)
        finishFile();
}

void Connection::finishFile()
{
    m_fileSent = true;
    // Closing while the client still sends would make the system throw away what the client has
    // not received yet. So only the sending ends here, and the client closes.
    platform::endSending(m_transport->socketDescriptor());
    m_limit.start(CLOSING_MSECS);
}

void Connection::limitClosing(QAbstractSocket::SocketState state)
{
    // A client that has said goodbye may still refuse to take what is on its way.
    if (state == QAbstractSocket::ClosingState && !m_ended)
        m_limit.start(CLOSING_MSECS);
}

void Connection::handleError(QAbstractSocket::SocketError error)
{
    // How a client takes its leave of a file that it has is its own business.
    if (m_fileSent)
        end(QStringLiteral("closed by the client"));
    else if (error != QAbstractSocket::RemoteHostClosedError)
        end(m_socket.errorString());
    else if (!m_established)
        end(QStringLiteral("closed by the client in the handshake"));
    else if (!m_options.file.isEmpty())
        end(QStringLiteral("closed by the client before it had the whole file"));
}

void Connection::end(const QString& reason)
{
    if (m_ended)
        return;
    m_ended = true;
    m_limit.stop();
    const QString cipher = m_socket.getCipherName();
    const QString name = m_socket.serverName();
    const QString client =
        name.isEmpty() ? m_client : QStringLiteral("%1 for %2").arg(m_client, name);
    console::print(QStringLiteral("%1 %2 %3 in %4 out %5: %6")
                       .arg(client, cipher.isEmpty() ? QStringLiteral("-") : cipher,
                            m_established ? (m_socket.isSessionReused() ? QStringLiteral("reused")
                                                                        : QStringLiteral("new"))
                                          : QStringLiteral("-"),
                            QString::number(m_in), QString::number(m_out),
                            console::printable(reason.trimmed())));
    m_socket.close(); // Unlike abort(), this also ends a handshake.
    Q_EMIT ended();
}

qint64 Connection::backlog() const
{
    return m_socket.bytesToWrite() + m_transport->bytesToWrite();
}

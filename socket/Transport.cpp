// SPDX-License-Identifier: BSD-3-Clause
#include "socket/Transport.h"

#include "support/Connect.h"
#include "support/QtCompat.h"

#include <QtNetwork/QNetworkProxy>

namespace vela {

Transport::Transport(QTcpSocket* frame)
    : m_frame(frame)
{
}

QAbstractSocket::SocketState Transport::state() const
{
    return m_socket && !m_silenced ? m_socket->state() : QAbstractSocket::UnconnectedState;
}

void Transport::attach(QTcpSocket* socket, bool owned)
{
    m_socket = socket;
    m_owned = owned;
    m_silenced = false;
    m_signals = TransportSignal::countOf(socket);
    QObject::disconnect(socket, nullptr, nullptr, nullptr);
    if (const char* source = errorSourceSignal(socket))
        vela::connect(socket, source, socket, "2error(QAbstractSocket::SocketError)");

    vela::connect(socket, "2connected()", m_frame, "1sslConnect()");
    vela::connect(socket, "2error(QAbstractSocket::SocketError)", m_frame,
                  "1handleSocketError(QAbstractSocket::SocketError)");
    // Relayed by a function, unlike by a signal, so that it counts as being handled meanwhile.
    QObject::connect(socket, &QTcpSocket::disconnected, m_frame,
                     [frame = m_frame, count = m_signals] {
                         const TransportSignal handling(count);
                         Q_EMIT frame->disconnected();
                     });
    vela::connect(socket, "2readyRead()", m_frame, "1readFromSocket()");
    vela::connect(socket, "2bytesWritten(qint64)", m_frame, "1socketBytesWritten(qint64)");
    vela::connect(socket, "2stateChanged(QAbstractSocket::SocketState)", m_frame,
                  "1handleStateChanged(QAbstractSocket::SocketState)");
}

void Transport::release()
{
    QTcpSocket* const socket = m_socket;
    if (!socket)
        return;
    const bool emitting = m_signals->isHandling();
    socket->disconnect(m_frame);
    m_socket.clear();
    if (!m_owned)
        return;
    if (emitting)
        TransportSignal::dismiss(socket);
    else
        delete socket;
}

void Transport::dismissAll()
{
    if (m_socket)
        TransportSignal::dismiss(m_socket);
    const auto children = m_frame->findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    for (QTcpSocket* child : children) {
        if (TransportSignal::countOf(child)->isHandling())
            TransportSignal::dismiss(child);
    }
}

void Transport::renew()
{
    auto* fresh = new QTcpSocket(m_frame);
    if (QTcpSocket* spent = m_socket) {
        fresh->setProxy(spent->proxy());
        release();
        if (!m_owned)
            TransportSignal::dismiss(spent); // It would be deleted with the frame.
    }
    attach(fresh, true);
}

void Transport::noteSilenced(const QTcpSocket* socket)
{
    if (m_socket == socket)
        m_silenced = true;
}

void Transport::expect(QTcpSocket* socket, bool textMode)
{
    m_upcoming = socket;
    m_upcomingTextMode = textMode;
}

void Transport::abandonUpcoming()
{
    QTcpSocket* const upcoming = m_upcoming;
    if (!upcoming)
        return;
    m_upcoming.clear();
    upcoming->disconnect();
    upcoming->abort();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
// The inner socket of an SslSocket: how it is taken, replaced and given up.

#include "socket/SslSocketPrivate.h"
#include "support/Connect.h"
#include "support/QtCompat.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QMetaObject>
#include <QtNetwork/QNetworkProxy>

namespace vela {

void SslSocketPrivate::attach(QTcpSocket* transport, bool owned)
{
    socket = transport;
    ownsSocket = owned;
    transportSilenced = false;
    transportSignals = TransportSignal::countOf(transport);
    QObject::disconnect(transport, nullptr, nullptr, nullptr);
    if (const char* source = errorSourceSignal(transport))
        vela::connect(transport, source, transport, "2error(QAbstractSocket::SocketError)");

    vela::connect(transport, "2connected()", q, "1sslConnect()");
    vela::connect(transport, "2error(QAbstractSocket::SocketError)", q,
                  "1handleSocketError(QAbstractSocket::SocketError)");
    // Relayed by a function, unlike by a signal, so that it counts as being handled meanwhile.
    QObject::connect(transport, &QTcpSocket::disconnected, q, [this, count = transportSignals] {
        const TransportSignal handling(count);
        Q_EMIT q->disconnected();
    });
    vela::connect(transport, "2readyRead()", q, "1readFromSocket()");
    vela::connect(transport, "2bytesWritten(qint64)", q, "1socketBytesWritten(qint64)");
    vela::connect(transport, "2stateChanged(QAbstractSocket::SocketState)", q,
                  "1handleStateChanged(QAbstractSocket::SocketState)");
}

void SslSocketPrivate::releaseTransport()
{
    QTcpSocket* transport = socket;
    if (!transport)
        return;
    const bool emitting = insideTransportSignal();
    transport->disconnect(q);
    socket.clear();
    if (!ownsSocket)
        return;
    if (emitting)
        TransportSignal::dismiss(transport);
    else
        delete transport;
}

void SslSocketPrivate::dismissTransports()
{
    if (socket)
        TransportSignal::dismiss(socket);
    const auto children = q->findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    for (QTcpSocket* child : children) {
        if (TransportSignal::countOf(child)->isHandling())
            TransportSignal::dismiss(child);
    }
}

void SslSocketPrivate::renewTransport()
{
    auto* fresh = new QTcpSocket(q);
    if (QTcpSocket* spent = socket) {
        fresh->setProxy(spent->proxy());
        releaseTransport();
        if (!ownsSocket)
            TransportSignal::dismiss(spent); // It would be deleted with this object.
    }
    attach(fresh, true);
}

void SslSocketPrivate::abandonUpcomingTransport()
{
    QTcpSocket* transport = upcomingTransport;
    if (!transport)
        return;
    upcomingTransport.clear();
    transport->disconnect();
    transport->abort();
}

void SslSocketPrivate::readLater()
{
    const auto read = [this, guard = SessionGuard(this)] {
        if (guard.holds() && transportState() == QAbstractSocket::ConnectedState
            && socket->bytesAvailable() > 0) {
            q->readFromSocket();
        }
    };
    QMetaObject::invokeMethod(q, read, Qt::QueuedConnection);
}

QAbstractSocket::SocketState SslSocketPrivate::transportState() const
{
    return socket && !transportSilenced ? socket->state() : QAbstractSocket::UnconnectedState;
}

} // namespace vela

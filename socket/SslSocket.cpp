// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslProxySocket.h>
#include <Ferrule/SslSocket.h>

#include "socket/SslSocketPrivate.h"
#include "support/Connect.h"
#include "support/QtCompat.h"

#include <QtNetwork/QNetworkProxy>

namespace vela {

SslSocket::SslSocket(Mode mode, QObject* parent)
    : QTcpSocket(parent)
    , d(new SslSocketPrivate(this, mode))
{
    d->attach(new QTcpSocket(this), true);
}

SslSocket::~SslSocket()
{
    d->reset();
    if (QTcpSocket* transport = d->socket) {
        transport->disconnect(this);
        transport->deleteLater();
    }
    // A slot may be deleting this object while a socket of ours is still emitting; then that has to
    // outlive its parent.
    const auto children = findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    for (QTcpSocket* child : children) {
        if (*TransportSignal::countOf(child) == 0)
            continue;
        child->setParent(nullptr);
        child->deleteLater();
    }
    setSocketState(UnconnectedState); // Or the base would announce the end of a connection.
    delete d;
}

QTcpSocket* SslSocket::createSocket(bool ssl, const QNetworkProxy& proxy, QObject* parent)
{
    const bool direct = proxy.type() == QNetworkProxy::NoProxy;
    if (ssl && direct)
        return new SslSocket(Client, parent);
    if (ssl) {
        auto* proxied = new SslProxySocket(parent);
        proxied->setProxy(proxy);
        return proxied;
    }
    auto* plain = new QTcpSocket(parent);
    if (!direct)
        plain->setProxy(proxy);
    return plain;
}

QTcpSocket* SslSocket::createSocket(bool ssl, const QString& proxyHost, int proxyPort,
                                    const QString& proxyUser, const QString& proxyPassword,
                                    QObject* parent)
{
    Q_UNUSED(parent)
    QNetworkProxy proxy(QNetworkProxy::NoProxy);
    if (!proxyHost.isEmpty()) {
        proxy = QNetworkProxy(QNetworkProxy::HttpProxy, proxyHost, static_cast<quint16>(proxyPort),
                              proxyUser, proxyPassword);
    }
    return createSocket(ssl, proxy, nullptr);
}

void SslSocket::connectToHost(const QString& hostName, quint16 port, OpenMode openMode,
                              NetworkLayerProtocol protocol)
{
    Q_UNUSED(protocol)
    // By name: a subclass's slot of this name is the one that runs.
    QMetaObject::invokeMethod(this, "connectToHostImplementation", Qt::AutoConnection,
                              Q_ARG(QString, hostName), Q_ARG(quint16, port),
                              Q_ARG(OpenMode, openMode));
}

void SslSocket::connectToHostImplementation(QString hostName, quint16 port, OpenMode openMode)
{
    if (state() != UnconnectedState) {
        qWarning("QtSslSocket::connectToHost() called when not in UnconnectedState");
        return;
    }
    open(openMode);
    d->sessionKey = QString::fromLatin1("%1:%2").arg(hostName, QString::number(port));
    d->reset();
    if (!d->socket || d->transportSilenced || d->insideTransportSignal())
        d->renewTransport();

    const SessionGuard guard(d);
    d->socket->connectToHost(hostName, port, openMode, AnyIPProtocol);
    // An address that cannot be reached may have failed, and been reported, already.
    if (guard.holds() && d->transportState() != UnconnectedState)
        setSocketState(ConnectingState);
}

void SslSocket::disconnectFromHost()
{
    QMetaObject::invokeMethod(this, "disconnectFromHostImplementation", Qt::AutoConnection);
}

void SslSocket::disconnectFromHostImplementation()
{
    const SessionGuard guard(d);
    d->abandonUpcomingTransport();
    if (d->socket)
        d->socket->disconnectFromHost();
    if (!guard.holds())
        return;
    d->reset();
    d->emitState(d->transportState());
}

void SslSocket::close()
{
    const SessionGuard guard(d);
    d->abandonUpcomingTransport();
    if (d->socket)
        d->socket->abort();
    if (guard.holds())
        QTcpSocket::close();
}

bool SslSocket::isSequential() const
{
    return true;
}

void SslSocket::setSocket(QTcpSocket* socket)
{
    if (!socket || socket->state() != ConnectedState) {
        qWarning("QtSslSocket::setSocket: QtSslSocket::setSocket() was called with a socket that "
                 "is not in ConnectedState.");
        return;
    }
    const SessionGuard guard(d);
    socket->flush();
    if (!guard.holds())
        return;
    if (d->ssl)
        d->reset();
    if (socket != d->socket)
        d->releaseTransport();
    d->attach(socket, false);
    setOpenMode(socket->openMode());
    initSsl();
}

QTcpSocket* SslSocket::socket() const
{
    return d->socket;
}

void SslSocket::moveToThread(QThread* thread)
{
    QTcpSocket::moveToThread(thread);
    if (d->socket)
        d->socket->moveToThread(thread);
}

void SslSocket::handleSocketError(QAbstractSocket::SocketError error)
{
    const TransportSignal handling(d->transportSignals);
    setErrorString(d->socket->errorString());
    d->emitError(error);
}

void SslSocket::handleStateChanged(QAbstractSocket::SocketState state)
{
    const TransportSignal handling(d->transportSignals);
    switch (state) {
    case UnconnectedState:
    case HostLookupState:
    case ConnectingState:
    case ClosingState:
        d->emitState(state);
        break;
    case ConnectedState: // Ours begins when the handshake is complete.
    case BoundState:
    case ListeningState:
        break;
    }
}

SslSocketPrivate::SslSocketPrivate(SslSocket* owner, SslSocket::Mode role)
    : mode(role)
    , q(owner)
{
}

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
    // No slot of ours runs while disconnected() is relayed; so it is counted before and after.
    QObject::connect(transport, &QTcpSocket::disconnected, q,
                     [count = transportSignals] { ++*count; });
    vela::connect(transport, "2disconnected()", q, "2disconnected()");
    QObject::connect(transport, &QTcpSocket::disconnected, q,
                     [count = transportSignals] { --*count; });
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
    if (emitting) {
        transport->setParent(nullptr); // We may be deleted before the emission ends.
        transport->deleteLater();
    } else {
        delete transport;
    }
}

void SslSocketPrivate::renewTransport()
{
    auto* fresh = new QTcpSocket(q);
    if (QTcpSocket* spent = socket) {
        fresh->setProxy(spent->proxy());
        releaseTransport();
        if (!ownsSocket)
            spent->deleteLater(); // As it would be with this object.
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

QAbstractSocket::SocketState SslSocketPrivate::transportState() const
{
    return socket && !transportSilenced ? socket->state() : QAbstractSocket::UnconnectedState;
}

void SslSocketPrivate::reset()
{
    ++generation;
    releaseEngine();
    readBuffer.clear();
    writeBuffer.clear();
    ciphertext.clear();
    established = false;
    sslInitialised = false;
    writeScheduled = false;
    dataRead = false;
}

void SslSocketPrivate::fail(const QString& text)
{
    q->setErrorString(text);
    emitError(QAbstractSocket::UnknownSocketError);
}

void SslSocketPrivate::emitError(QAbstractSocket::SocketError error)
{
    q->setSocketError(error);
    emitSocketError(q, error);
}

void SslSocketPrivate::emitState(QAbstractSocket::SocketState state)
{
    q->setSocketState(state);
    Q_EMIT q->stateChanged(state);
}

} // namespace vela

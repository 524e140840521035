// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslProxySocket.h>
#include <Ferrule/SslSocket.h>

#include "socket/SslSocketPrivate.h"

#include <QtNetwork/QNetworkProxy>

namespace vela {

SslSocket::SslSocket(Mode mode, QObject* parent)
    : QTcpSocket(parent)
    , d(new SslSocketPrivate(this, mode))
{
    d->transport.attach(new QTcpSocket(this), true);
}

SslSocket::~SslSocket()
{
    if (d->transport)
        d->transport->disconnect(this);
    d->sendLastWords();
    d->reset();
    d->transport.dismissAll();
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
    ++d->connections;
    open(openMode);
    d->sessionKey = QString::fromLatin1("%1:%2").arg(hostName, QString::number(port));
    d->reset();
    if (d->transport.isSpent())
        d->transport.renew();

    const SessionGuard guard(d);
    d->transport->connectToHost(hostName, port, openMode & ~Text, AnyIPProtocol); // TLS is no text.
    // An address that cannot be reached may have failed, and been reported, already.
    if (guard.holds() && d->transport.state() != UnconnectedState)
        setSocketState(ConnectingState);
}

void SslSocket::disconnectFromHost()
{
    QMetaObject::invokeMethod(this, "disconnectFromHostImplementation", Qt::AutoConnection);
}

void SslSocket::disconnectFromHostImplementation()
{
    const SessionGuard guard(d);
    d->transport.abandonUpcoming();
    if (d->transport)
        d->transport->disconnectFromHost();
    if (!guard.holds())
        return;
    d->reset();
    d->emitState(d->transport.state());
}

void SslSocket::close()
{
    const SessionGuard guard(d);
    const quint64 connection = d->connections;
    d->transport.abandonUpcoming();
    d->sendLastWords();
    if (guard.isAlive() && d->connections == connection && d->transport)
        d->transport->abort();
    // A slot may have begun another connection, which keeps the device open.
    if (guard.isAlive() && d->connections == connection)
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
    if (d->engine.connection())
        d->reset();
    ++d->connections;
    if (socket != d->transport.socket())
        d->transport.release();
    d->transport.attach(socket, false);
    d->dropBufferedInput();
    setOpenMode(socket->openMode());
    if (socket->isTextModeEnabled())
        socket->setTextModeEnabled(false); // It is the frame's alone now.
    if (initSsl() && d->transport.isConnected() && d->transport->bytesAvailable() > 0)
        d->pumpInLater(); // The socket has announced it already, to somebody else.
}

QTcpSocket* SslSocket::socket() const
{
    return d->transport.socket();
}

void SslSocket::moveToThread(QThread* thread)
{
    QTcpSocket* const transport = d->transport.socket();
    const bool transportIsChild = transport && transport->parent() == this;
    if (parent() || (transport && transport->parent() && !transportIsChild)) {
        qWarning("QtSslSocket::moveToThread() called for a socket that has a parent, or whose "
                 "inner socket has one.");
        return;
    }
    QTcpSocket::moveToThread(thread);
    if (transport && !transportIsChild)
        transport->moveToThread(thread);
}

void SslSocket::handleSocketError(QAbstractSocket::SocketError error)
{
    d->relayError(error);
}

void SslSocket::handleStateChanged(QAbstractSocket::SocketState state)
{
    d->relayState(state);
}

void SslSocket::readFromSocket()
{
    d->pumpIn();
}

void SslSocket::writeToSocket()
{
    d->pumpOut();
}

void SslSocket::socketBytesWritten(qint64 bytes)
{
    const TransportSignal handling(d->transport.signalCount());
    if (d->isEstablished())
        Q_EMIT bytesWritten(bytes);
}

bool SslSocket::sslConnect()
{
    const TransportSignal handling(d->transport.signalCount());
    return sslAcceptOrConnect(false);
}

bool SslSocket::sslAccept()
{
    open(ReadWrite);
    return sslAcceptOrConnect(true);
}

bool SslSocket::sslAcceptOrConnect(bool accept)
{
    return d->shakeHands(accept ? TlsEngine::Role::Server : TlsEngine::Role::Client);
}

bool SslSocket::initSsl()
{
    return d->prepare();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslProxySocket.h>

#include "socket/SslSocketPrivate.h"
#include "support/Connect.h"
#include "support/QtCompat.h"

#include <QtNetwork/QNetworkProxy>

namespace vela {

namespace {

QByteArray authorizationLine(const QNetworkProxy& proxy)
{
    if (proxy.user().isEmpty())
        return QByteArray();
    const QString credentials = proxy.user() + QLatin1Char(':') + proxy.password();
    return "Proxy-Authorization: Basic " + credentials.toLatin1().toBase64() + "\r\n";
}

QByteArray connectRequest(const QString& hostName, quint16 port, const QNetworkProxy& proxy)
{
    const QString head = QString::fromLatin1("CONNECT %1:%2 HTTP/1.0\r\n"
                                             "Proxy-Connection: keep-alive\r\n")
                             .arg(hostName, QString::number(port));
    return head.toLatin1() + authorizationLine(proxy) + "\r\n";
}

} // namespace

SslProxySocket::SslProxySocket(QObject* parent)
    : SslSocket(Client, parent)
{
}

SslProxySocket::~SslProxySocket() = default;

void SslProxySocket::setProxy(const QString& host, quint16 port, const QString& user,
                              const QString& password)
{
    setProxy(QNetworkProxy(QNetworkProxy::DefaultProxy, host, port, user, password));
}

void SslProxySocket::connectToHostImplementation(QString hostName, quint16 port, OpenMode openMode)
{
    const QNetworkProxy server = proxy();
    if (server.hostName().isEmpty()) {
        connectDirectly(hostName, port, openMode);
        return;
    }
    setPeerName(hostName);
    setPeerPort(port);
    openTunnel(server, openMode);
}

void SslProxySocket::connectDirectly(const QString& hostName, quint16 port, OpenMode openMode)
{
    // Otherwise the call is refused and the connection, tunnel or not, goes on.
    if (state() == UnconnectedState)
        silenceTunnel();
    SslSocket::connectToHostImplementation(hostName, port, openMode);
}

void SslProxySocket::silenceTunnel()
{
    if (!tunnelSocket)
        return;
    tunnelSocket->disconnect();
    // It stays open, and nobody takes what it receives any more.
    tunnelSocket->setReadBufferSize(1);
    d->transport.noteSilenced(tunnelSocket);
}

void SslProxySocket::openTunnel(const QNetworkProxy& proxy, OpenMode openMode)
{
    silenceTunnel();
    auto* tunnel = new QTcpSocket(this);
    tunnelSocket = tunnel;
    ++d->connections;
    d->transport.expect(tunnel, openMode & Text);

    vela::connect(tunnel, "2connected()", this, "1proxyConnected()");
    vela::connect(tunnel, "2readyRead()", this, "1proxyResponse()");
    const auto relayError = [this, count = TransportSignal::countOf(tunnel)](SocketError error) {
        const TransportSignal handling(count);
        d->emitError(error);
    };
    QObject::connect(tunnel, SOCKET_ERROR_SIGNAL, this, relayError);
    tunnel->connectToHost(proxy.hostName(), proxy.port(), openMode & ~Text, AnyIPProtocol);
}

void SslProxySocket::proxyConnected()
{
    if (!tunnelSocket)
        return;
    const TransportSignal handling(TransportSignal::countOf(tunnelSocket));
    tunnelSocket->write(connectRequest(peerName(), peerPort(), proxy()));
    tunnelSocket->flush();
}

void SslProxySocket::proxyResponse()
{
    const QByteArray answer = tunnelSocket ? tunnelSocket->readAll() : QByteArray();
    if (answer.isEmpty())
        return;
    const TransportSignal handling(TransportSignal::countOf(tunnelSocket));
    if (!answer.contains("200")) {
        setErrorString(QString::fromUtf8(answer.constData()));
        d->emitError(ConnectionRefusedError);
        return;
    }
    if (!adoptTunnel())
        return;
    const SessionGuard guard(d);
    Q_EMIT tunnelEstablished();
    // A slot may have given the tunnel up, or begun another one.
    if (guard.holds() && tunnelSocket == d->transport.socket() && d->transport.isConnected())
        sslConnect();
}

/*
    Returns false when a slot of the host's has left nothing to go on with.
*/
bool SslProxySocket::adoptTunnel()
{
    const QPointer<SslProxySocket> self(this);
    QTcpSocket* const tunnel = tunnelSocket;
    const QString serverName = peerName();
    const quint16 serverPort = peerPort();
    d->transport.noteArrival();
    // Before it is adopted, because a session is chosen by this name: by the server, not the proxy.
    // Protected in Qt, which lets a derived class name them for another object only in this way.
    (tunnel->*&SslProxySocket::setPeerName)(serverName);
    (tunnel->*&SslProxySocket::setPeerPort)(serverPort);
    setSocket(tunnel);
    if (!self || d->transport.socket() != tunnel || !d->transport.isConnected())
        return false;

    setTextModeEnabled(d->transport.upcomingTextMode());
    setPeerName(serverName);
    setPeerPort(serverPort);
    return true;
}

} // namespace vela

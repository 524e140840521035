// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLPROXYSOCKET_H
#define FERRULE_SSLPROXYSOCKET_H

#include <Ferrule/Export.h>
#include <Ferrule/SslSocket.h>

#include <QtCore/QPointer>

namespace vela {

/*!
    A TLS client that reaches its server through an HTTP proxy.

    \code
    auto* socket = new vela::SslProxySocket(this);
    socket->setProxy("proxy.example", 3128, "user", "password");
    connect(socket, &QAbstractSocket::connected, this, &Host::talk);
    socket->connectToHost("server.example", 443);
    \endcode

    connectToHost() connects to the proxy and asks it for a tunnel with an HTTP/1.0 `CONNECT`
    request. Once the proxy has agreed, tunnelEstablished() is emitted and the handshake runs
    through the tunnel; from there on all is as with an SslSocket. A proxy without a host name means
    a direct connection.

    The proxy is the one that `QAbstractSocket::proxy()` tells. Only its host name, port, user and
    password count: one of any type is spoken to with `CONNECT`. The connection to it is made by a
    plain `QTcpSocket` without a proxy of its own, so the application's proxy applies to that.

    \section signals Signals while the tunnel is being built
    None but error() and errorOccurred(). stateChanged() stays silent and state() what it was,
    UnconnectedState on a new socket, until the handshake is complete; peerName() and peerPort()
    tell the server from the beginning, peerAddress() is the proxy's once the tunnel stands.

    \section failures Failures of the tunnel
    - An answer without the text "200" in it is a refusal: errorString() is the answer as it came
      (status line, header and body), and the error is `ConnectionRefusedError`. The connection to
      the proxy stays open, and whatever comes next is taken for another answer.
    - A transport error on the way to the proxy is reported with its code, but errorString() stays
      what it was.
    - There is no time limit: a proxy that never answers is waited for. Set a timer.

    After a failure call close(), which gives up the tunnel that is being built, and then connect
    again if need be.

    \section proxyhazards What a host would not guess
    - The answer is not parsed. The first piece of it that contains "200" anywhere, in the header or
      the body of a refusal too, counts as success; the handshake then fails on whatever the proxy
      sends next. What came in the same piece is dropped.
    - User and password go to the proxy in clear, as Basic authorisation in Latin-1 (characters
      beyond it become question marks), with the first request and without being asked. Without a
      user name none are sent, whatever the password.
    - The host name goes to the proxy as it is given: an IPv6 address without brackets, which not
      every proxy takes, and a name with characters beyond ASCII not encoded: pass it through
      `QUrl::toAce()`. Never pass on one that may contain line ends.
    - abort() is Qt's own and does nothing before the handshake is complete: use close().
    - connectToHost() is not refused while a connection is under way or stands: it starts a new
      tunnel, which takes the place of the former connection once it stands. Until then nothing
      more is heard from the former, yet what is written goes to its server. Its socket stays open,
      and a child of this object, as long as the object lives, but receives nothing any more. Call
      disconnectFromHost() or close() first.
    - The device is opened only when the tunnel stands: write() before tunnelEstablished() fails,
      where an SslSocket would keep the data for later.
    - The session key is not set, but sessions are resumed with the server that the tunnel leads to,
      by the name and port that were asked for; see SslSocket.
*/
class FERRULE_EXPORT SslProxySocket : public SslSocket
{
    Q_OBJECT

public:
    //! Constructs an unconnected client without a proxy. It belongs to \a parent, if there is one.
    explicit SslProxySocket(QObject* parent = nullptr);

    //! Destroys the object and every tunnel that it made; see SslSocket.
    ~SslProxySocket() override;

    using QAbstractSocket::setProxy;

    /*!
        Names the proxy for the next connection; with an empty \a host there is none. Stored as a
        proxy of type `DefaultProxy`.
    */
    void setProxy(const QString& host, quint16 port, const QString& user, const QString& password);

Q_SIGNALS:
    //! The proxy has accepted the tunnel and the handshake is about to start.
    void tunnelEstablished();

protected Q_SLOTS:
    //! Carries out connectToHost() on the socket's own thread; called by name.
    void connectToHostImplementation(QString hostName, quint16 port, OpenMode openMode);
    //! Asks the proxy for the tunnel.
    void proxyConnected();
    //! Judges what the proxy answered.
    void proxyResponse();

private:
    Q_DISABLE_COPY(SslProxySocket)

    void connectDirectly(const QString& hostName, quint16 port, OpenMode openMode);
    void silenceTunnel();
    void openTunnel(const QNetworkProxy& proxy, OpenMode openMode);
    bool adoptTunnel();

    QPointer<QTcpSocket> tunnelSocket;
};

} // namespace vela

#endif

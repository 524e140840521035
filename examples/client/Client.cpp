// SPDX-License-Identifier: BSD-3-Clause
#include "client/Client.h"

#include "client/PeerReport.h"
#include "client/ProxyFailure.h"
#include "common/CertificateRows.h"
#include "common/Console.h"
#include "common/Platform.h"

#include <Ferrule/SslProxySocket.h>

#include <QtCore/QCoreApplication>

#include <cerrno>

using vela::SslProxySocket;
using vela::SslSocket;

namespace {

// Input is not read while more than this waits to be sent.
constexpr qint64 UNSENT_LIMIT = 256 * 1024;

// Servers send session tickets at once or not at all.
constexpr int TICKET_WAIT_MSECS = 1000;

} // namespace

Client::Client(const ClientOptions& options)
    : m_options(options)
{
    m_limit.setSingleShot(true);
    m_idle.setSingleShot(true);
    m_idle.setInterval(m_options.closeAfterInputMsecs);
    connect(&m_limit, &QTimer::timeout, this, &Client::handleTimeout);
    connect(&m_idle, &QTimer::timeout, this, [this] {
        m_closing = true;
        m_socket->disconnectFromHost();
    });
    connect(&m_input, &StandardInput::arrived, this, &Client::send);
    connect(&m_input, &StandardInput::ended, this, &Client::endInput);
    connect(&m_input, &StandardInput::failed, this, [this](const QString& reason) {
        fail(ExitStandardStream, QStringLiteral("standard input: %1").arg(reason));
    });
}

void Client::start()
{
    QString failure = m_options.tls.loadForClients();
    if (failure.isNull())
        failure = m_store.load(m_options.store);
    if (failure.isNull())
        connectToPeer();
    else
        fail(ExitSettings, failure);
}

void Client::connectToPeer()
{
    ++m_connection;
    m_established = false;
    m_closing = false;
    makeSocket();
    connect(m_socket.get(), &SslSocket::connectionVerificationDone, this, &Client::judge);
    connect(m_socket.get(), &QAbstractSocket::connected, this, &Client::greet);
    connect(m_socket.get(), &QIODevice::readyRead, this, &Client::receive);
    connect(m_socket.get(), &QIODevice::bytesWritten, this, &Client::continueSending);
    connect(m_socket.get(), &QAbstractSocket::errorOccurred, this, &Client::handleError);
    connect(m_socket.get(), &QAbstractSocket::stateChanged, this, &Client::limitClosing);
    connect(m_socket.get(), &QAbstractSocket::disconnected, this, &Client::handleDisconnection);
    if (m_options.serverName)
        m_socket->setServerName(*m_options.serverName);
    if (m_options.timeoutMsecs > 0)
        m_limit.start(m_options.timeoutMsecs);
    // The name goes to the proxy as it is, and proxies want addresses as URLs have them.
    const Endpoint& peer = m_options.peer;
    const bool bracketed = m_options.proxy.isSet() && peer.host.contains(QLatin1Char(':'));
    m_socket->connectToHost(bracketed ? QStringLiteral("[%1]").arg(peer.host) : peer.host,
                            peer.port);
}

void Client::makeSocket()
{
    const ProxyOption& proxy = m_options.proxy;
    m_tunnelled = !proxy.isSet();
    if (m_tunnelled) {
        m_socket = std::make_unique<SslSocket>(SslSocket::Client);
        return;
    }
    auto socket = std::make_unique<SslProxySocket>();
    socket->setProxy(proxy.endpoint.host, proxy.endpoint.port, proxy.user, proxy.password);
    connect(socket.get(), &SslProxySocket::tunnelEstablished, this, [this] { m_tunnelled = true; });
    m_initialErrorString = socket->errorString();
    m_socket = std::move(socket);
}

void Client::judge(vela::CertVerify verdict, bool hostNameMatched, const QString& description)
{
    const StoreVerdict store = m_store.judge(*m_socket);
    if (!m_options.quiet) {
        console::note(
            QStringLiteral("connection   %1 of %2").arg(m_connection).arg(m_options.connections));
        if (m_options.proxy.isSet())
            console::note(reportRow("proxy", QStringLiteral("tunnel established by ")
                                                 + m_options.proxy.endpoint.text()));
        console::note(peerReport(*m_socket, verdict, hostNameMatched, description));
        for (const QString& row : store.rows)
            console::note(row);
    }
    if (m_options.requireOk && verdict != vela::VerifyOk) {
        failAtPeer(ExitVerdict,
                   QStringLiteral("the verdict is not OK but %1: %2")
                       .arg(verdictName(verdict), peerDescription(*m_socket, description)));
    } else if (m_options.requireOk && m_options.store == StoreChoice::System
               && store.verdict != vela::VerifyOk) {
        failAtPeer(ExitVerdict, QStringLiteral("the verdict of the system's store is not OK but %1")
                                    .arg(verdictName(store.verdict)));
    } else if (m_options.requireHostName && !hostNameMatched) {
        failAtPeer(ExitHostName, QStringLiteral("the certificate is for another host"));
    }
}

void Client::greet()
{
    m_limit.stop();
    m_established = true;
    if (isLast())
        continueSending();
    else if (m_socket->getCipherVersion() == QLatin1String("TLSv1.3"))
        awaitSessionTicket();
    else
        m_socket->disconnectFromHost();
}

void Client::awaitSessionTicket()
{
    // Until TLS 1.2 the ticket belongs to the handshake. Since 1.3 it follows as a message of its
    // own, of which only the inner socket tells.
    m_limit.start(TICKET_WAIT_MSECS);
    connect(m_socket->socket(), &QIODevice::readyRead, this, [this] {
        m_limit.stop();
        m_socket->disconnectFromHost();
    });
}

void Client::receive()
{
    const QByteArray data = m_socket->readAll();
    if (m_finished || !isLast())
        return;
    // While standard output blocks, nothing is received: the library itself would take, and keep,
    // whatever comes.
    if (!platform::writeOutput(data.constData(), data.size())) {
        fail(ExitStandardStream, QStringLiteral("standard output: %1").arg(qt_error_string(errno)));
        return;
    }
    if (m_idle.isActive())
        m_idle.start();
}

void Client::send(const QByteArray& data)
{
    m_reading = false;
    if (m_finished)
        return;
    m_socket->write(data);
    continueSending();
}

void Client::continueSending()
{
    m_unsent = unsent();
    if (!m_established || !isLast() || m_finished)
        return;
    if (m_inputEnded) {
        closeWhenIdle();
    } else if (!m_reading && m_unsent <= UNSENT_LIMIT) {
        m_reading = true;
        m_input.readNext();
    }
}

void Client::endInput()
{
    m_inputEnded = true;
    closeWhenIdle();
}

void Client::closeWhenIdle()
{
    if (m_options.closeAfterInputMsecs >= 0 && unsent() == 0 && !m_idle.isActive() && !m_closing)
        m_idle.start();
}

void Client::handleError(QAbstractSocket::SocketError error)
{
    if (!m_tunnelled) {
        handleProxyError(error);
        return;
    }
    const QString text = m_socket->errorString();
    const bool closed = error == QAbstractSocket::RemoteHostClosedError;
    if (closed && m_established)
        return; // Many peers end without saying goodbye; disconnected() follows.
    if (m_established)
        failAtPeer(ExitBroken, text);
    else if (closed)
        failAtPeer(ExitNoHandshake,
                   QStringLiteral("the peer closed the connection in the handshake"));
    else if (error == QAbstractSocket::UnknownSocketError)
        failAtPeer(ExitNoHandshake, text);
    else if (error == QAbstractSocket::SocketTimeoutError)
        failAtPeer(ExitTimeout, text);
    else
        failAtPeer(ExitNoConnection, text);
}

void Client::handleProxyError(QAbstractSocket::SocketError error)
{
    // Only an answer of the proxy becomes the error string; other failures leave it as it was.
    const QString text = m_socket->errorString();
    const QString failure =
        text == m_initialErrorString ? proxyConnectionFailure(error) : proxyRefusal(text);
    failAtPeer(error == QAbstractSocket::SocketTimeoutError ? ExitTimeout : ExitNoConnection,
               failure);
}

void Client::handleDisconnection()
{
    if (m_finished)
        return;
    if (!m_established) {
        failAtPeer(ExitNoHandshake,
                   QStringLiteral("the peer closed the connection in the handshake"));
    } else if (!isLast()) {
        m_limit.stop();
        // Queued: the socket that is replaced is the one that emits this.
        QMetaObject::invokeMethod(this, &Client::connectToPeer, Qt::QueuedConnection);
    } else if (m_unsent > 0) {
        failAtPeer(ExitBroken,
                   QStringLiteral("the peer closed the connection before all input was sent"));
    } else {
        finish(ExitOk);
    }
}

void Client::limitClosing(QAbstractSocket::SocketState state)
{
    // A peer that has said goodbye may still refuse to take what is on its way.
    if (state == QAbstractSocket::ClosingState && m_options.timeoutMsecs > 0 && !m_finished)
        m_limit.start(m_options.timeoutMsecs);
}

void Client::handleTimeout()
{
    if (!m_established) {
        failAtPeer(
            ExitTimeout,
            QStringLiteral("no connection within %1 seconds").arg(m_options.timeoutMsecs / 1000.0));
    } else if (isLast()) {
        failAtPeer(ExitBroken, QStringLiteral("the peer does not take the rest of the input"));
    } else {
        m_socket->disconnectFromHost(); // No session ticket has come; go on without.
    }
}

void Client::failAtPeer(ExitStatus status, const QString& text)
{
    QString peer = m_options.peer.text();
    if (m_options.proxy.isSet())
        peer += QStringLiteral(" through ") + m_options.proxy.endpoint.text();
    fail(status, QStringLiteral("%1: %2").arg(peer, text));
}

void Client::fail(ExitStatus status, const QString& text)
{
    if (m_finished)
        return;
    console::complain(console::printable(text.trimmed()));
    finish(status);
}

void Client::finish(ExitStatus status)
{
    m_finished = true;
    m_limit.stop();
    m_idle.stop();
    if (m_socket)
        m_socket->close();
    QCoreApplication::exit(status);
}

qint64 Client::unsent() const
{
    const QTcpSocket* transport = m_socket->socket();
    return m_socket->bytesToWrite() + (transport ? transport->bytesToWrite() : 0);
}

// SPDX-License-Identifier: BSD-3-Clause
// The frame of an SslSocket: how a connection begins and ends, and what is reported of it.

#include "socket/SslSocketPrivate.h"

#include "cert/HostName.h"
#include "socket/SessionCache.h"
#include "support/QtCompat.h"

#include <QtNetwork/QHostAddress>

#include <algorithm>

namespace vela {

SslSocketPrivate::SslSocketPrivate(SslSocket* owner, SslSocket::Mode role)
    : q(owner)
    , mode(role)
    , transport(owner)
{
}

void SslSocketPrivate::reset()
{
    ++generation;
    engine.release();
    readBuffer.clear();
    writeBuffer.clear();
    m_ciphertext.clear();
    progress = ConnectionProgress();
}

bool SslSocketPrivate::prepare()
{
    const TlsEngine::Role role =
        mode == SslSocket::Server ? TlsEngine::Role::Server : TlsEngine::Role::Client;
    const QString error = engine.begin(role, settings, sessionOrigin());
    if (!error.isNull()) {
        fail(error);
        return false;
    }
    const SessionGuard guard(this);
    if (transport) {
        copyEndpoint();
        transport->flush();
    }
    if (!guard.holds())
        return false;
    // A slot may have taken the connection further.
    progress.stage = std::max(progress.stage, ConnectionProgress::Prepared);
    return true;
}

SessionOrigin SslSocketPrivate::sessionOrigin() const
{
    if (!transport)
        return {sessionKey, sessionKey, QByteArray()};
    const QString name = transport->peerName();
    const QByteArray serverName = readHostName(settings.serverName.value_or(name)).name;
    if (transport.isOwned())
        return {sessionKey, sessionKey, serverName};
    const QString server = name.isEmpty() ? transport->peerAddress().toString() : name;
    return {sessionKey,
            QString::fromLatin1("%1:%2").arg(server, QString::number(transport->peerPort())),
            serverName};
}

QString SslSocketPrivate::serverName() const
{
    if (engine.connection())
        return QString::fromLatin1(engine.serverName());
    return QString::fromLatin1(readHostName(settings.serverName.value_or(QString())).name);
}

void SslSocketPrivate::copyEndpoint()
{
    q->setPeerAddress(transport->peerAddress());
    q->setPeerPort(transport->peerPort());
    q->setPeerName(transport->peerName());
    q->setLocalAddress(transport->localAddress());
    q->setLocalPort(transport->localPort());
}

void SslSocketPrivate::fail(const QString& text)
{
    q->setErrorString(text);
    emitError(QAbstractSocket::UnknownSocketError);
}

void SslSocketPrivate::failEngine(const QString& text)
{
    progress.engineFailed = true;
    if (progress.reportingFailure)
        return;
    // Hosts close the socket when they hear of it, and then nothing would leave any more. Where
    // something waited already, Qt may be waiting for it to leave; then closing sends the alert.
    const SessionGuard guard(this);
    const bool wasOpen = q->isOpen();
    flushEngine();
    if (guard.holds() && (m_activeReads == 0 || m_nothingWaited))
        sendLastWords();
    // OpenSSL has dropped the session of a connection that failed.
    SessionCache::reportRemovals();
    // A host that was told that the peer has gone may have closed the socket already.
    if (!guard.holds() || q->isOpen() != wasOpen)
        return;
    progress.reportingFailure = true;
    fail(text);
    if (guard.holds())
        progress.reportingFailure = false;
}

void SslSocketPrivate::sendLastWords()
{
    if (progress.engineFailed && transport.isConnected())
        transport->flush();
}

void SslSocketPrivate::dropBufferedInput()
{
    if (q->isTransactionStarted())
        q->commitTransaction();
    while (q->isReadable() && q->QIODevice::bytesAvailable() > 0)
        q->QIODevice::read(q->QIODevice::bytesAvailable());
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

void SslSocketPrivate::relayError(QAbstractSocket::SocketError error)
{
    const TransportSignal handling(transport.signalCount());
    q->setErrorString(transport->errorString());
    emitError(error);
}

void SslSocketPrivate::relayState(QAbstractSocket::SocketState state)
{
    const TransportSignal handling(transport.signalCount());
    switch (state) {
    case QAbstractSocket::UnconnectedState:
    case QAbstractSocket::HostLookupState:
    case QAbstractSocket::ConnectingState:
    case QAbstractSocket::ClosingState:
        emitState(state);
        break;
    case QAbstractSocket::ConnectedState: // Ours begins when the handshake is complete.
    case QAbstractSocket::BoundState:
    case QAbstractSocket::ListeningState:
        break;
    }
}

} // namespace vela

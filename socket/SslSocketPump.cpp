// SPDX-License-Identifier: BSD-3-Clause
// The pump of an SslSocket: in which order its legs run, and those on the way in.

#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QMetaObject>

#include <cstring>

namespace vela {

namespace {

constexpr int PLAINTEXT_PIECE = 4096;

// How much ciphertext the engine is handed at a time. A memory BIO of OpenSSL 1.0.2 moves all
// that it holds with every read; a backlog waits in the inner socket instead.
constexpr qint64 CIPHERTEXT_BATCH = 32 * 1024;

// How much is sent at once, without leaving it to the event loop when.
constexpr qint64 LARGEST_ANSWER = 64 * 1024;

} // namespace

/*
    The way in. The legs run in this order, once for each batch of ciphertext; each emits signals,
    and each returns false when the slots or a failure left nothing to go on with. While the host
    judges the peer, all that comes waits in the inner socket.
*/
void SslSocketPrivate::pumpIn()
{
    if (isBeingJudged())
        return;
    const TransportSignal handling(transport.signalCount());
    const SessionGuard guard(this);
    if (m_activeReads == 0)
        m_nothingWaited = transport && transport->bytesToWrite() == 0;
    ++m_activeReads;
    bool more = true;
    while (more) {
        more = takeCiphertext() && (isEstablished() || stepHandshake()) && decrypt() && send()
               && mayHoldMore();
        if (!guard.isAlive())
            return;
    }
    --m_activeReads;
    readBuffer.releaseSpare();
    if (guard.holds())
        sendAnswer();
}

void SslSocketPrivate::pumpInLater()
{
    const auto read = [this, guard = SessionGuard(this)] {
        if (guard.holds() && transport.isConnected() && transport->bytesAvailable() > 0)
            pumpIn();
    };
    QMetaObject::invokeMethod(q, read, Qt::QueuedConnection);
}

/*
    The way out. What is written before the handshake is complete waits for it; what the engine
    itself has to say does not.
*/
void SslSocketPrivate::pumpOut()
{
    progress.writeScheduled = false;
    if (isEstablished() && !encrypt())
        return;
    flushEngine();
}

/*
    Sends what reading gave rise to, the host's answers for the most part, without another pass of
    the event loop, which would take longer than encrypting them. A large answer goes with the event
    loop, or it might keep others waiting. What a host is waiting for to be sent is left to that
    wait, which would go on for ever if there were nothing to send any more; Qt begins to wait, for
    the frame or for the inner socket itself, only where something waits.
*/
void SslSocketPrivate::sendAnswer()
{
    if (m_activeReads == 0 && activeWaits == 0 && m_nothingWaited && transport
        && transport->bytesToWrite() <= LARGEST_ANSWER) {
        transport->flush();
    }
}

bool SslSocketPrivate::takeCiphertext()
{
    m_tookCiphertext = false;
    if (!transport)
        return true;
    const bool wasConnected = transport->state() == QAbstractSocket::ConnectedState;
    const QByteArray batch = transport->read(CIPHERTEXT_BATCH);
    if (wasConnected && transport->state() == QAbstractSocket::UnconnectedState) {
        relaySilentEnd();
        return false;
    }
    if (batch.isEmpty())
        return true;
    m_tookCiphertext = true;
    if (engine.feed(batch.constData(), batch.size()))
        return true;
    fail(SslSocket::tr("Failed to write protocol data to BIO"));
    return false;
}

/*
    An unbuffered socket does not tell what the system holds for it.
*/
bool SslSocketPrivate::mayHoldMore() const
{
    return transport
           && (transport->bytesAvailable() > 0
               || (m_tookCiphertext && (transport->openMode() & QIODevice::Unbuffered)));
}

/*
    An unbuffered socket of Qt notices the end of its connection when it is read from, and tells
    nobody. The host may end the connection itself in the report, which changes nothing.
*/
void SslSocketPrivate::relaySilentEnd()
{
    const SessionGuard guard(this);
    const quint64 connection = connections;
    const auto isOver = [&] { return !guard.isAlive() || connections != connection; };
    relayError(transport->error());
    for (const auto state : {QAbstractSocket::ClosingState, QAbstractSocket::UnconnectedState}) {
        if (!isOver() && q->state() != QAbstractSocket::UnconnectedState)
            relayState(state);
    }
    if (!isOver())
        Q_EMIT q->disconnected();
}

bool SslSocketPrivate::stepHandshake()
{
    const SessionGuard guard(this);
    bool completed = false;
    progress.connectedDue = true;
    switch (mode) {
    case SslSocket::Client:
        completed = shakeHands(TlsEngine::Role::Client);
        break;
    case SslSocket::Server:
        q->open(QIODevice::ReadWrite);
        completed = shakeHands(TlsEngine::Role::Server);
        break;
    default: // Reading would make the engine start one all the same.
        return false;
    }
    if (!guard.holds() || !send())
        return false;
    if (completed)
        return announceConnected();
    progress.connectedDue = false;
    return true;
}

bool SslSocketPrivate::announceConnected()
{
    // The data that came with the end of the handshake has been announced already, and a slot may
    // have closed the connection.
    if (!transport.isConnected())
        return false;
    const SessionGuard guard(this);
    emitState(QAbstractSocket::ConnectedState);
    if (!guard.holds() || !transport.isConnected())
        return false;
    progress.connectedDue = false;
    Q_EMIT q->connected();
    return guard.holds();
}

bool SslSocketPrivate::decrypt()
{
    const SessionGuard guard(this);
    char piece[PLAINTEXT_PIECE];
    for (;;) {
        const QAbstractSocket::SocketState state = transport.state();
        if (!engine.connection() || state == QAbstractSocket::ClosingState
            || state == QAbstractSocket::UnconnectedState) {
            return false;
        }
        const TlsEngine::Outcome outcome = engine.decrypt(piece, PLAINTEXT_PIECE);
        if (!keepsPeer())
            return false;
        if (!outcome.isDone())
            return finishDecryption(outcome);
        const auto size = static_cast<std::size_t>(outcome.size);
        std::memcpy(readBuffer.reserve(outcome.size), piece, size);
        if (!announcePlaintext())
            return false;
        progress.dataRead = true;
    }
}

/*
    Emits readyRead() for the piece that was added last. Within one of its slots, where a wait may
    have decrypted it, that is left to the emission that is under way: a host that waits there for a
    large message would otherwise fill the stack.
*/
bool SslSocketPrivate::announcePlaintext()
{
    ++progress.announcementsDue;
    if (progress.announcing)
        return true;
    const SessionGuard guard(this);
    progress.announcing = true;
    while (progress.announcementsDue > 0) {
        --progress.announcementsDue;
        Q_EMIT q->readyRead();
        if (!guard.holds())
            return false;
    }
    progress.announcing = false;
    return true;
}

bool SslSocketPrivate::finishDecryption(const TlsEngine::Outcome& outcome)
{
    if (outcome.result == TlsEngine::Result::WantsMore)
        return true;
    if (outcome.result == TlsEngine::Result::Closed) {
        // The host is to see connected() before the end of the connection; the step of the
        // handshake that announces it reads the goodbye once more.
        if (!progress.connectedDue)
            followGoodbye();
        return false;
    }
    failEngine(SslSocket::tr("Failed to read from SSL, %1").arg(outcome.text()));
    return false;
}

/*
    Ends the connection that the peer has said goodbye to. What the host has written by now, be it
    the answer to the data in front of the goodbye, still leaves.
*/
void SslSocketPrivate::followGoodbye()
{
    if (send() && transport)
        transport->disconnectFromHost();
}

} // namespace vela

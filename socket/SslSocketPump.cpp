// SPDX-License-Identifier: BSD-3-Clause
// The pump of an SslSocket: bytes between the inner socket, the engine and the host's buffers.

#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QMetaObject>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vela {

namespace {

constexpr int PLAINTEXT_PIECE = 4096;

// How much ciphertext the engine is handed at a time. A memory BIO of OpenSSL 1.0.2 moves all that
// it holds with every read; a backlog waits in the inner socket instead.
constexpr qint64 CIPHERTEXT_BATCH = 32 * 1024;

// How much the engine encrypts at a time; a multiple of what a record holds, so that none is
// smaller for it. All of it waits in a memory BIO, whose size is limited.
constexpr int LARGEST_PIECE = 1 << 20;

// How much of it goes to the inner socket at a time: far below the size at which a QByteArray is
// full.
constexpr qint64 LARGEST_OUTPUT = 1 << 30;

// How much is sent at once, without leaving it to the event loop when.
constexpr qint64 LARGEST_ANSWER = 64 * 1024;

//! Returns about how much \a plaintext bytes take on the wire, for a buffer that need not grow.
int roomForRecords(qint64 plaintext)
{
    return static_cast<int>(std::min(LARGEST_OUTPUT, plaintext + plaintext / 64 + 256));
}

} // namespace

/*
    The inbound path, in this order: take ciphertext, step the handshake until there is a session,
    decrypt. Each of these emits signals, and each returns false when the slots or a failure left
    nothing to go on with. While the host judges the peer, all that comes waits in the inner socket.
*/
void SslSocket::readFromSocket()
{
    if (d->isBeingJudged())
        return;
    const TransportSignal handling(d->transport.signalCount());
    const SessionGuard guard(d);
    if (d->activeReads == 0)
        d->nothingWaited = d->transport && d->transport->bytesToWrite() == 0;
    ++d->activeReads;
    bool more = true;
    while (more) {
        more = d->takeCiphertext() && (d->established || d->stepHandshake()) && d->decrypt()
               && d->mayHoldMore();
        if (!guard.isAlive())
            return;
    }
    --d->activeReads;
    d->readBuffer.releaseSpare();
    if (guard.holds())
        d->sendAnswer();
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
    if (activeReads == 0 && activeWaits == 0 && nothingWaited && transport
        && transport->bytesToWrite() <= LARGEST_ANSWER) {
        transport->flush();
    }
}

bool SslSocketPrivate::takeCiphertext()
{
    tookCiphertext = false;
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
    tookCiphertext = true;
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
               || (tookCiphertext && (transport->openMode() & QIODevice::Unbuffered)));
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
    q->handleSocketError(transport->error());
    for (const auto state : {QAbstractSocket::ClosingState, QAbstractSocket::UnconnectedState}) {
        if (!isOver() && q->state() != QAbstractSocket::UnconnectedState)
            q->handleStateChanged(state);
    }
    if (!isOver())
        Q_EMIT q->disconnected();
}

bool SslSocketPrivate::stepHandshake()
{
    const SessionGuard guard(this);
    bool completed = false;
    connectedDue = true;
    switch (mode) {
    case SslSocket::Client:
        completed = q->sslAcceptOrConnect(false);
        break;
    case SslSocket::Server:
        q->open(QIODevice::ReadWrite);
        completed = q->sslAcceptOrConnect(true);
        break;
    default: // Reading would make the engine start one all the same.
        return false;
    }
    if (!guard.holds())
        return false;
    q->writeToSocket();
    if (!guard.holds())
        return false;
    if (completed)
        return announceConnected();
    connectedDue = false;
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
    connectedDue = false;
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
        dataRead = true;
    }
}

/*
    Emits readyRead() for the piece that was added last. Within one of its slots, where a wait may
    have decrypted it, that is left to the emission that is under way: a host that waits there for a
    large message would otherwise fill the stack.
*/
bool SslSocketPrivate::announcePlaintext()
{
    ++announcementsDue;
    if (announcing)
        return true;
    const SessionGuard guard(this);
    announcing = true;
    while (announcementsDue > 0) {
        --announcementsDue;
        Q_EMIT q->readyRead();
        if (!guard.holds())
            return false;
    }
    announcing = false;
    return true;
}

bool SslSocketPrivate::finishDecryption(const TlsEngine::Outcome& outcome)
{
    if (outcome.result == TlsEngine::Result::WantsMore) {
        const SessionGuard guard(this);
        q->writeToSocket();
        return guard.holds();
    }
    if (outcome.result == TlsEngine::Result::Closed) {
        // The host is to see connected() before the end of the connection; the step of the
        // handshake that announces it reads the goodbye once more.
        if (!connectedDue)
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
    const SessionGuard guard(this);
    q->writeToSocket();
    if (guard.holds() && transport)
        transport->disconnectFromHost();
}

void SslSocket::writeToSocket()
{
    d->writeScheduled = false;
    if (d->established && !d->encrypt())
        return;
    d->flushEngine();
}

/*
    The engine takes nothing while the peer renegotiates and its answer is still to come; reading
    that answer encrypts what has waited.
*/
bool SslSocketPrivate::encrypt()
{
    if (!writeBuffer.isEmpty())
        ciphertext.reserve(roomForRecords(ciphertext.size() + writeBuffer.size()));
    while (!writeBuffer.isEmpty()) {
        if (engine.hasRefusedPeer())
            return false;
        const int size = std::min(LARGEST_PIECE, writeBuffer.nextDataBlockSize());
        const TlsEngine::Outcome outcome = engine.encrypt(writeBuffer.readPointer(), size);
        if (!keepsPeer())
            return false;
        if (outcome.result == TlsEngine::Result::WantsMore)
            return true;
        if (!outcome.isDone()) {
            engineFailed = true;
            fail(SslSocket::tr("SSL error: %1").arg(outcome.text()));
            return false;
        }
        writeBuffer.free(outcome.size);
        collectCiphertext();
    }
    writeBuffer.releaseSpare();
    return true;
}

void SslSocketPrivate::readLater()
{
    const auto read = [this, guard = SessionGuard(this)] {
        if (guard.holds() && transport.isConnected() && transport->bytesAvailable() > 0)
            q->readFromSocket();
    };
    QMetaObject::invokeMethod(q, read, Qt::QueuedConnection);
}

/*
    Takes what the engine has written. Done for each record: a memory BIO never shrinks, and copying
    within the processor's cache is cheaper.
*/
void SslSocketPrivate::collectCiphertext()
{
    const int pending = engine.pendingOutput();
    if (pending < 1)
        return;
    if (ciphertext.size() > 0 && ciphertext.size() + qint64(pending) > LARGEST_OUTPUT)
        handOver();
    const int size = ciphertext.size();
    ciphertext.resize(size + pending);
    engine.drain(ciphertext.data() + size, pending);
}

void SslSocketPrivate::handOver()
{
    const QByteArray output = std::exchange(ciphertext, QByteArray());
    if (transport && transport->isOpen())
        transport->write(output);
}

void SslSocketPrivate::flushEngine()
{
    collectCiphertext();
    if (!ciphertext.isEmpty() && transport && transport->isOpen())
        handOver();
}

void SslSocket::socketBytesWritten(qint64 bytes)
{
    const TransportSignal handling(d->transport.signalCount());
    if (d->established)
        Q_EMIT bytesWritten(bytes);
}

} // namespace vela

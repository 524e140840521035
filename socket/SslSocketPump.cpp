// SPDX-License-Identifier: BSD-3-Clause
// The pump of an SslSocket: bytes between the inner socket, the engine and the host's buffers.

#include "socket/SslSocketPrivate.h"
#include "support/OpenSslErrors.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QScopedValueRollback>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vela {

namespace {

constexpr int PLAINTEXT_PIECE = 4096;

// How much ciphertext the engine is handed at a time. A memory BIO of OpenSSL 1.0.2 moves all that
// it holds with every read; a backlog waits in the inner socket instead.
constexpr qint64 CIPHERTEXT_BATCH = 32 * 1024;

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
    nothing to go on with.
*/
void SslSocket::readFromSocket()
{
    const TransportSignal handling(d->transportSignals);
    const SessionGuard guard(d);
    ++d->activeReads;
    bool more = true;
    while (more) {
        more = d->takeCiphertext() && (d->established || d->stepHandshake()) && d->decrypt()
               && d->socket->bytesAvailable() > 0;
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
    loop, or it might keep others waiting. Who waits without an event loop is left to ask for it:
   there would be nothing for waitForBytesWritten() to wait for.
*/
void SslSocketPrivate::sendAnswer()
{
    if (activeReads == 0 && activeWaits == 0 && socket && socket->bytesToWrite() <= LARGEST_ANSWER)
        socket->flush();
}

bool SslSocketPrivate::takeCiphertext()
{
    const QByteArray batch = socket ? socket->read(CIPHERTEXT_BATCH) : QByteArray();
    if (batch.isEmpty())
        return true;
    clearOpenSslErrors();
    if (readBio && BIO_write(readBio, batch.constData(), batch.size()) == batch.size())
        return true;
    fail(SslSocket::tr("Failed to write protocol data to BIO"));
    return false;
}

bool SslSocketPrivate::stepHandshake()
{
    const SessionGuard guard(this);
    bool completed = false;
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
    return completed ? announceConnected() : true;
}

bool SslSocketPrivate::announceConnected()
{
    // The data that came with the end of the handshake has been announced already, and a slot may
    // have closed the connection.
    if (transportState() != QAbstractSocket::ConnectedState)
        return false;
    const SessionGuard guard(this);
    emitState(QAbstractSocket::ConnectedState);
    if (!guard.holds() || transportState() != QAbstractSocket::ConnectedState)
        return false;
    Q_EMIT q->connected();
    return guard.holds();
}

bool SslSocketPrivate::decrypt()
{
    const SessionGuard guard(this);
    char piece[PLAINTEXT_PIECE];
    int result = 0;
    for (;;) {
        const QAbstractSocket::SocketState state = transportState();
        if (!ssl || state == QAbstractSocket::ClosingState
            || state == QAbstractSocket::UnconnectedState) {
            return false;
        }
        clearOpenSslErrors();
        result = SSL_read(ssl, piece, PLAINTEXT_PIECE);
        if (!keepsPeer())
            return false;
        if (result < 1)
            break;
        std::memcpy(readBuffer.reserve(result), piece, static_cast<std::size_t>(result));
        Q_EMIT q->readyRead();
        if (!guard.holds())
            return false;
        dataRead = true;
    }
    return finishDecryption(result);
}

bool SslSocketPrivate::finishDecryption(int result)
{
    const int error = SSL_get_error(ssl, result);
    if (result < 0 && (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE)) {
        const SessionGuard guard(this);
        q->writeToSocket();
        return guard.holds();
    }
    if (result == 0 && error == SSL_ERROR_ZERO_RETURN) {
        // While the handshake's last step is still active it is left to that: the host is to see
        // connected() before the end of the connection.
        if (activeReads == 1)
            socket->disconnectFromHost();
        return false;
    }
    fail(SslSocket::tr("Failed to read from SSL, %1").arg(takeOpenSslError()));
    return false;
}

void SslSocket::writeToSocket()
{
    d->writeScheduled = false;
    if (d->established && !d->encrypt())
        return;
    d->flushEngine();
}

bool SslSocketPrivate::encrypt()
{
    if (!writeBuffer.isEmpty())
        ciphertext.reserve(roomForRecords(ciphertext.size() + writeBuffer.size()));
    while (!writeBuffer.isEmpty()) {
        if (session.peer.hasRefused())
            return false;
        clearOpenSslErrors();
        const int written =
            SSL_write(ssl, writeBuffer.readPointer(), writeBuffer.nextDataBlockSize());
        if (!keepsPeer())
            return false;
        if (written < 1) {
            fail(SslSocket::tr("SSL error: %1").arg(takeOpenSslError()));
            return false;
        }
        writeBuffer.free(written);
        collectCiphertext();
    }
    writeBuffer.releaseSpare();
    return true;
}

/*
    Takes what the engine has written. Done for each record: a memory BIO never shrinks, and copying
    within the processor's cache is cheaper.
*/
void SslSocketPrivate::collectCiphertext()
{
    const int pending = writeBio ? static_cast<int>(BIO_pending(writeBio)) : 0;
    const int size = ciphertext.size();
    if (pending < 1 || (size > 0 && size + qint64(pending) > LARGEST_OUTPUT))
        return;
    ciphertext.resize(size + pending);
    BIO_read(writeBio, ciphertext.data() + size, pending);
}

void SslSocketPrivate::flushEngine()
{
    while (socket && socket->isOpen()) {
        collectCiphertext();
        if (ciphertext.isEmpty())
            return;
        socket->write(std::exchange(ciphertext, QByteArray()));
    }
}

void SslSocket::socketBytesWritten(qint64 bytes)
{
    const TransportSignal handling(d->transportSignals);
    if (d->established)
        Q_EMIT bytesWritten(bytes);
}

} // namespace vela

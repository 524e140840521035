// SPDX-License-Identifier: BSD-3-Clause
// The QIODevice side of an SslSocket: what the host reads, writes and waits for.

#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QMetaObject>

#include <algorithm>

namespace vela {

namespace {

// While the inner socket closes after an error it has no connection any more, which Qt's waiting
// functions do not expect.
bool canWait(const QTcpSocket* transport)
{
    return transport
           && (transport->state() != QAbstractSocket::ClosingState
               || transport->socketDescriptor() != -1);
}

} // namespace

bool SslSocket::atEnd() const
{
    return QTcpSocket::atEnd() && d->readBuffer.isEmpty();
}

qint64 SslSocket::bytesAvailable() const
{
    // The device's buffer is meant, and nothing that the classes in between may count.
    return d->readBuffer.size()
           + QIODevice::bytesAvailable(); // NOLINT(bugprone-parent-virtual-call)
}

qint64 SslSocket::bytesToWrite() const
{
    return d->writeBuffer.size();
}

bool SslSocket::canReadLine() const
{
    return d->readBuffer.indexOf('\n') >= 0;
}

bool SslSocket::waitForReadyRead(int msecs)
{
    const SessionGuard guard(d);
    ++d->activeWaits;
    const bool ready = d->waitForPlaintext(msecs);
    if (guard.isAlive())
        --d->activeWaits;
    return ready;
}

bool SslSocketPrivate::waitForPlaintext(int msecs)
{
    QElapsedTimer timer;
    timer.start();
    const SessionGuard guard(this);
    progress.dataRead = false;
    for (;;) {
        if (!writeBuffer.isEmpty())
            pumpOut();
        if (guard.holds() && !progress.engineFailed && hasUnreadInput())
            pumpIn();
        if (!guard.holds())
            return false;
        if (progress.dataRead)
            return true;
        if (isBeingJudged() || progress.engineFailed || engine.hasGoodbye()
            || !canWait(transport.socket()))
            return false;
        const qint64 left = std::max<qint64>(0, msecs - timer.elapsed());
        const bool arrived = transport->waitForReadyRead(static_cast<int>(left));
        if (!guard.holds() || !arrived)
            return false;
        if (progress.dataRead)
            return true;
        if (transport.state() == QAbstractSocket::UnconnectedState)
            return false;
    }
}

/*
    Inside one of its own readyRead() slots the inner socket keeps silent about new data; within
    readyRead() of the frame the rest of a record or of a batch is still to be decrypted.
*/
bool SslSocketPrivate::hasUnreadInput() const
{
    if (transport && transport->bytesAvailable() > 0)
        return true;
    if (!progress.announcing)
        return false;
    return engine.hasBufferedInput()
           || (transport && (transport->openMode() & QIODevice::Unbuffered));
}

bool SslSocket::waitForBytesWritten(int msecs)
{
    const SessionGuard guard(d);
    const QDeadlineTimer deadline(msecs);
    if (!d->writeBuffer.isEmpty())
        d->pumpOut();
    // While the peer renegotiates, the engine takes nothing before it has the peer's answer.
    while (guard.holds() && d->isEstablished() && !d->progress.engineFailed
           && !d->writeBuffer.isEmpty() && d->transport.isConnected()
           && d->transport->bytesToWrite() == 0) {
        ++d->activeWaits;
        const bool arrived =
            d->transport->waitForReadyRead(static_cast<int>(deadline.remainingTime()));
        if (guard.isAlive())
            --d->activeWaits;
        if (!arrived)
            return false;
    }
    return guard.holds() && canWait(d->transport.socket())
           && d->transport->waitForBytesWritten(static_cast<int>(deadline.remainingTime()));
}

qint64 SslSocket::readData(char* data, qint64 maxlen)
{
    if (!d->isEstablished())
        return -1;
    return std::max<qint64>(0, d->readBuffer.read(data, maxlen));
}

qint64 SslSocket::readLineData(char* data, qint64 maxlen)
{
    return d->readBuffer.readLine(data, maxlen);
}

qint64 SslSocket::writeData(const char* data, qint64 len)
{
    if (!d->progress.writeScheduled) {
        d->progress.writeScheduled = true;
        QMetaObject::invokeMethod(this, "writeToSocket", Qt::QueuedConnection);
    }
    d->writeBuffer.append(data, len);
    return len;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
// The legs of the pump on the way out: from the host's buffer through the engine.

#include "socket/SslSocketPrivate.h"

#include <Ferrule/SslSocket.h>

#include <algorithm>
#include <utility>

namespace vela {

namespace {

// How much the engine encrypts at a time; a multiple of what a record holds, so that none is
// smaller for it. All of it waits in a memory BIO, whose size is limited.
constexpr int LARGEST_PIECE = 1 << 20;

// How much of it goes to the inner socket at a time: far below the size at which a QByteArray is
// full.
constexpr qint64 LARGEST_OUTPUT = 1 << 30;

//! Returns about how much \a plaintext bytes take on the wire, for a buffer that need not grow.
int roomForRecords(qint64 plaintext)
{
    return static_cast<int>(std::min(LARGEST_OUTPUT, plaintext + plaintext / 64 + 256));
}

} // namespace

bool SslSocketPrivate::send()
{
    const SessionGuard guard(this);
    pumpOut();
    return guard.holds();
}

/*
    The engine takes nothing while the peer renegotiates and its answer is still to come; reading
    that answer encrypts what has waited.
*/
bool SslSocketPrivate::encrypt()
{
    if (!writeBuffer.isEmpty())
        m_ciphertext.reserve(roomForRecords(m_ciphertext.size() + writeBuffer.size()));
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
            progress.engineFailed = true;
            fail(SslSocket::tr("SSL error: %1").arg(outcome.text()));
            return false;
        }
        writeBuffer.free(outcome.size);
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
    const int pending = engine.pendingOutput();
    if (pending < 1)
        return;
    if (m_ciphertext.size() > 0 && m_ciphertext.size() + qint64(pending) > LARGEST_OUTPUT)
        handOver();
    const int size = m_ciphertext.size();
    m_ciphertext.resize(size + pending);
    engine.drain(m_ciphertext.data() + size, pending);
}

void SslSocketPrivate::handOver()
{
    const QByteArray output = std::exchange(m_ciphertext, QByteArray());
    if (transport && transport->isOpen())
        transport->write(output);
}

void SslSocketPrivate::flushEngine()
{
    collectCiphertext();
    if (!m_ciphertext.isEmpty() && transport && transport->isOpen())
        handOver();
}

} // namespace vela

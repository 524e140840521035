// SPDX-License-Identifier: BSD-3-Clause
#include "proxy/Flow.h"

#include "common/Platform.h"

namespace {

// Taken in one turn of the event loop; then other flows have theirs.
constexpr int PIECE_SIZE = 64 * 1024;

} // namespace

Flow::Flow(qintptr from, qintptr to, const QByteArray& first)
    : m_from(from)
    , m_to(to)
    , m_pending(first)
    , m_readable(from, QSocketNotifier::Read)
    , m_writable(to, QSocketNotifier::Write)
{
    stop();
    connect(&m_readable, &QSocketNotifier::activated, this, &Flow::fetch);
    connect(&m_writable, &QSocketNotifier::activated, this, &Flow::deliver);
}

void Flow::start()
{
    m_readable.setEnabled(m_pending.isEmpty());
    m_writable.setEnabled(!m_pending.isEmpty());
}

void Flow::stop()
{
    m_readable.setEnabled(false);
    m_writable.setEnabled(false);
}

void Flow::fetch()
{
    QByteArray piece(PIECE_SIZE, Qt::Uninitialized);
    const int count = platform::receive(m_from, piece.data(), piece.size());
    if (count > 0) {
        piece.truncate(count);
        m_pending = piece;
        deliver();
    } else if (count == 0) {
        stop();
        platform::endSending(m_to);
        Q_EMIT ended();
    } else if (count == platform::FAILED) {
        stop();
        Q_EMIT failed(platform::socketErrorText());
    }
}

void Flow::deliver()
{
    const int count = platform::send(m_to, m_pending.constData(), m_pending.size());
    if (count == platform::FAILED) {
        stop();
        Q_EMIT failed(platform::socketErrorText());
        return;
    }
    if (count == platform::WOULD_BLOCK) {
        start();
        return;
    }
    m_pending.remove(0, count);
    m_carried += count;
    start();
    Q_EMIT moved();
}

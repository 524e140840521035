// SPDX-License-Identifier: BSD-3-Clause
#include "socket/RingBuffer.h"

#include <algorithm>
#include <cstring>

namespace vela {

namespace {

// Far below the size at which a QByteArray is full.
constexpr qint64 LARGEST_CHUNK = 1 << 30;

} // namespace

RingBuffer::RingBuffer()
{
    clear();
}

int RingBuffer::nextDataBlockSize() const
{
    return (m_chunks.size() == 1 ? m_tail : m_chunks.first().size()) - m_head;
}

const char* RingBuffer::readPointer() const
{
    return isEmpty() ? nullptr : m_chunks.first().constData() + m_head;
}

char* RingBuffer::reserve(int bytes)
{
    m_size += bytes;
    QByteArray& last = m_chunks.last();
    const int start = m_tail;
    if (last.isNull())
        last = QByteArray(std::max(BASIC_BLOCK_SIZE, bytes), Qt::Uninitialized);
    if (bytes <= last.size() - start) {
        m_tail += bytes;
        return last.data() + start;
    }
    if (start >= last.size() / 2) {
        last.resize(start);
        m_chunks.append(QByteArray(std::max(BASIC_BLOCK_SIZE, bytes), Qt::Uninitialized));
        m_tail = bytes;
        return m_chunks.last().data();
    }
    last.resize(start + bytes);
    m_tail += bytes;
    return last.data() + start;
}

void RingBuffer::free(qint64 bytes)
{
    m_size = std::max<qint64>(0, m_size - bytes);
    for (;;) {
        const int block = nextDataBlockSize();
        if (bytes < block) {
            m_head += static_cast<int>(bytes);
            return;
        }
        bytes -= block;
        m_head = 0;
        if (m_chunks.size() == 1) {
            if (m_chunks.first().size() != BASIC_BLOCK_SIZE)
                m_chunks.first() = QByteArray();
            m_tail = 0;
            return;
        }
        m_chunks.removeFirst();
    }
}

qint64 RingBuffer::indexOf(char byte) const
{
    qint64 position = 0;
    for (int i = 0; i < m_chunks.size(); ++i) {
        const QByteArray& chunk = m_chunks.at(i);
        const int start = i == 0 ? m_head : 0;
        const int end = i == m_chunks.size() - 1 ? m_tail : chunk.size();
        const char* data = chunk.constData();
        const void* found = std::memchr(data + start, byte, static_cast<std::size_t>(end - start));
        if (found)
            return position + (static_cast<const char*>(found) - (data + start));
        position += end - start;
    }
    return -1;
}

qint64 RingBuffer::read(char* data, qint64 max)
{
    const qint64 wanted = std::min(max, m_size);
    qint64 done = 0;
    while (done < wanted) {
        const qint64 block = std::min<qint64>(wanted - done, nextDataBlockSize());
        std::memcpy(data + done, readPointer(), static_cast<std::size_t>(block));
        done += block;
        free(block);
    }
    return done;
}

qint64 RingBuffer::readLine(char* data, qint64 max)
{
    const qint64 lineFeed = indexOf('\n');
    if (lineFeed < 0)
        return read(data, max);
    if (max < 1)
        return -1;
    const qint64 length = read(data, std::min(lineFeed + 1, max - 1));
    data[length] = '\0';
    return length;
}

void RingBuffer::append(const char* data, qint64 length)
{
    while (length > 0) {
        const qint64 piece = std::min(length, LARGEST_CHUNK);
        std::memcpy(reserve(static_cast<int>(piece)), data, static_cast<std::size_t>(piece));
        data += piece;
        length -= piece;
    }
}

void RingBuffer::releaseSpare()
{
    if (m_size == 0 && !m_chunks.first().isNull())
        m_chunks.first() = QByteArray();
}

void RingBuffer::clear()
{
    m_chunks.clear();
    m_chunks.append(QByteArray());
    m_head = 0;
    m_tail = 0;
    m_size = 0;
}

} // namespace vela

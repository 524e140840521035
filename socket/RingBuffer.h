// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_RINGBUFFER_H
#define FERRULE_RINGBUFFER_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace vela {

/*!
    A queue of bytes in chunks: written at the back, read at the front, without copying what is
    queued. It grows without limit.
*/
class RingBuffer
{
public:
    static constexpr int BASIC_BLOCK_SIZE = 4096;

    RingBuffer();

    qint64 size() const { return m_size; }
    bool isEmpty() const { return m_chunks.size() == 1 && m_tail == 0; }

    //! Returns how many bytes can be read contiguously from readPointer().
    int nextDataBlockSize() const;

    //! Returns the address of the first unread byte, or null when the buffer is empty.
    const char* readPointer() const;

    /*!
        Adds \a bytes (at least one) of space at the back and returns its address, valid until the
        next operation that is not const.
    */
    char* reserve(int bytes);

    //! Drops up to \a bytes from the front.
    void free(qint64 bytes);

    //! Returns the position of the first unread \a byte, or -1.
    qint64 indexOf(char byte) const;

    //! Moves up to \a max bytes to \a data and returns how many.
    qint64 read(char* data, qint64 max);

    /*!
        Moves a line with its line feed to \a data, cut to \a max - 1 bytes, ends it with a zero
        byte and returns its length; -1 if \a max is below 1. Without a line feed in the buffer it
        is read(), and no zero byte is written.
    */
    qint64 readLine(char* data, qint64 max);

    //! Appends \a length bytes from \a data.
    void append(const char* data, qint64 length);

    void clear();

    /*!
        Gives back the memory that an empty buffer keeps for what comes next; does nothing to
        another. For the end of a pass: between two pieces it would cost more than it spares.
    */
    void releaseSpare();

private:
    // A null chunk stands for one of the basic block size that is allocated once it is needed: most
    // connections are idle most of the time.
    QList<QByteArray> m_chunks;
    int m_head = 0; // Where the unread bytes start in the first chunk.
    int m_tail = 0; // Where the free space starts in the last chunk.
    qint64 m_size = 0;
};

} // namespace vela

#endif

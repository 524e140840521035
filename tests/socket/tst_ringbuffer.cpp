// SPDX-License-Identifier: BSD-3-Clause
#include "socket/RingBuffer.h"

#include <QtTest/QtTest>

#include <random>

using vela::RingBuffer;

class RingBufferTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshBufferIsEmpty();
    void reserveFillsTheBasicBlock();
    void reserveGrowsAChunkThatIsLessThanHalfFull();
    void reserveCutsAChunkThatIsHalfFullAndAppendsAnother();
    void newChunksHaveAtLeastTheBasicBlockSize();
    void newChunksAreAsLargeAsTheirContent();
    void freeWithinAChunkMovesTheReadPosition();
    void freeOfTheLastByteMakesTheBufferFresh();
    void freeAcrossChunksDropsThem();
    void freeOfMoreThanThereIsEmpties();
    void grownChunkIsBasicAgainOnceRead();
    void indexOfFindsBytesInEveryChunk();
    void indexOfIgnoresBytesAlreadyRead();
    void readStopsAtTheEnd();
    void readOfNothingReadsNothing();
    void readLineTakesOneLineAndEndsItWithZero();
    void readLineCutsALineToLeaveRoomForTheZero();
    void readLineWithoutLineFeedReadsAndWritesNoZero();
    void readLineWithoutRoomFails();
    void readLineWithRoomForTheZeroAloneReadsNothing();
    void clearDropsEverything();
    void releaseSpareMakesAnEmptyBufferFresh();
    void releaseSpareLeavesWhatIsUnread();
    void behavesLikeAQueueOfBytes();
};

namespace {

void append(RingBuffer& buffer, int bytes, char fill)
{
    memset(buffer.reserve(bytes), fill, static_cast<size_t>(bytes));
}

QByteArray readAll(RingBuffer& buffer)
{
    QByteArray content(static_cast<int>(buffer.size()), '\0');
    buffer.read(content.data(), content.size());
    return content;
}

RingBuffer bufferWith(const QByteArray& content)
{
    RingBuffer buffer;
    buffer.append(content.constData(), content.size());
    return buffer;
}

} // namespace

void RingBufferTest::freshBufferIsEmpty()
{
    const RingBuffer buffer;
    QVERIFY(buffer.isEmpty());
    QCOMPARE(buffer.size(), 0);
    QCOMPARE(buffer.nextDataBlockSize(), 0);
    QVERIFY(!buffer.readPointer());
    QCOMPARE(buffer.indexOf('\0'), -1);
}

void RingBufferTest::reserveFillsTheBasicBlock()
{
    RingBuffer buffer;
    append(buffer, 4000, 'a');
    append(buffer, 96, 'b');
    QCOMPARE(buffer.size(), 4096);
    QCOMPARE(buffer.nextDataBlockSize(), 4096);
    QCOMPARE(readAll(buffer), QByteArray(4000, 'a') + QByteArray(96, 'b'));
}

void RingBufferTest::reserveGrowsAChunkThatIsLessThanHalfFull()
{
    RingBuffer buffer;
    append(buffer, 2047, 'a');
    append(buffer, 5000, 'b');
    QCOMPARE(buffer.nextDataBlockSize(), 7047);
    QCOMPARE(readAll(buffer), QByteArray(2047, 'a') + QByteArray(5000, 'b'));
}

void RingBufferTest::reserveCutsAChunkThatIsHalfFullAndAppendsAnother()
{
    RingBuffer buffer;
    append(buffer, 2048, 'a');
    append(buffer, 5000, 'b');
    QCOMPARE(buffer.nextDataBlockSize(), 2048);
    buffer.free(2048);
    QCOMPARE(buffer.nextDataBlockSize(), 5000);
    QCOMPARE(readAll(buffer), QByteArray(5000, 'b'));
}

void RingBufferTest::newChunksHaveAtLeastTheBasicBlockSize()
{
    RingBuffer buffer;
    append(buffer, 4096, 'a');
    append(buffer, 1, 'b');
    append(buffer, 4095, 'c');
    buffer.free(4096);
    QCOMPARE(buffer.nextDataBlockSize(), 4096);
}

void RingBufferTest::newChunksAreAsLargeAsTheirContent()
{
    RingBuffer buffer;
    append(buffer, 4096, 'a');
    append(buffer, 10000, 'b');
    append(buffer, 1, 'c');
    buffer.free(4096);
    QCOMPARE(buffer.nextDataBlockSize(), 10000);
    buffer.free(10000);
    QCOMPARE(buffer.nextDataBlockSize(), 1);
}

void RingBufferTest::freeWithinAChunkMovesTheReadPosition()
{
    RingBuffer buffer = bufferWith("abcdef");
    buffer.free(4);
    QCOMPARE(buffer.size(), 2);
    QCOMPARE(buffer.nextDataBlockSize(), 2);
    QCOMPARE(*buffer.readPointer(), 'e');
}

void RingBufferTest::freeOfTheLastByteMakesTheBufferFresh()
{
    RingBuffer buffer = bufferWith("abc");
    buffer.free(3);
    QVERIFY(buffer.isEmpty());
    QCOMPARE(buffer.size(), 0);
    QVERIFY(!buffer.readPointer());
    // The whole block is free again: it takes its full size without a second chunk.
    append(buffer, 4096, 'x');
    QCOMPARE(buffer.nextDataBlockSize(), 4096);
}

void RingBufferTest::freeAcrossChunksDropsThem()
{
    RingBuffer buffer;
    append(buffer, 4096, 'a');
    append(buffer, 4096, 'b');
    append(buffer, 4096, 'c');
    buffer.free(4096 + 4096 + 10);
    QCOMPARE(buffer.size(), 4086);
    QCOMPARE(buffer.nextDataBlockSize(), 4086);
    QCOMPARE(*buffer.readPointer(), 'c');
}

void RingBufferTest::freeOfMoreThanThereIsEmpties()
{
    RingBuffer buffer;
    append(buffer, 4096, 'a');
    append(buffer, 10, 'b');
    buffer.free(1000000);
    QVERIFY(buffer.isEmpty());
    QCOMPARE(buffer.size(), 0);
}

void RingBufferTest::grownChunkIsBasicAgainOnceRead()
{
    RingBuffer buffer;
    append(buffer, 20000, 'a');
    buffer.free(20000);
    append(buffer, 4096, 'b');
    append(buffer, 1, 'c');
    QCOMPARE(buffer.nextDataBlockSize(), 4096);
}

void RingBufferTest::indexOfFindsBytesInEveryChunk()
{
    RingBuffer buffer;
    append(buffer, 4096, 'a');
    append(buffer, 4096, 'b');
    append(buffer, 100, 'c');
    QCOMPARE(buffer.indexOf('a'), 0);
    QCOMPARE(buffer.indexOf('b'), 4096);
    QCOMPARE(buffer.indexOf('c'), 8192);
    QCOMPARE(buffer.indexOf('d'), -1);
}

void RingBufferTest::indexOfIgnoresBytesAlreadyRead()
{
    RingBuffer buffer = bufferWith("xaxb");
    buffer.free(1);
    QCOMPARE(buffer.indexOf('x'), 1);
    buffer.free(2);
    QCOMPARE(buffer.indexOf('x'), -1);
    QCOMPARE(buffer.indexOf('b'), 0);
}

void RingBufferTest::readStopsAtTheEnd()
{
    RingBuffer buffer = bufferWith("abc");
    char data[8] = {};
    QCOMPARE(buffer.read(data, sizeof data), 3);
    QCOMPARE(QByteArray(data), QByteArray("abc"));
    QVERIFY(buffer.isEmpty());
}

void RingBufferTest::readOfNothingReadsNothing()
{
    RingBuffer buffer = bufferWith("abc");
    char data = 'z';
    QCOMPARE(buffer.read(&data, 0), 0);
    QCOMPARE(data, 'z');
    QCOMPARE(buffer.size(), 3);
}

void RingBufferTest::readLineTakesOneLineAndEndsItWithZero()
{
    RingBuffer buffer = bufferWith("one\ntwo\n");
    char data[16];
    memset(data, 'z', sizeof data);
    QCOMPARE(buffer.readLine(data, sizeof data), 4);
    QCOMPARE(QByteArray(data, 6), QByteArray("one\n\0z", 6));
    QCOMPARE(buffer.size(), 4);
}

void RingBufferTest::readLineCutsALineToLeaveRoomForTheZero()
{
    RingBuffer buffer = bufferWith("abcdef\n");
    char data[16];
    memset(data, 'z', sizeof data);
    QCOMPARE(buffer.readLine(data, 4), 3);
    QCOMPARE(QByteArray(data, 5), QByteArray("abc\0z", 5));
    QCOMPARE(readAll(buffer), QByteArray("def\n"));
}

void RingBufferTest::readLineWithoutLineFeedReadsAndWritesNoZero()
{
    RingBuffer buffer = bufferWith("abcdef");
    char data[16];
    memset(data, 'z', sizeof data);
    QCOMPARE(buffer.readLine(data, 4), 4);
    QCOMPARE(QByteArray(data, 5), QByteArray("abcdz"));
}

void RingBufferTest::readLineWithoutRoomFails()
{
    RingBuffer buffer = bufferWith("a\n");
    char data = 'z';
    QCOMPARE(buffer.readLine(&data, 0), -1);
    QCOMPARE(data, 'z');
    QCOMPARE(buffer.size(), 2);
}

void RingBufferTest::readLineWithRoomForTheZeroAloneReadsNothing()
{
    RingBuffer buffer = bufferWith("a\n");
    char data = 'z';
    QCOMPARE(buffer.readLine(&data, 1), 0);
    QCOMPARE(data, '\0');
    QCOMPARE(buffer.size(), 2);
}

void RingBufferTest::clearDropsEverything()
{
    RingBuffer buffer;
    append(buffer, 10000, 'a');
    append(buffer, 10000, 'b');
    buffer.free(5);
    buffer.clear();
    QVERIFY(buffer.isEmpty());
    QCOMPARE(buffer.size(), 0);
    QCOMPARE(buffer.nextDataBlockSize(), 0);
}

// Random operations against the obvious model.
void RingBufferTest::releaseSpareMakesAnEmptyBufferFresh()
{
    RingBuffer buffer;
    append(buffer, 100, 'a');
    buffer.free(100);
    buffer.releaseSpare();
    QVERIFY(buffer.isEmpty());
    QCOMPARE(buffer.nextDataBlockSize(), 0);
    append(buffer, 4000, 'b');
    append(buffer, 96, 'c');
    QCOMPARE(buffer.nextDataBlockSize(), 4096);
    QCOMPARE(readAll(buffer), QByteArray(4000, 'b') + QByteArray(96, 'c'));
}

void RingBufferTest::releaseSpareLeavesWhatIsUnread()
{
    RingBuffer buffer = bufferWith("unread");
    buffer.free(2);
    buffer.releaseSpare();
    QCOMPARE(readAll(buffer), QByteArray("read"));
}

void RingBufferTest::behavesLikeAQueueOfBytes()
{
    std::mt19937 random(20);
    RingBuffer buffer;
    QByteArray model;
    for (int step = 0; step < 5000; ++step) {
        const int bytes = static_cast<int>(random() % 9000) + 1;
        if (random() % 2 == 0 && model.size() < 100000) {
            const QByteArray piece(bytes, static_cast<char>('a' + step % 26));
            buffer.append(piece.constData(), piece.size());
            model += piece;
        } else {
            QByteArray piece(bytes, '\0');
            piece.truncate(static_cast<int>(buffer.read(piece.data(), bytes)));
            QCOMPARE(piece, model.left(bytes));
            model.remove(0, bytes);
        }
        QCOMPARE(buffer.size(), model.size());
        QCOMPARE(buffer.isEmpty(), model.isEmpty());
        QCOMPARE(buffer.indexOf('e'), static_cast<qint64>(model.indexOf('e')));
    }
}

QTEST_GUILESS_MAIN(RingBufferTest)
#include "tst_ringbuffer.moc"

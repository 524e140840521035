// SPDX-License-Identifier: BSD-3-Clause
// Takes gigabytes of memory.

#include "BareConnection.h"

#include <vector>

using test::BareConnection;

class GigabytesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void gigabytesOfOnePassAreSent();
};

// More than one buffer of the engine or of Qt can hold.
void GigabytesTest::gigabytesOfOnePassAreSent()
{
    constexpr qint64 PIECE = 1 << 30;
    constexpr int PIECES = 3;
    BareConnection connection;
    QVERIFY(connection.settled);
    QTcpSocket* const transport = connection.peer().transport();
    transport->disconnect(&connection.peer());
    qint64 arrived = 0;
    std::vector<char> sink(1 << 20);
    connect(transport, &QIODevice::readyRead, this, [&] {
        for (qint64 size = 0; (size = transport->read(sink.data(), qint64(sink.size()))) > 0;)
            arrived += size;
    });
    {
        const QByteArray piece(PIECE, 'x');
        for (int i = 0; i < PIECES; ++i)
            QCOMPARE(connection.client.write(piece), PIECE);
    }
    QTRY_VERIFY_WITH_TIMEOUT(arrived > PIECES * PIECE || !connection.log.isEmpty(), 100000);
    QVERIFY2(connection.log.isEmpty(), qPrintable(connection.client.errorString()));
    QCOMPARE(connection.client.bytesToWrite(), 0);
}

QTEST_GUILESS_MAIN(GigabytesTest)
#include "tst_gigabytes.moc"

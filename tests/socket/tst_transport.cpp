// SPDX-License-Identifier: BSD-3-Clause
// The inner socket alone, under a frame that only notes what it is told.
#include "EventWait.h"
#include "TcpPair.h"
#include "socket/Transport.h"

#include <QtNetwork/QNetworkProxy>
#include <QtTest/QtTest>

#include <functional>

using test::TcpPair;
using vela::Transport;
using vela::TransportSignal;

namespace {

class Frame : public QTcpSocket
{
    Q_OBJECT

public:
    Frame()
    {
        connect(this, &QAbstractSocket::disconnected, this, [this] { note("end"); });
    }

    QStringList heard;
    std::function<void()> onInput;

public Q_SLOTS:
    void sslConnect() { note("connected"); }
    void handleSocketError(QAbstractSocket::SocketError error)
    {
        note("error " + QByteArray::number(error));
    }
    void handleStateChanged(QAbstractSocket::SocketState state)
    {
        note("state " + QByteArray::number(state));
    }
    void socketBytesWritten(qint64 bytes) { note("written " + QByteArray::number(bytes)); }
    void readFromSocket()
    {
        note("input");
        if (onInput)
            onInput();
    }

private:
    void note(const QByteArray& what) { heard.append(QString::fromLatin1(what)); }
};

//! Carries out what was left to the event loop.
void deleteDeferred()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

class TransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void frameHearsTheSocketAndNobodyElseDoes();
    void socketThatAHostDeletesIsNone();
    void silencedSocketCountsAsUnconnected();
    void ownSocketIsDeletedWhenReleased();
    void adoptedSocketIsLetGo();
    void socketReleasedInItsOwnSignalOutlivesIt();
    void relayedEndCountsAsBeingHandled();
    void renewedSocketHasTheSameProxy();
    void renewedSocketTakesThePlaceOfAnAdoptedOne();
    void abandonedConnectionIsHeardOfNoMore();
    void connectionThatHasArrivedIsNotAbandoned();
    void adoptedSocketEndsWithTheFrame();
    void socketsOutliveTheFrameInTheirSignals_data();
    void socketsOutliveTheFrameInTheirSignals();

private:
    //! Has the far end send a byte, and waits until the frame has heard of it.
    void sendInput()
    {
        const int before = m_frame->heard.count(QStringLiteral("input"));
        m_pair->far->write("x");
        QVERIFY(
            test::waitFor([&] { return m_frame->heard.count(QStringLiteral("input")) > before; }));
    }

    std::unique_ptr<Frame> m_frame;
    std::unique_ptr<Transport> m_transport;
    std::unique_ptr<TcpPair> m_pair;
    QPointer<QTcpSocket> m_near;
    QPointer<QTcpSocket> m_far;
};

void TransportTest::init()
{
    m_frame = std::make_unique<Frame>();
    m_transport = std::make_unique<Transport>(m_frame.get());
    m_pair = std::make_unique<TcpPair>();
    m_near = m_pair->near;
    m_far = m_pair->far;
}

void TransportTest::cleanup()
{
    m_transport.reset();
    m_frame.reset();
    deleteDeferred();
    delete m_near;
    delete m_far;
}

void TransportTest::frameHearsTheSocketAndNobodyElseDoes()
{
    const QSignalSpy others(m_near, &QIODevice::readyRead);
    QVERIFY(others.isValid());
    m_transport->attach(m_near, false);
    QCOMPARE(m_transport->socket(), m_near.data());
    QVERIFY(!m_transport->isOwned());
    QVERIFY(m_transport->isConnected());
    sendInput();
    m_near->write("answer");
    QTRY_COMPARE(m_far->bytesAvailable(), 6);
    m_far->disconnectFromHost();
    QTRY_COMPARE(m_near->state(), QAbstractSocket::UnconnectedState);
    const QStringList expected = {QStringLiteral("input"),   QStringLiteral("written 6"),
                                  QStringLiteral("error 1"), QStringLiteral("state 6"),
                                  QStringLiteral("state 0"), QStringLiteral("end")};
    QCOMPARE(m_frame->heard, expected);
    QVERIFY(others.isEmpty());
    QVERIFY(!m_transport->isSpent());
}

void TransportTest::socketThatAHostDeletesIsNone()
{
    m_transport->attach(m_near, false);
    QVERIFY(bool(*m_transport));
    QVERIFY(!m_transport->isSpent());
    delete m_near;
    QVERIFY(!*m_transport);
    QCOMPARE(m_transport->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(m_transport->isSpent());
    m_transport->release();
}

void TransportTest::silencedSocketCountsAsUnconnected()
{
    m_transport->attach(m_near, false);
    m_transport->noteSilenced(m_far);
    QVERIFY(m_transport->isConnected());
    m_transport->noteSilenced(m_near);
    QCOMPARE(m_transport->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(m_transport->isSpent());
    QCOMPARE(m_near->state(), QAbstractSocket::ConnectedState);
    m_transport->attach(m_far, false);
    QVERIFY(m_transport->isConnected());
}

void TransportTest::ownSocketIsDeletedWhenReleased()
{
    m_transport->attach(m_near, true);
    m_transport->release();
    QVERIFY(!m_near);
    QVERIFY(!*m_transport);
    QVERIFY(m_frame->heard.isEmpty());
}

void TransportTest::adoptedSocketIsLetGo()
{
    m_transport->attach(m_near, false);
    m_transport->release();
    deleteDeferred();
    QVERIFY(m_near);
    m_far->write("x");
    QTRY_COMPARE(m_near->bytesAvailable(), 1);
    QVERIFY(m_frame->heard.isEmpty());
}

void TransportTest::socketReleasedInItsOwnSignalOutlivesIt()
{
    m_transport->attach(m_near, true);
    bool outlived = false;
    m_frame->onInput = [&] {
        const TransportSignal handling(m_transport->signalCount());
        QVERIFY(m_transport->isSpent());
        m_transport->release();
        deleteDeferred();
        outlived = !m_near.isNull();
    };
    sendInput();
    QVERIFY(outlived);
    QVERIFY(!*m_transport);
    QTRY_VERIFY(!m_near);
}

void TransportTest::relayedEndCountsAsBeingHandled()
{
    m_transport->attach(m_near, false);
    bool wasSpent = false;
    connect(m_frame.get(), &QAbstractSocket::disconnected, this,
            [&] { wasSpent = m_transport->isSpent(); });
    m_far->disconnectFromHost();
    QTRY_COMPARE(m_frame->heard.count(QStringLiteral("end")), 1);
    QVERIFY(wasSpent);
    QVERIFY(!m_transport->isSpent());
}

void TransportTest::renewedSocketHasTheSameProxy()
{
    const QNetworkProxy proxy(QNetworkProxy::HttpProxy, QStringLiteral("localhost"), 1);
    m_near->setProxy(proxy);
    m_transport->attach(m_near, true);
    m_transport->renew();
    QVERIFY(!m_near);
    QVERIFY(m_transport->isOwned());
    QVERIFY(!m_transport->isSpent());
    QCOMPARE(m_transport->socket()->proxy(), proxy);
    QCOMPARE(m_transport->socket()->parent(), m_frame.get());
}

void TransportTest::renewedSocketTakesThePlaceOfAnAdoptedOne()
{
    m_transport->attach(m_near, false);
    m_transport->renew();
    QVERIFY(m_transport->socket() != m_near);
    QVERIFY(m_transport->isOwned());
    QVERIFY(m_near);
    deleteDeferred();
    QVERIFY(!m_near);
}

void TransportTest::abandonedConnectionIsHeardOfNoMore()
{
    m_transport->abandonUpcoming(); // There is none.
    const QSignalSpy ended(m_near, &QAbstractSocket::disconnected);
    m_transport->expect(m_near, true);
    QVERIFY(m_transport->upcomingTextMode());
    m_transport->abandonUpcoming();
    QCOMPARE(m_near->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(ended.isEmpty());
    m_transport->abandonUpcoming();
}

void TransportTest::connectionThatHasArrivedIsNotAbandoned()
{
    m_transport->expect(m_near, false);
    QVERIFY(!m_transport->upcomingTextMode());
    m_transport->noteArrival();
    m_transport->abandonUpcoming();
    QCOMPARE(m_near->state(), QAbstractSocket::ConnectedState);
}

void TransportTest::adoptedSocketEndsWithTheFrame()
{
    m_transport->attach(m_near, false);
    m_transport->dismissAll();
    QVERIFY(m_near);
    deleteDeferred();
    QVERIFY(!m_near);
}

void TransportTest::socketsOutliveTheFrameInTheirSignals_data()
{
    QTest::addColumn<bool>("letGo");
    QTest::newRow("the one there is") << false;
    QTest::newRow("one that was let go") << true;
}

void TransportTest::socketsOutliveTheFrameInTheirSignals()
{
    QFETCH(bool, letGo);
    m_near->setParent(m_frame.get());
    m_transport->attach(m_near, false);
    m_frame->onInput = [&] {
        const TransportSignal handling(m_transport->signalCount());
        if (letGo)
            m_transport->release();
        else
            m_near->disconnect(m_frame.get()); // As a frame does at its end.
        m_transport->dismissAll();
        deleteDeferred();
        QVERIFY(m_near);
        QVERIFY(!m_near->parent()); // With which it would be deleted.
    };
    sendInput();
    QTRY_VERIFY(!m_near);
}

QTEST_GUILESS_MAIN(TransportTest)
#include "tst_transport.moc"

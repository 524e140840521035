// SPDX-License-Identifier: BSD-3-Clause
#include "support/Connect.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <thread>

class Receiver : public QObject
{
    Q_OBJECT

public:
    int calls = 0;
    QThread* callingThread = nullptr;

    Q_INVOKABLE void countWithoutBeingASlot() { ++calls; }

Q_SIGNALS:
    void relayed();

private Q_SLOTS:
    void count()
    {
        ++calls;
        callingThread = QThread::currentThread();
    }
    void countTo(int number) { calls = number; }
};

class HeirOfReceiver : public Receiver
{
    Q_OBJECT
};

class ConnectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void connectsSignalToSlot();
    void connectsSignalToSignal();
    void queuedSlotRunsFromTheEventLoop();
    void queuedSlotRunsInTheThreadOfItsObject();
    void inheritedSlotIsFound();
    void eachCallIsMade();
    void slotThatIsNotThereIsReported_data();
    void slotThatIsNotThereIsReported();
};

void ConnectTest::connectsSignalToSlot()
{
    QTimer sender;
    Receiver receiver;
    vela::connect(&sender, "2objectNameChanged(QString)", &receiver, "1count()");
    sender.setObjectName(QStringLiteral("changed"));
    QCOMPARE(receiver.calls, 1);
}

void ConnectTest::connectsSignalToSignal()
{
    QObject sender;
    Receiver receiver;
    QSignalSpy relayed(&receiver, &Receiver::relayed);
    vela::connect(&sender, "2objectNameChanged(QString)", &receiver, "2relayed()");
    sender.setObjectName(QStringLiteral("changed"));
    QCOMPARE(relayed.size(), 1);
}

void ConnectTest::queuedSlotRunsFromTheEventLoop()
{
    Receiver receiver;
    vela::invokeSlotQueued(&receiver, "1count()");
    QCOMPARE(receiver.calls, 0);
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 1);
}

void ConnectTest::queuedSlotRunsInTheThreadOfItsObject()
{
    Receiver receiver;
    std::thread([&receiver] { vela::invokeSlotQueued(&receiver, "1count()"); }).join();
    QCOMPARE(receiver.calls, 0);
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 1);
    QCOMPARE(receiver.callingThread, QThread::currentThread());
}

void ConnectTest::inheritedSlotIsFound()
{
    HeirOfReceiver receiver;
    vela::invokeSlotQueued(&receiver, "1count()");
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 1);
}

void ConnectTest::eachCallIsMade()
{
    Receiver receiver;
    vela::invokeSlotQueued(&receiver, "1count()");
    vela::invokeSlotQueued(&receiver, "1count()");
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 2);
}

void ConnectTest::slotThatIsNotThereIsReported_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::newRow("unknown") << QByteArray("1missing()");
    QTest::newRow("bare name") << QByteArray("count");
    QTest::newRow("without the code of a slot") << QByteArray("count()");
    QTest::newRow("with another code") << QByteArray("0count()");
    QTest::newRow("without parentheses") << QByteArray("1count");
    QTest::newRow("a signal") << QByteArray("2relayed()");
    QTest::newRow("a signal with the code of a slot") << QByteArray("1relayed()");
    QTest::newRow("invokable, but no slot") << QByteArray("1countWithoutBeingASlot()");
    QTest::newRow("takes an argument") << QByteArray("1countTo(int)");
    QTest::newRow("empty") << QByteArray("");
}

void ConnectTest::slotThatIsNotThereIsReported()
{
    QFETCH(QByteArray, slot);
    Receiver receiver;
    QSignalSpy relayed(&receiver, &Receiver::relayed);
    const QByteArray warning =
        "vela::invokeSlotQueued: Receiver has no slot \"" + slot + "\" that takes no arguments";
    QTest::ignoreMessage(QtWarningMsg, warning.constData());
    vela::invokeSlotQueued(&receiver, slot.constData());
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 0);
    QCOMPARE(relayed.size(), 0);
}

QTEST_GUILESS_MAIN(ConnectTest)
#include "tst_connect.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "support/Connect.h"

#include <QtTest/QtTest>

class Receiver : public QObject
{
    Q_OBJECT

public:
    int calls = 0;

Q_SIGNALS:
    void relayed();

private Q_SLOTS:
    void count() { ++calls; }
};

class ConnectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void connectsSignalToSlot();
    void connectsSignalToSignal();
    void queuedSlotRunsFromTheEventLoop();
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
    vela::invokeSlotQueued(&receiver, "count");
    QCOMPARE(receiver.calls, 0);
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.calls, 1);
}

QTEST_GUILESS_MAIN(ConnectTest)
#include "tst_connect.moc"

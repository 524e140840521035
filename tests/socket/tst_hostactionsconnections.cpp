// SPDX-License-Identifier: BSD-3-Clause
#include "HostActionMatrix.h"

#include <QtTest/QtTest>

using namespace test;

//! What hosts do within signals, for the other ways in which their code hangs on them.
class TestHostActionsConnections : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownFunctor_data() { addHostActionRows({HostConnection::OwnFunctor}); }
    void ownFunctor() { runHostActionRow(); }
    void subclassSlot_data() { addHostActionRows({HostConnection::SubclassSlot}); }
    void subclassSlot() { runHostActionRow(); }
    void slotByName_data() { addHostActionRows({HostConnection::Slot}); }
    void slotByName() { runHostActionRow(); }
    void queuedSlot_data() { addHostActionRows({HostConnection::QueuedSlot}); }
    void queuedSlot() { runHostActionRow(); }
    void relayedFunctor_data() { addHostActionRows({HostConnection::RelayedFunctor}); }
    void relayedFunctor() { runHostActionRow(); }
    void nestedLoop_data() { addHostActionRows({HostConnection::NestedLoop}); }
    void nestedLoop() { runHostActionRow(); }
};

QTEST_GUILESS_MAIN(TestHostActionsConnections)
#include "tst_hostactionsconnections.moc"

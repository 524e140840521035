// SPDX-License-Identifier: BSD-3-Clause
#include "HostActionMatrix.h"

#include <QtTest/QtTest>

using namespace test;

/*!
    Hosts that open dialogs within the socket's signals. Valgrind sees what the sanitizers do not: a
    socket of Qt's that is used after it was deleted. FERRULE_ROUNDS says how often each row is run,
    FERRULE_SAMPLE which rows are: with 8, every eighth.
*/
class TestHostDialogs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void retry_data()
    {
        addHostDialogRows(
            {HostAction::Reconnect, HostAction::AbortAndConnect, HostAction::ConnectDirectly},
            {PeerDeed::Nothing});
    }
    void retry() { runHostDialogRow(); }
    void otherActions_data()
    {
        addHostDialogRows({HostAction::Close, HostAction::Abort, HostAction::Disconnect,
                           HostAction::ConnectAgain, HostAction::Write, HostAction::DeleteLater,
                           HostAction::Delete, HostAction::SetSocket, HostAction::WaitForReadyRead,
                           HostAction::WaitForBytesWritten, HostAction::Nothing},
                          {PeerDeed::Nothing});
    }
    void otherActions() { runHostDialogRow(); }
    void peerActsMeanwhile_data()
    {
        addHostDialogRows({HostAction::Nothing, HostAction::Reconnect, HostAction::AbortAndConnect,
                           HostAction::Close, HostAction::Write, HostAction::DeleteLater,
                           HostAction::WaitForReadyRead, HostAction::WaitForBytesWritten},
                          {PeerDeed::Write, PeerDeed::CloseNotify, PeerDeed::HangUp});
    }
    void peerActsMeanwhile() { runHostDialogRow(); }
};

QTEST_GUILESS_MAIN(TestHostDialogs)
#include "tst_hostdialogs.moc"

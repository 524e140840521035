// SPDX-License-Identifier: BSD-3-Clause
#include "HostActionMatrix.h"

#include <QtTest/QtTest>

using namespace test;

//! Everything that a host may do to its socket within each of the socket's signals.
class TestHostActions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anyActionWithinAnySignal_data() { addHostActionRows({HostConnection::Functor}); }
    void anyActionWithinAnySignal() { runHostActionRow(); }
};

QTEST_GUILESS_MAIN(TestHostActions)
#include "tst_hostactions.moc"

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_ERRORLOG_H
#define FERRULE_TESTS_ERRORLOG_H

#include "tests/common/SignalLog.h"

#include <QtTest/QtTest>

namespace test {

/*! The signals of a socket in order, and its error string at each error. */
class ErrorLog
{
public:
    explicit ErrorLog(vela::SslSocket* socket)
        : signalled(socket)
        , m_older(socket, SIGNAL(error(QAbstractSocket::SocketError)))
    {
        QObject::connect(socket, &QAbstractSocket::errorOccurred,
                         [this, socket] { texts.append(socket->errorString()); });
    }

    //! Waits for so many errors, announced by both of the signals that hosts may use.
    bool waitForErrors(int count) const
    {
        return QTest::qWaitFor([=] { return texts.size() >= count && m_older.count() >= count; },
                               DEADLINE_MS);
    }

    //! Waits until \a entry was signalled.
    bool waitFor(const QString& entry) const
    {
        return QTest::qWaitFor([=] { return signalled.contains(entry); }, DEADLINE_MS);
    }

    int olderErrors() const { return m_older.count(); }

    SignalLog signalled;
    QStringList texts;

private:
    static constexpr int DEADLINE_MS = 30000; // A name server may take its time.

    QSignalSpy m_older;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTACTOR_H
#define FERRULE_TESTS_HOSTACTOR_H

#include "HostActionMatrix.h"

#include <QtCore/QEventLoop>

namespace test {

/*!
    Host code that acts once, on the first emission of a signal, connected in the way that the test
    asks for.
*/
class HostActor : public QObject
{
    Q_OBJECT

public:
    HostActor(const HostConversation& conversation, const HostSignal& signal,
              HostConnection connection, std::function<void()> action);

    //! What happens elsewhere when a dialog has been opened.
    std::function<void()> onDialog;

    bool hasActed() const { return m_acted; }

Q_SIGNALS:
    void relayed();

private:
    Q_SLOT void onSignal() { trigger(); }
    Q_SLOT void onState(QAbstractSocket::SocketState state);

    void connectFunctor(QObject* context);
    void connectByName(QObject* receiver, Qt::ConnectionType type);
    void trigger();
    void triggerInNestedLoop();
    void triggerInDialog();
    void act();

    QPointer<vela::SslSocket> m_socket;
    const HostSignal& m_signal;
    HostConnection m_connection;
    std::function<void()> m_action;
    bool m_triggered = false;
    bool m_acted = false;
};

} // namespace test

#endif

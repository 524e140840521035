// SPDX-License-Identifier: BSD-3-Clause
#include "HostActor.h"

using vela::SslSocket;

namespace test {

HostActor::HostActor(const HostConversation& conversation, const HostSignal& signal,
                     HostConnection connection, std::function<void()> action)
    : m_socket(conversation.socket())
    , m_signal(signal)
    , m_connection(connection)
    , m_action(std::move(action))
{
    qRegisterMetaType<QAbstractSocket::SocketError>();
    qRegisterMetaType<QAbstractSocket::SocketState>();
    conversation.slotsOfSocket()->onAct = [this] { trigger(); };
    conversation.slotsOfSocket()->onState = [this](QAbstractSocket::SocketState state) {
        onState(state);
    };
    connect(this, &HostActor::relayed, m_socket, [this] { act(); });
    switch (connection) {
    case HostConnection::Functor:
        connectFunctor(this);
        break;
    case HostConnection::OwnFunctor:
        connectFunctor(m_socket);
        break;
    case HostConnection::SubclassSlot:
        connectByName(m_socket, Qt::AutoConnection);
        break;
    case HostConnection::QueuedSlot:
        connectByName(this, Qt::QueuedConnection);
        break;
    case HostConnection::Slot:
    case HostConnection::RelayedFunctor:
    case HostConnection::NestedLoop:
    case HostConnection::Dialog:
        connectByName(this, Qt::AutoConnection);
        break;
    }
}

void HostActor::onState(QAbstractSocket::SocketState state)
{
    if (state == m_signal.state)
        trigger();
}

// Hosts use the deprecated error() too.
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED
void HostActor::connectFunctor(QObject* context)
{
    const auto run = [this] { trigger(); };
    const QByteArray name(m_signal.signature + 1);
    if (m_signal.state >= 0) {
        connect(m_socket, &QAbstractSocket::stateChanged, context,
                [this](QAbstractSocket::SocketState state) { onState(state); });
    } else if (name.startsWith("readyRead")) {
        connect(m_socket, &QIODevice::readyRead, context, run);
    } else if (name.startsWith("connected")) {
        connect(m_socket, &QAbstractSocket::connected, context, run);
    } else if (name.startsWith("disconnected")) {
        connect(m_socket, &QAbstractSocket::disconnected, context, run);
    } else if (name.startsWith("errorOccurred")) {
        connect(m_socket, &QAbstractSocket::errorOccurred, context, run);
    } else if (name.startsWith("error")) {
        connect(m_socket, QOverload<QAbstractSocket::SocketError>::of(&QAbstractSocket::error),
                context, run);
    } else if (name.startsWith("bytesWritten")) {
        connect(m_socket, &QIODevice::bytesWritten, context, run);
    } else if (name.startsWith("tunnelEstablished")) {
        connect(qobject_cast<vela::SslProxySocket*>(m_socket),
                &vela::SslProxySocket::tunnelEstablished, context, run);
    } else {
        connect(m_socket, &SslSocket::connectionVerificationDone, context, run);
    }
}
QT_WARNING_POP

void HostActor::connectByName(QObject* receiver, Qt::ConnectionType type)
{
    const bool own = receiver == this;
    const char* slot = own ? SLOT(onSignal()) : SLOT(act());
    if (m_signal.state >= 0) {
        slot = own ? SLOT(onState(QAbstractSocket::SocketState))
                   : SLOT(actOnState(QAbstractSocket::SocketState));
    }
    if (!QObject::connect(m_socket, m_signal.signature, receiver, slot, type))
        qFatal("no such signal: %s", m_signal.signature);
}

void HostActor::trigger()
{
    if (m_triggered)
        return;
    m_triggered = true;
    if (m_connection == HostConnection::RelayedFunctor)
        Q_EMIT relayed();
    else if (m_connection == HostConnection::NestedLoop)
        triggerInNestedLoop();
    else if (m_connection == HostConnection::Dialog)
        triggerInDialog();
    else
        act();
}

void HostActor::triggerInNestedLoop()
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, m_socket, [this, &loop] {
        act();
        loop.quit();
    });
    timer.start(0);
    loop.exec();
}

// A person takes longer, but what a dialog lets in comes with the first passes of its event loop.
void HostActor::triggerInDialog()
{
    QEventLoop dialog;
    onDialog();
    QTimer::singleShot(3, &dialog, [this] { act(); });
    QTimer::singleShot(6, &dialog, &QEventLoop::quit);
    dialog.exec();
}

void HostActor::act()
{
    m_action();
    m_acted = true;
}

} // namespace test

#include "moc_HostActor.cpp"

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SIGNALLOG_H
#define FERRULE_TESTS_SIGNALLOG_H

#include <Ferrule/SslSocket.h>

#include <QtCore/QStringList>

namespace test {

/*! Writes down, in order, what a socket emits. */
class SignalLog : public QStringList
{
public:
    explicit SignalLog(vela::SslSocket* socket)
    {
        using Socket = QAbstractSocket;
        const auto add = [this](const QString& entry) { append(entry); };
        QObject::connect(socket, &Socket::stateChanged, [add](Socket::SocketState state) {
            add(QStringLiteral("state %1").arg(stateName(state)));
        });
        QObject::connect(socket, &Socket::connected, [add] { add(QStringLiteral("connected")); });
        QObject::connect(socket, &Socket::disconnected,
                         [add] { add(QStringLiteral("disconnected")); });
        QObject::connect(socket, &Socket::errorOccurred, [add](Socket::SocketError error) {
            add(QStringLiteral("error %1").arg(static_cast<int>(error)));
        });
        QObject::connect(socket, &QIODevice::readyRead, [add, socket] {
            add(QStringLiteral("readyRead %1").arg(socket->bytesAvailable()));
        });
        QObject::connect(socket, &vela::SslSocket::connectionVerificationDone,
                         [add](vela::CertVerify result) {
                             add(QStringLiteral("verdict %1").arg(static_cast<int>(result)));
                         });
    }

    static QString stateName(QAbstractSocket::SocketState state)
    {
        static const char* const names[] = {"Unconnected", "HostLookup", "Connecting", "Connected",
                                            "Bound",       "Listening",  "Closing"};
        return QString::fromLatin1(names[state]);
    }
};

} // namespace test

#endif

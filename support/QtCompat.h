// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_QTCOMPAT_H
#define FERRULE_QTCOMPAT_H

#include <QtNetwork/QAbstractSocket>

namespace vela {

/*!
    Returns the signal, in the form of Qt's `SIGNAL` macro, from which Qt itself feeds the socket's
    `error(QAbstractSocket::SocketError)` since Qt 5.15; null for an older Qt.
*/
inline const char* errorSourceSignal(const QAbstractSocket* socket)
{
    const bool exists =
        socket->metaObject()->indexOfSignal("errorOccurred(QAbstractSocket::SocketError)") >= 0;
    return exists ? "2errorOccurred(QAbstractSocket::SocketError)" : nullptr;
}

//! The signal by which Qt reports a socket's error to receivers that are compiled against it.
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
constexpr auto SOCKET_ERROR_SIGNAL = &QAbstractSocket::errorOccurred;
#else
constexpr auto SOCKET_ERROR_SIGNAL =
    QOverload<QAbstractSocket::SocketError>::of(&QAbstractSocket::error);
#endif

/*!
    Emits \a error on \a socket so that hosts see it once on each signal that their Qt has for it.
*/
inline void emitSocketError(QAbstractSocket* socket, QAbstractSocket::SocketError error)
{
    // By name: which of the two signals feeds the other is known at run time only.
    const char* signal = errorSourceSignal(socket) ? "errorOccurred" : "error";
    QMetaObject::invokeMethod(socket, signal, Qt::DirectConnection,
                              Q_ARG(QAbstractSocket::SocketError, error));
}

} // namespace vela

#endif

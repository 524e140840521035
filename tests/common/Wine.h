// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_WINE_H
#define FERRULE_TESTS_WINE_H

#include <QtNetwork/QAbstractSocket>

#ifdef Q_OS_WIN
#    include <winsock2.h>

#    include <windows.h>
#endif

namespace test {

//! Whether the system is Wine, which lacks some things that Windows has.
inline bool isWine()
{
#ifdef Q_OS_WIN
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
#else
    return false;
#endif
}

/*!
    Has \a socket notice that its connection has ended. Wine 8 tells nobody of the end of a
    connection over which something was sent after the peer had closed it, unless someone asks. Does
    nothing on other systems.
*/
inline void noticeEnd(QAbstractSocket* socket)
{
#ifdef Q_OS_WIN
    if (!isWine() || socket->state() != QAbstractSocket::ConnectedState)
        return;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(static_cast<SOCKET>(socket->socketDescriptor()), &readable);
    timeval now = {};
    if (select(0, &readable, nullptr, nullptr, &now) > 0)
        socket->waitForReadyRead(0);
#else
    Q_UNUSED(socket)
#endif
}

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_TCPPAIR_H
#define FERRULE_TESTS_TCPPAIR_H

#include "EventWait.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace test {

//! Two ends of one loopback connection. Neither has a parent; both belong to the caller.
struct TcpPair
{
    TcpPair()
    {
        // Not a fresh port, of which there is an end: no session is pooled by this one.
        QTcpServer listener;
        if (!listener.listen(QHostAddress::LocalHost))
            qFatal("cannot listen on loopback: %s", qPrintable(listener.errorString()));
        near = new QTcpSocket;
        near->connectToHost(QHostAddress::LocalHost, listener.serverPort());
        const bool connected = waitFor([&] {
            if (!far)
                far = listener.nextPendingConnection();
            return far && near->state() == QAbstractSocket::ConnectedState;
        });
        if (!connected)
            qFatal("no loopback connection: %s", qPrintable(near->errorString()));
        far->setParent(nullptr);
    }

    QTcpSocket* near = nullptr;
    QTcpSocket* far = nullptr;
};

} // namespace test

#endif

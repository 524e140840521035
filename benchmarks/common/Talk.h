// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_TALK_H
#define FERRULE_BENCH_TALK_H

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

class QTcpSocket;

/*
    What client and server tell each other. A server greets with one octet as soon as it can send,
    another one if it is the bare engine and has resumed a session.
    Then the client may ask, once for each connection, for one of the things below.
*/

namespace bench {

constexpr char GREETING = 'G';
constexpr char GREETING_AGAIN = 'A';
constexpr char THANKS = 'T'; //!< The server's answer to the last octet of Demand::Receive.

enum class Demand : qint32 {
    Send,    //!< The server sends so much.
    Receive, //!< The client sends so much, then the server thanks.
    Echo     //!< Every piece from the client is answered by one of the same size.
};

//! Sent as it lies in memory: both ends run on the same machine.
struct Request
{
    Demand demand;
    qint32 pieceSize; //!< How much is written at a time.
    qint64 total;     //!< Not used for Demand::Echo.
};

/*!
    Writes \a total bytes to a Qt socket, \a pieceSize at a time, and whenever there is room: never
    is there more than a MiB, and what one write adds to it, on the way to the operating system.
    Belongs to the socket.
*/
void sendAll(QTcpSocket* end, int pieceSize, qint64 total);

//! Reads what has arrived, and returns how much that was.
qint64 readAvailable(QTcpSocket* end);

} // namespace bench

#endif

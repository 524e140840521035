// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TRANSPORT_H
#define FERRULE_TRANSPORT_H

#include "socket/TransportSignal.h"

#include <QtCore/QPointer>
#include <QtNetwork/QTcpSocket>

namespace vela {

/*!
    The plain socket under a TLS socket, which is called its frame here: which one it is, to whom it
    belongs, and which one is to become it.

    A host may have the socket replaced from within one of the socket's own signals. What is let go
    there lives on until its signals have been handled; see TransportSignal.
*/
class Transport
{
public:
    //! \a frame has the slots of SslSocket that attach() names.
    explicit Transport(QTcpSocket* frame);

    //! Returns the socket; null when a host has deleted it.
    QTcpSocket* socket() const { return m_socket; }
    QTcpSocket* operator->() const { return m_socket; }
    explicit operator bool() const { return !m_socket.isNull(); }
    //! Returns true if the frame has made the socket, and not adopted it.
    bool isOwned() const { return m_owned; }
    //! Returns the socket's state; unconnected when a host has deleted it or it was silenced.
    QAbstractSocket::SocketState state() const;
    bool isConnected() const { return state() == QAbstractSocket::ConnectedState; }
    //! Returns true if the next connection needs another socket; see renew().
    bool isSpent() const { return !m_socket || m_silenced || m_signals->isHandling(); }
    //! Returns the count of those signals of the socket that are being handled or relayed.
    const TransportSignal::CountPtr& signalCount() const { return m_signals; }

    //! Makes \a socket the one: drops its connections and makes those to the frame.
    void attach(QTcpSocket* socket, bool owned);

    /*!
        Lets go of the socket without hearing from it again, and deletes it if the frame owns it: at
        once, or once its own signals have been handled.
    */
    void release();

    //! Lets go of all sockets of the frame at the end of the frame's life.
    void dismissAll();

    //! Puts a new socket of the frame's own in the place of the one there is, with the same proxy.
    void renew();

    //! \a socket was disconnected from us: if it is the one, its connection makes no more news.
    void noteSilenced(const QTcpSocket* socket);

    //! \name A connection that is being prepared to become the socket
    //! \{
    //! Has it be \a socket, after which the device is to be in text mode if \a textMode.
    void expect(QTcpSocket* socket, bool textMode);
    //! It is ready to be attached, and is not given up with abandonUpcoming() any more.
    void noteArrival() { m_upcoming.clear(); }
    //! Gives it up without hearing from it again; does nothing when there is none.
    void abandonUpcoming();
    //! Returns the text mode that was asked for last.
    bool upcomingTextMode() const { return m_upcomingTextMode; }
    //! \}

private:
    Q_DISABLE_COPY(Transport)

    QTcpSocket* const m_frame;
    QPointer<QTcpSocket> m_socket;
    TransportSignal::CountPtr m_signals;
    QPointer<QTcpSocket> m_upcoming;
    bool m_owned = true;
    bool m_silenced = false;
    bool m_upcomingTextMode = false;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_RELAY_H
#define FERRULE_EXAMPLES_RELAY_H

#include "proxy/Flow.h"

#include <QtCore/QTimer>

class QTcpSocket;

/*!
    Carries bytes between two TCP connections in both directions until both have ended, one of them
    fails, or one has ended and the other is silent.

    It takes the connections away from Qt, whose sockets close as a whole when the peer ends its
    sending: what is still on its way to that peer would be lost.
*/
class Relay : public QObject
{
    Q_OBJECT

public:
    /*!
        Takes over the connections of the connected sockets \a client and \a server, which are
        unconnected afterwards. \a toServer and \a toClient are sent before all else.
    */
    Relay(QTcpSocket* client, const QByteArray& toServer, QTcpSocket* server,
          const QByteArray& toClient);

    //! May emit ended() at once.
    void start();
    void stop();

    qint64 carriedUp() const { return m_up.carried(); }
    qint64 carriedDown() const { return m_down.carried(); }

Q_SIGNALS:
    //! Emitted once, unless stop() came before.
    void ended(const QString& reason);

private:
    /*! A descriptor of the connection of a socket that has let go of it. */
    class Descriptor
    {
    public:
        explicit Descriptor(QTcpSocket* socket);
        ~Descriptor();
        operator qintptr() const { return m_value; }

    private:
        Q_DISABLE_COPY(Descriptor)

        const qintptr m_value;
    };

    void watch(Flow& flow, const QString& endText);
    void finish(const QString& reason);

    const Descriptor m_client;
    const Descriptor m_server;
    Flow m_up;
    Flow m_down;
    QTimer m_silence;
    QString m_firstEnd;
};

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_ENDPOINT_H
#define FERRULE_BENCH_ENDPOINT_H

#include "Setup.h"

#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QTcpSocket>

#include <functional>
#include <memory>

namespace bench {

/*!
    Makes the ends of connections for the three kinds of Qt sockets, so that a load is written once
    for all of them. Belongs to one thread.

    All kinds are set up for the same protocol, cipher and certificate, and none ends a connection
    because of what it thinks of the certificate. All send without delay as soon as they are ready:
    otherwise the last segment of a sample waits 40 ms for an acknowledgement now and then.
*/
class EndpointFactory
{
public:
    explicit EndpointFactory(const Setup& setup);

    const Setup& setup() const { return m_setup; }

    //! Makes a client and begins to connect it to \a host, a spelling of 127.0.0.1.
    std::unique_ptr<QTcpSocket> connectClient(const QString& host, quint16 port) const;

    //! Makes the server's end of the connection \a descriptor; the caller owns it.
    QTcpSocket* makeServerEnd(qintptr descriptor) const;

    /*!
        Lets the next QSslSocket resume the session of \a client, as a host that wants that must
        do by itself. Does nothing for the other kinds.
    */
    void keepSession(const QTcpSocket* client);

private:
    void configureQSslSocket();

    Setup m_setup;
    QSslConfiguration m_clientConfiguration;
    QSslConfiguration m_serverConfiguration;
};

/*!
    Calls \a function when \a end can send, which for TLS is when its handshake is complete, or at
    once if that is so already. Any error of the socket but the peer's goodbye ends the program.
*/
void whenReady(QTcpSocket* end, const Setup& setup, const std::function<void()>& function);

//! Calls \a function whenever bytes of \a end have gone to the operating system.
void whenSent(QTcpSocket* end, const std::function<void()>& function);

//! Returns the bytes that are between \a end and the operating system, encrypted or not.
qint64 outstanding(const QTcpSocket* end);

//! Spells 127.0.0.1 in another way for each number below SPELLINGS.
constexpr int SPELLINGS = 4 * 4 * 4 * 4 * 4 * 16 * 2 * 4;
QString spelledLoopback(int number);

} // namespace bench

#endif

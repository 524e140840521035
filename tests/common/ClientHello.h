// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_CLIENTHELLO_H
#define FERRULE_TESTS_CLIENTHELLO_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtNetwork/QTcpServer>

namespace test {

/*! What a client says first, as far as tests look at it. */
struct ClientHello
{
    //! Without those of TLS 1.3, which no cipher list governs, and without signalling values.
    QList<quint16> suites;
    //! The session that is offered: ticket and pre-shared key; empty when there is none.
    QByteArray session;
};

/*! Accepts connections on loopback, takes the hello from each, and never answers. */
class HelloCollector : public QTcpServer
{
    Q_OBJECT

public:
    explicit HelloCollector(quint16 port = 0);

    QList<ClientHello> hellos() const { return m_hellos; }
    bool waitForHellos(int count, int milliseconds = 5000);

private:
    void acceptConnections();

    QList<ClientHello> m_hellos;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SCRIPTEDPROXY_H
#define FERRULE_TESTS_SCRIPTEDPROXY_H

#include "tests/common/EnginePeer.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QPointer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <memory>
#include <vector>

namespace test {

/*!
    An HTTP proxy that answers what the test says, and leaves the connection to the test as soon as
    the request is complete.
*/
class ScriptedProxy : public QTcpServer
{
    Q_OBJECT

public:
    static constexpr char ACCEPTANCE[] = "HTTP/1.0 200 Connection established\r\n\r\n";

    ScriptedProxy();

    //! Written as soon as a request is complete; nothing when empty.
    QByteArray reply = ACCEPTANCE;

    //! What came on each connection until its request was complete.
    QByteArrayList requests() const { return m_requests; }

    //! The latest connection of which a request has come.
    QTcpSocket* connection() const { return m_connection; }

Q_SIGNALS:
    //! A client has connected; nothing has been read.
    void arrived(QTcpSocket* connection);
    //! A request is complete, and the reply is written.
    void requested(QTcpSocket* connection);

private:
    void takeConnections();
    void takeRequest(QTcpSocket* connection);

    QByteArrayList m_requests;
    QPointer<QTcpSocket> m_connection;
};

/*!
    A proxy with its targets in one: after the reply it speaks TLS itself, as a server with an
    identity that the test chooses.
*/
class ServingProxy : public ScriptedProxy
{
    Q_OBJECT

public:
    explicit ServingProxy(const Identity& identity = makeIdentity(CertificateSpec()));

    //! The server on the latest connection.
    EnginePeer* server() const { return m_servers.empty() ? nullptr : m_servers.back().get(); }

private:
    std::vector<std::unique_ptr<EnginePeer>> m_servers;
};

} // namespace test

#endif

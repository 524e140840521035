// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTCONVERSATION_H
#define FERRULE_TESTS_HOSTCONVERSATION_H

#include "EmissionLog.h"
#include "RawTlsPeer.h"
#include "ScriptedProxy.h"
#include "TcpPair.h"

#include <Ferrule/SslProxySocket.h>

#include <functional>
#include <memory>
#include <vector>

namespace test {

//! What the host's socket is.
enum class Role {
    Client,
    Server,
    ProxiedClient
};

/*!
    What a peer does once the connection is secured, so that the host's socket emits something; the
    last two are what a proxy does instead of letting the client through.
*/
enum class PeerDeed {
    Nothing,
    Write,
    ReadMuch,
    HangUp,
    CloseNotify,
    Garbage,
    Refuse,
    HangUpOnRequest
};

//! What the slots of a host's subclass do.
struct HostSlots
{
    std::function<void()> onAct;
    std::function<void(QAbstractSocket::SocketState)> onState;
};

//! A host's subclass with slots of its own.
class HostSocket : public vela::SslSocket, public HostSlots
{
    Q_OBJECT

public:
    using SslSocket::SslSocket;

    Q_SLOT void act() { onAct(); }
    Q_SLOT void actOnState(QAbstractSocket::SocketState state) { onState(state); }
};

//! The same of a socket that goes through a proxy.
class ProxiedHostSocket : public vela::SslProxySocket, public HostSlots
{
    Q_OBJECT

public:
    using SslProxySocket::SslProxySocket;

    Q_SLOT void act() { onAct(); }
    Q_SLOT void actOnState(QAbstractSocket::SocketState state) { onState(state); }
};

/*!
    A host's socket in one of the roles, and the peers that it talks to one after the other. The
    peers do not use the library.
*/
class HostConversation : public QObject
{
    Q_OBJECT

public:
    explicit HostConversation(Role role);
    ~HostConversation() override;

    vela::SslSocket* socket() const { return m_socket; }
    HostSlots* slotsOfSocket() const { return m_slots; }
    RawTlsPeer* peer() const { return m_peer; }
    Role role() const { return m_role; }

    //! What the next peer will do once the connection is secured.
    void setDeed(PeerDeed deed) { m_deed = deed; }

    //! Has the present peer do \a deed now.
    void doNow(PeerDeed deed);

    /*!
        Gives the socket a connection to a new peer: a client connects out, a server adopts a
        connection that its host has accepted.
    */
    void connectAnew();

    //! Calls connectToHost(); of no use to a server, which finds nobody to talk TLS with.
    void connectOut();

    //! Has a proxied client connect without its proxy from now on.
    void takeProxyAway();

    //! Prepares a connection that adoptPrepared() hands to setSocket() and starts TLS on.
    void prepareConnection();
    void adoptPrepared();

    //! Sends \a text and waits for it to come back.
    bool exchanges(const QByteArray& text);

    //! Waits for connected(); \a log watches the socket.
    bool becomesConnected(const EmissionLog& log) const;
    bool becomesUnconnected() const;

private:
    template <typename Socket>
    void useSocket(Socket* socket);
    void setUpProxy();
    void adopt(const TcpPair& pair);
    void takePeer(QTcpSocket* connection);
    void doDeed();

    Role m_role;
    QTcpServer m_listener;
    QTcpServer m_deafListener; // Accepts connections and says nothing.
    std::unique_ptr<ScriptedProxy> m_proxy;
    QPointer<vela::SslSocket> m_socket;
    HostSlots* m_slots = nullptr;
    QPointer<RawTlsPeer> m_peer;
    std::unique_ptr<TcpPair> m_prepared;
    std::vector<std::unique_ptr<RawTlsPeer>> m_peers;
    std::vector<QPointer<QTcpSocket>> m_adopted;
    PeerDeed m_deed = PeerDeed::Nothing;
};

} // namespace test

Q_DECLARE_METATYPE(test::Role)

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "HostConversation.h"

#include "EventWait.h"
#include "tests/common/FreshPort.h"

#include <QtNetwork/QNetworkProxy>

#include <utility>

using vela::SslSocket;

namespace test {

namespace {

struct ServerFiles
{
    ServerFiles()
    {
        const Identity identity = makeIdentity(CertificateSpec());
        certificate = directory.writeCertificate(QStringLiteral("certificate.pem"), identity);
        key = directory.writeKey(QStringLiteral("key.pem"), identity);
    }

    PemDirectory directory;
    QString certificate;
    QString key;
};

const ServerFiles& serverFiles()
{
    static const ServerFiles files;
    return files;
}

} // namespace

HostConversation::HostConversation(Role role)
    : m_role(role)
{
    // Fresh ports are not without end: there are only the listeners that the role needs.
    switch (role) {
    case Role::Client:
        useSocket(new HostSocket(SslSocket::Client));
        test::listenOnFreshPort(&m_listener);
        break;
    case Role::Server:
        useSocket(new HostSocket(SslSocket::Server));
        test::listenOnFreshPort(&m_deafListener);
        break;
    case Role::ProxiedClient:
        setUpProxy();
        break;
    }
    m_socket->setPathToCertificate(serverFiles().certificate);
    m_socket->setPathToPrivateKey(serverFiles().key);
    connect(&m_listener, &QTcpServer::newConnection, this,
            [this] { takePeer(m_listener.nextPendingConnection()); });
}

HostConversation::~HostConversation()
{
    delete m_socket;
    if (m_prepared) {
        delete m_prepared->near;
        delete m_prepared->far;
    }
    m_peers.clear();
    settle(); // The inner sockets are deleted later.
    // What was adopted and then replaced is ours again.
    for (const QPointer<QTcpSocket>& adopted : m_adopted)
        delete adopted;
}

template <typename Socket>
void HostConversation::useSocket(Socket* socket)
{
    m_socket = socket;
    m_slots = socket;
}

void HostConversation::setUpProxy()
{
    m_proxy = std::make_unique<ScriptedProxy>();
    auto* socket = new ProxiedHostSocket;
    socket->setProxy(QStringLiteral("127.0.0.1"), m_proxy->serverPort(), QString(), QString());
    useSocket(socket);
    connect(m_proxy.get(), &ScriptedProxy::arrived, this, [this] {
        m_proxy->reply = m_deed == PeerDeed::Refuse            ? "HTTP/1.0 403 Forbidden\r\n\r\n"
                         : m_deed == PeerDeed::HangUpOnRequest ? ""
                                                               : ScriptedProxy::ACCEPTANCE;
    });
    connect(m_proxy.get(), &ScriptedProxy::requested, this, [this](QTcpSocket* connection) {
        if (m_proxy->reply == ScriptedProxy::ACCEPTANCE) {
            takePeer(connection);
            return;
        }
        if (std::exchange(m_deed, PeerDeed::Nothing) == PeerDeed::HangUpOnRequest)
            connection->disconnectFromHost();
    });
}

void HostConversation::connectAnew()
{
    if (m_role == Role::Server) {
        adopt(TcpPair());
    } else {
        connectOut();
    }
}

void HostConversation::connectOut()
{
    const QString host = QStringLiteral("127.0.0.1");
    switch (m_role) {
    case Role::Client:
        m_socket->connectToHost(host, m_listener.serverPort());
        break;
    case Role::Server:
        m_socket->connectToHost(host, m_deafListener.serverPort());
        break;
    case Role::ProxiedClient:
        if (m_listener.isListening())
            m_socket->connectToHost(host, m_listener.serverPort());
        else
            m_socket->connectToHost(QStringLiteral("target.example"), 443);
        break;
    }
}

void HostConversation::takeProxyAway()
{
    m_socket->setProxy(QNetworkProxy::NoProxy);
    if (!m_listener.isListening())
        test::listenOnFreshPort(&m_listener);
}

void HostConversation::prepareConnection()
{
    m_prepared = std::make_unique<TcpPair>();
}

void HostConversation::adoptPrepared()
{
    const std::unique_ptr<TcpPair> pair = std::move(m_prepared);
    adopt(*pair);
}

void HostConversation::adopt(const TcpPair& pair)
{
    const QPointer<SslSocket> socket = m_socket;
    m_adopted.emplace_back(pair.near);
    socket->setSocket(pair.near);
    // The peer of a server speaks first, and the server hears it through its event loop.
    takePeer(pair.far);
    if (socket && m_role != Role::Server)
        socket->sslConnect();
}

bool HostConversation::exchanges(const QByteArray& text)
{
    QByteArray echo;
    const auto reading =
        connect(m_socket, &QIODevice::readyRead, this, [&] { echo += m_socket->readAll(); });
    m_socket->write(text);
    const bool came = waitFor([&] { return !m_socket || echo.contains(text); });
    disconnect(reading);
    return came && m_socket;
}

bool HostConversation::becomesConnected(const EmissionLog& log) const
{
    return waitFor([&] { return log.count("connected") > 0; });
}

bool HostConversation::becomesUnconnected() const
{
    return waitFor([this] {
        return m_socket->state() == QAbstractSocket::UnconnectedState
               && m_socket->socket()->state() == QAbstractSocket::UnconnectedState;
    });
}

void HostConversation::takePeer(QTcpSocket* connection)
{
    m_peers.push_back(std::make_unique<RawTlsPeer>(
        connection, m_role == Role::Server ? End::Client : End::Server));
    m_peer = m_peers.back().get();
    // Once the host is connected as well: in the last step of the handshake one side is ahead.
    connect(m_peer, &RawTlsPeer::secured, this, &HostConversation::doDeed, Qt::QueuedConnection);
    m_peer->start();
}

void HostConversation::doDeed()
{
    doNow(std::exchange(m_deed, PeerDeed::Nothing));
}

void HostConversation::doNow(PeerDeed deed)
{
    switch (deed) {
    case PeerDeed::Nothing:
    case PeerDeed::Refuse:
    case PeerDeed::HangUpOnRequest:
        break;
    case PeerDeed::Write:
        m_peer->write("what the peer writes");
        break;
    case PeerDeed::ReadMuch:
        if (m_socket)
            m_socket->write("what the host writes");
        break;
    case PeerDeed::HangUp:
        m_peer->hangUp();
        break;
    case PeerDeed::CloseNotify:
        m_peer->sendCloseNotify();
        break;
    case PeerDeed::Garbage:
        m_peer->sendGarbage();
        break;
    }
}

} // namespace test

#include "moc_HostConversation.cpp"

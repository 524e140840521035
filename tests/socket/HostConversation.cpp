// SPDX-License-Identifier: BSD-3-Clause
#include "HostConversation.h"

#include "EventWait.h"
#include "tests/common/FreshPort.h"

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

HostConversation::HostConversation(SslSocket::Mode role)
    : m_role(role)
    , m_socket(new HostSocket(role))
{
    m_socket->setPathToCertificate(serverFiles().certificate);
    m_socket->setPathToPrivateKey(serverFiles().key);
    test::listenOnFreshPort(&m_listener);
    test::listenOnFreshPort(&m_deafListener);
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

void HostConversation::connectAnew()
{
    if (m_role == SslSocket::Client) {
        connectOut();
    } else {
        adopt(TcpPair());
    }
}

void HostConversation::connectOut()
{
    const QTcpServer& listener = m_role == SslSocket::Client ? m_listener : m_deafListener;
    m_socket->connectToHost(QStringLiteral("127.0.0.1"), listener.serverPort());
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
    const QPointer<HostSocket> socket = m_socket;
    m_adopted.emplace_back(pair.near);
    socket->setSocket(pair.near);
    // The peer of a server speaks first, and the server hears it through its event loop.
    takePeer(pair.far);
    if (socket && m_role == SslSocket::Client)
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
        connection, m_role == SslSocket::Client ? End::Server : End::Client));
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

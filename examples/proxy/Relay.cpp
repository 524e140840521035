// SPDX-License-Identifier: BSD-3-Clause
#include "proxy/Relay.h"

#include "common/Platform.h"

#include <QtNetwork/QTcpSocket>

namespace {

// How long a direction may be silent after the other one has ended.
constexpr int SILENCE_MSECS = 60 * 1000;

} // namespace

Relay::Descriptor::Descriptor(QTcpSocket* socket)
    : m_value(platform::duplicateSocket(socket->socketDescriptor()))
{
    socket->abort();
}

Relay::Descriptor::~Descriptor()
{
    if (m_value >= 0)
        platform::closeSocket(m_value);
}

Relay::Relay(QTcpSocket* client, const QByteArray& toServer, QTcpSocket* server,
             const QByteArray& toClient)
    : m_client(client)
    , m_server(server)
    , m_up(m_client, m_server, toServer)
    , m_down(m_server, m_client, toClient)
{
    m_silence.setSingleShot(true);
    m_silence.setInterval(SILENCE_MSECS);
    connect(&m_silence, &QTimer::timeout, this,
            [this] { finish(m_firstEnd + QStringLiteral(", then silence")); });
    watch(m_up, QStringLiteral("closed by the client"));
    watch(m_down, QStringLiteral("closed by the server"));
}

void Relay::start()
{
    if (m_client < 0 || m_server < 0) {
        finish(QStringLiteral("no descriptors left"));
        return;
    }
    m_up.start();
    m_down.start();
}

void Relay::stop()
{
    m_up.stop();
    m_down.stop();
    m_silence.stop();
}

void Relay::watch(Flow& flow, const QString& endText)
{
    connect(&flow, &Flow::moved, this, [this] {
        if (m_silence.isActive())
            m_silence.start();
    });
    connect(&flow, &Flow::ended, this, [this, endText] {
        if (!m_firstEnd.isEmpty()) {
            finish(m_firstEnd);
            return;
        }
        m_firstEnd = endText;
        m_silence.start();
    });
    connect(&flow, &Flow::failed, this, &Relay::finish);
}

void Relay::finish(const QString& reason)
{
    stop();
    Q_EMIT ended(reason);
}

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/TlsServer.h"

#include "tests/common/FreshPort.h"

namespace test {

TlsServer::TlsServer(QObject* parent)
    : TlsServer(makeIdentity(CertificateSpec()), parent)
{
}

TlsServer::TlsServer(const Identity& identity, QObject* parent)
    : QTcpServer(parent)
    , m_certificatePath(m_directory.writeCertificate(QStringLiteral("certificate.pem"), identity))
    , m_keyPath(m_directory.writeKey(QStringLiteral("key.pem"), identity))
{
    connect(this, &QTcpServer::newConnection, this, &TlsServer::adoptConnections);
    listenOnFreshPort(this);
}

void TlsServer::adoptConnections()
{
    while (QTcpSocket* connection = nextPendingConnection()) {
        auto* socket = new vela::SslSocket(vela::SslSocket::Server, this);
        socket->setPathToCertificate(m_certificatePath);
        socket->setPathToPrivateKey(m_keyPath);
        connection->setParent(nullptr);
        if (configure)
            configure(socket);
        m_last = socket;
        socket->setSocket(connection);
        Q_EMIT accepted(socket);
    }
}

Authority::Authority(const QString& name)
{
    CertificateSpec spec;
    spec.commonName = name;
    spec.isAuthority = true;
    root = makeIdentity(spec);
    caFile = directory.writeCertificate(QStringLiteral("ca.pem"), root);
}

Identity Authority::issue(const QString& commonName) const
{
    CertificateSpec spec;
    spec.commonName = commonName;
    return makeIdentity(spec, &root);
}

} // namespace test

#include "moc_TlsServer.cpp"

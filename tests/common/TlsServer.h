// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_TLSSERVER_H
#define FERRULE_TESTS_TLSSERVER_H

#include "tests/common/TestCertificates.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QPointer>
#include <QtNetwork/QTcpServer>

#include <functional>

namespace test {

/*!
    A server on a free port of the loopback interface that wraps each connection in an
    `SslSocket` of mode Server, with a certificate made for it.
*/
class TlsServer : public QTcpServer
{
    Q_OBJECT

public:
    explicit TlsServer(QObject* parent = nullptr);
    TlsServer(const Identity& identity, QObject* parent = nullptr);

    //! Called with each socket before it adopts its connection.
    std::function<void(vela::SslSocket*)> configure;

    vela::SslSocket* lastSocket() const { return m_last; }
    QString certificatePath() const { return m_certificatePath; }
    QString keyPath() const { return m_keyPath; }

Q_SIGNALS:
    //! A connection was adopted; its handshake has not begun.
    void accepted(vela::SslSocket* socket);

private:
    void adoptConnections();

    PemDirectory m_directory;
    QString m_certificatePath;
    QString m_keyPath;
    QPointer<vela::SslSocket> m_last;
};

/*! An end certificate for \a commonName with the authority that signed it. */
struct Authority
{
    explicit Authority(const QString& name = QStringLiteral("Test Authority"));

    Identity issue(const QString& commonName = QStringLiteral("localhost")) const;

    Identity root;
    PemDirectory directory;
    QString caFile; //!< For SslSocket::setPathToCACertFile().
};

} // namespace test

Q_DECLARE_METATYPE(vela::CertVerify)

#endif

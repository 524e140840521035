// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HTTPPROXIES_H
#define FERRULE_TESTS_HTTPPROXIES_H

#include "tests/common/PeerProcess.h"
#include "tests/interop/TlsPeers.h"

#include <Ferrule/SslProxySocket.h>

namespace test {

/*!
    A proxy of the distribution on a free loopback port, with a configuration of its own. It lets
    clients through to any port of any host.
*/
class ProxyProcess : public PeerProcess
{
    Q_OBJECT

public:
    enum Kind {
        Squid,
        Tinyproxy
    };

    explicit ProxyProcess(Kind kind);

    //! Starts the proxy for everybody; with a user for those with the right name and password.
    bool serve(const QString& user = QString(), const QString& password = QString());

protected:
    void setupChildProcess() override;

private:
    QStringList arguments(quint16 port) const;
    QByteArray squidConfiguration() const;
    QByteArray tinyproxyConfiguration() const;

    const Kind m_kind;
    PemDirectory m_directory;
    QString m_user;
    QString m_password;
    // Whom to run as when the test runs as root, whom not every proxy suffers; else nobody else.
    uint m_userId = 0;
    uint m_groupId = 0;
};

//! Adds a column "proxy" and a row for each kind.
void addProxyRows();

//! Returns true if \a port is spelled with the digits that clients take for success.
bool looksLikeSuccess(quint16 port);

/*!
    A client that trusts the authority of \a files and goes through \a proxy, and what it reports.
*/
class TunnelClient : public vela::SslProxySocket
{
    Q_OBJECT

public:
    TunnelClient(const PeerFiles& files, const ProxyProcess& proxy, const QString& user = QString(),
                 const QString& password = QString());

    int tunnels = 0; //!< How often tunnelEstablished() was emitted.
    vela::CertVerify verdict = vela::VerifyUnknown;
    bool hostNameMatched = false;
};

} // namespace test

Q_DECLARE_METATYPE(test::ProxyProcess::Kind)

//! Skips the test where the proxies are not installed; in continuous integration it fails there.
#define REQUIRE_PROXIES()                                                                          \
    do {                                                                                           \
        REQUIRE_PEER("openssl");                                                                   \
        REQUIRE_PEER("squid");                                                                     \
        REQUIRE_PEER("tinyproxy");                                                                 \
    } while (false)

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_TLSPEERS_H
#define FERRULE_TESTS_TLSPEERS_H

#include "tests/common/TlsServer.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QStringList>
#include <QtTest/QtTest>

#include <vector>

namespace test {

constexpr int CONNECT_TIMEOUT_MS = 20000;

/*!
    A protocol version in the words of each peer. The tests pin the version on the peer's side; the
    library negotiates.
*/
struct TlsVersion
{
    QString name;        //!< As in "1.2".
    QString openssl;     //!< Option of the `openssl` program.
    QString opensslName; //!< As `openssl`, nginx and curl print it.
    bool legacy;         //!< Needs digests that peers of today refuse by default.

    QStringList opensslOptions() const;
    QString gnutlsPriority() const;
    //! What nginx and curl are given as cipher list, and the library's own side on a newer engine.
    QString peerCiphers() const;
    //! The cipher list for the library's side: empty where its default will do.
    QString ciphers() const;
};

/*!
    Returns the versions that the engine speaks, all of which the peers speak too. The newest comes
    first: a cipher list that the old ones need stays in force for the whole process.
*/
const std::vector<TlsVersion>& sharedVersions();

//! Adds a column "version" and a row for each of sharedVersions().
void addVersionRows();

/*!
    Adds columns "version" and "tickets" and two rows for each of sharedVersions(): sessions resumed
    by identifier and by ticket. TLS 1.3 has tickets only.
*/
void addResumptionRows();

//! An authority and the identity of "localhost" that it issued, as files for the peers.
struct PeerFiles
{
    PeerFiles();

    Authority authority;
    Identity identity;
    PemDirectory directory;
    QString certificate;
    QString key;
};

//! Connects \a socket; true when the handshake is complete and nothing has failed.
bool establish(vela::SslSocket* socket, const QString& host, quint16 port);

//! Closes \a socket and waits until its inner socket has delivered what it holds.
bool finishConnection(vela::SslSocket* socket);

/*!
    A client that trusts the authority of \a files, and what it reports about the connection.
*/
class TestClient : public vela::SslSocket
{
    Q_OBJECT

public:
    TestClient(const PeerFiles& files, const TlsVersion& version);

    //! Connects to "localhost"; true when the handshake is complete.
    bool connectTo(quint16 port) { return establish(this, QStringLiteral("localhost"), port); }

    bool closeConnection() { return finishConnection(this); }

    vela::CertVerify verdict = vela::VerifyUnknown;
    bool hostNameMatched = false;
    QString description;
};

/*!
    A server with the identity of \a files for peers that speak \a version. It keeps the sockets.
*/
class TestServer : public TlsServer
{
    Q_OBJECT

public:
    TestServer(const PeerFiles& files, const TlsVersion& version);

    //! Waits for the next peer; null when none completes its handshake.
    vela::SslSocket* awaitPeer();

Q_SIGNALS:
    void peerConnected();

private:
    QList<QPointer<vela::SslSocket>> m_connected;
};

//! Reads lines from \a socket through the next empty one; true when there was one.
bool readHeader(vela::SslSocket* socket, QByteArray* header);

} // namespace test

Q_DECLARE_METATYPE(test::TlsVersion)

#endif

// SPDX-License-Identifier: BSD-3-Clause
// Servers whose Diffie-Hellman groups would keep a client computing for minutes.
#include "EventWait.h"

#include "support/OpenSslHandles.h"
#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"

#include <Ferrule/SslSocket.h>

#include <QtTest/QtTest>

#include <openssl/dh.h>

#include <ctime>
#include <functional>

using namespace test;
using vela::SslSocket;

namespace {

using DhHandle = std::unique_ptr<DH, vela::OpenSslDeleter<DH_free>>;

//! A group of \a bits, no good one. What the server itself has to compute with it is short.
DhHandle makeGroup(int bits)
{
    DhHandle group(DH_new());
    group->p = BN_new();
    BN_set_bit(group->p, bits - 1);
    BN_add_word(group->p, 12345);
    group->g = BN_new();
    BN_set_word(group->g, 2);
    group->length = 3;
    return group;
}

//! A key of a group of \a bits.
vela::EvpPkeyHandle makeKey(int bits)
{
    DhHandle group = makeGroup(bits);
    group->length = 0; // The client is told nothing of a short cut.
    group->priv_key = BN_new();
    BN_set_word(group->priv_key, 5);
    group->pub_key = BN_new();
    BN_set_word(group->pub_key, 32);
    vela::EvpPkeyHandle key(EVP_PKEY_new());
    EVP_PKEY_set1_DH(key.get(), group.get());
    return key;
}

//! Replaces the key of a certificate, and has \a signer sign it.
vela::X509Handle makeCertificate(const Identity& model, EVP_PKEY* key, const Identity& signer)
{
    vela::X509Handle certificate(X509_dup(model.x509()));
    X509_set_pubkey(certificate.get(), key);
    X509_sign(certificate.get(), signer.key(), EVP_sha256());
    return certificate;
}

Identity makeRsaIdentity()
{
    CertificateSpec spec;
    spec.keyType = KeyType::Rsa2048;
    return makeIdentity(spec);
}

//! What a client makes of a server that \a prepare has made ready.
struct Outcome
{
    Outcome(const char* cipher, const Identity& identity, const std::function<void(SSL*)>& prepare)
    {
        QTcpServer listener;
        listenOnFreshPort(&listener);
        std::unique_ptr<EnginePeer> peer;
        QObject::connect(&listener, &QTcpServer::newConnection, &listener, [&] {
            QTcpSocket* arrived = listener.nextPendingConnection();
            arrived->setParent(nullptr);
            peer = std::make_unique<EnginePeer>(EnginePeer::Server, arrived, identity);
            prepare(peer->ssl());
        });
        SslSocket client(SslSocket::Client);
        client.setCiphers(QString::fromLatin1(cipher));
        QSignalSpy connectedSpy(&client, &SslSocket::connected);
        QSignalSpy error(&client, &SslSocket::errorOccurred);
        const std::clock_t start = std::clock();
        client.connectToHost(QStringLiteral("localhost"), listener.serverPort());
        waitFor([&] { return !connectedSpy.isEmpty() || !error.isEmpty(); });
        connected = !connectedSpy.isEmpty();
        text = client.errorString();
        seconds = double(std::clock() - start) / CLOCKS_PER_SEC;
    }

    //! The engine refuses such a group in the end, after it has computed with it for ten seconds.
    bool isRefusedAtOnce() const
    {
        return !connected && text.contains(QStringLiteral("modulus too large")) && seconds < 2;
    }

    bool connected = false;
    double seconds = 0; //!< Of processor time, the server's included.
    QString text;
};

void addSizes()
{
    QTest::addColumn<int>("bits");
    QTest::addColumn<bool>("isAccepted");
    QTest::newRow("2048") << 2048 << true;
    QTest::newRow("10000") << 10000 << true;
    QTest::newRow("10001") << 10001 << false;
    QTest::newRow("32760") << 32760 << false;
}

} // namespace

class TestHugeGroups : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hugeGroupsAreRefused_data() { addSizes(); }
    void hugeGroupsAreRefused();
    void hugeGroupsOfCertificatesAreRefused_data() { addSizes(); }
    void hugeGroupsOfCertificatesAreRefused();
};

void TestHugeGroups::hugeGroupsAreRefused()
{
    QFETCH(int, bits);
    const DhHandle group = makeGroup(bits);
    const Outcome outcome("DHE-RSA-AES128-SHA", makeRsaIdentity(),
                          [&](SSL* ssl) { SSL_set_tmp_dh(ssl, group.get()); });
    QTEST(outcome.connected, "isAccepted");
    QCOMPARE(outcome.isRefusedAtOnce(), !outcome.connected);
}

void TestHugeGroups::hugeGroupsOfCertificatesAreRefused()
{
    QFETCH(int, bits);
    const vela::EvpPkeyHandle key = makeKey(bits);
    const Identity signer = makeRsaIdentity();
    const vela::X509Handle certificate = makeCertificate(signer, key.get(), signer);
    const Outcome outcome("DH-RSA-AES128-SHA", Identity(), [&](SSL* ssl) {
        SSL_use_certificate(ssl, certificate.get());
        SSL_use_PrivateKey(ssl, key.get());
    });
    QTEST(outcome.connected, "isAccepted");
    QCOMPARE(outcome.isRefusedAtOnce(), !outcome.connected);
}

QTEST_GUILESS_MAIN(TestHugeGroups)
#include "tst_hugegroups.moc"

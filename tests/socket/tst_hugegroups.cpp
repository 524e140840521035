// SPDX-License-Identifier: BSD-3-Clause
// Servers whose groups would keep a client computing for minutes, or for ever.
#include "EventWait.h"

#include "support/OpenSslHandles.h"
#include "tests/common/DerWriter.h"
#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/common/SizedOctets.h"

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

QByteArray message(char type, const QByteArray& content)
{
    return type + sized(content, 3);
}

/*!
    A server that says hello, shows certificates and says nothing more. The engine cannot be had to
    show such as these.
*/
class ShowingServer : public QTcpServer
{
public:
    explicit ShowingServer(const QByteArray& certificates)
    {
        listenOnFreshPort(this);
        connect(this, &QTcpServer::newConnection, this, [this, certificates] {
            const QByteArray hello = "\x03\x03" + QByteArray(32, 'r') + sized(QByteArray(), 1)
                                     + QByteArray("\xc0\x2f\0", 3);
            const QByteArray flight =
                message(SSL3_MT_SERVER_HELLO, hello) + message(SSL3_MT_CERTIFICATE, certificates);
            nextPendingConnection()->write("\x16\x03\x03" + sized(flight, 2));
        });
    }
};

//! Returns \a ders as the content of a message with certificates.
QByteArray listOf(const QList<QByteArray>& ders)
{
    QByteArray list;
    for (const QByteArray& der : ders)
        list += sized(der, 3);
    return sized(list, 3);
}

QByteArray encodeWith(const QByteArray& key)
{
    der::Certificate one;
    one.key = key;
    return der::encode(one);
}

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
    void curvesOfTheirOwnAreRefused_data();
    void curvesOfTheirOwnAreRefused();
    void otherCertificatesAreLeftToTheEngine_data();
    void otherCertificatesAreLeftToTheEngine();
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

void TestHugeGroups::curvesOfTheirOwnAreRefused_data()
{
    QTest::addColumn<QByteArray>("certificates");
    const QByteArray usual = der::encode(der::Certificate());
    const QByteArray key = der::unendingKey();
    const QByteArray unending = encodeWith(key);
    QTest::newRow("own certificate") << listOf({unending});
    QTest::newRow("issuer's") << listOf({usual, unending});
    QTest::newRow("last of many") << listOf({usual, usual, usual, usual, usual, unending});
    // The same key, whose algorithm now has no length but an end.
    const int algorithmSize = static_cast<unsigned char>(key.at(3));
    const QByteArray algorithm = key.mid(4, algorithmSize);
    const QByteArray hidden = der::sequence(QByteArray("\x30\x80", 2) + algorithm
                                            + QByteArray(2, '\0') + key.mid(4 + algorithmSize));
    QTest::newRow("hidden") << listOf({encodeWith(hidden)});
}

void TestHugeGroups::curvesOfTheirOwnAreRefused()
{
    QFETCH(QByteArray, certificates);
    ShowingServer server(certificates);
    SslSocket client(SslSocket::Client);
    client.setCiphers(QStringLiteral("DEFAULT"));
    QSignalSpy verdict(&client, &SslSocket::connectionVerificationDone);
    QSignalSpy error(&client, &SslSocket::errorOccurred);
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    QVERIFY(waitFor([&] { return !error.isEmpty(); }));
    QVERIFY2(client.errorString().contains(QStringLiteral("unknown group")),
             qPrintable(client.errorString()));
    QVERIFY(verdict.isEmpty());
}

void TestHugeGroups::otherCertificatesAreLeftToTheEngine_data()
{
    QTest::addColumn<QByteArray>("certificates");
    QTest::addColumn<QString>("text");
    const QByteArray usual = der::encode(der::Certificate());
    const QString mismatch = QStringLiteral("length mismatch");
    QTest::newRow("none") << listOf({}) << QString();
    QTest::newRow("nothing") << QByteArray() << mismatch;
    QTest::newRow("list longer than the message") << listOf({usual}).chopped(1) << mismatch;
    QTest::newRow("octet behind the list") << listOf({usual}) + '.' << mismatch;
    QTest::newRow("certificate longer than the list")
        << sized(sized(usual, 3).chopped(1), 3) << QStringLiteral("cert length mismatch");
    QTest::newRow("octet in the list") << sized(sized(usual, 3) + '.', 3) << mismatch;
}

void TestHugeGroups::otherCertificatesAreLeftToTheEngine()
{
    QFETCH(QByteArray, certificates);
    QFETCH(QString, text);
    ShowingServer server(certificates);
    SslSocket client(SslSocket::Client);
    client.setCiphers(QStringLiteral("DEFAULT"));
    QSignalSpy error(&client, &SslSocket::errorOccurred);
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    QVERIFY(waitFor([&] { return !error.isEmpty(); }));
    QVERIFY2(client.errorString().endsWith(text), qPrintable(client.errorString()));
    QVERIFY(!client.errorString().contains(QStringLiteral("unknown group")));
}

QTEST_GUILESS_MAIN(TestHugeGroups)
#include "tst_hugegroups.moc"

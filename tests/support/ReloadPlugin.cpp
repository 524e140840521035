// SPDX-License-Identifier: BSD-3-Clause

/*
    A part of a host that uses the library and is loaded and unloaded together with it. What it
    offers has C names, to be found again after each load.
*/

#include "tests/common/TlsServer.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtTest/QTest>

using vela::SslCertificate;
using vela::SslCertificatePtr;
using vela::SslSocket;

namespace {

constexpr int CONVERSATIONS = 3;

//! One object's signal with each registered type, connected to slots that note what arrives.
class Relay : public QObject
{
    Q_OBJECT

public:
    Relay()
    {
        connect(this, SIGNAL(certificate(SslCertificatePtr)),
                             SLOT(onCertificate(SslCertificatePtr)), Qt::QueuedConnection);
        connect(this, SIGNAL(chain(vela::SslCertificateChain)),
                             SLOT(onChain(vela::SslCertificateChain)), Qt::QueuedConnection);
        connect(this, SIGNAL(verdict(vela::CertVerify)), SLOT(onVerdict(vela::CertVerify)),
                                                              Qt::QueuedConnection);
        connect(this, SIGNAL(acceptance(vela::CertAccept)), SLOT(onAcceptance(vela::CertAccept)),
                                                                 Qt::QueuedConnection);
        connect(this, SIGNAL(hostName(vela::CertHostName)), SLOT(onHostName(vela::CertHostName)),
                                                                 Qt::QueuedConnection);
        connect(this, SIGNAL(trust(vela::CertTrust)), SLOT(onTrust(vela::CertTrust)),
                                                           Qt::QueuedConnection);
    }

    SslCertificatePtr sent{new SslCertificate};
    int intact = 0;

Q_SIGNALS:
    void certificate(SslCertificatePtr value);
    void chain(const vela::SslCertificateChain& value);
    void verdict(vela::CertVerify value);
    void acceptance(vela::CertAccept value);
    void hostName(vela::CertHostName value);
    void trust(const vela::CertTrust& value);

private Q_SLOTS:
    void onCertificate(SslCertificatePtr value) { intact += value == sent ? 1 : 0; }
    void onChain(const vela::SslCertificateChain& value)
    {
        intact += value.size() == 2 && value.at(1) == sent ? 1 : 0;
    }
    void onVerdict(vela::CertVerify value) { intact += value == vela::VerifyExpired ? 1 : 0; }
    void onAcceptance(vela::CertAccept value) { intact += value == vela::AcceptSession ? 1 : 0; }
    void onHostName(vela::CertHostName value)
    {
        intact += value == vela::HostNameMismatched ? 1 : 0;
    }
    void onTrust(const vela::CertTrust& value)
    {
        intact += value.state == 1 && value.accept == vela::AcceptNever && value.mark == 3 ? 1 : 0;
    }
};

bool converse(quint16 port, bool* reused)
{
    SslSocket client(SslSocket::Client);
    QByteArray echo;
    QObject::connect(&client, &SslSocket::connected, &client, [&client] { client.write("ping"); });
    QObject::connect(&client, &SslSocket::readyRead, &client, [&] { echo += client.readAll(); });
    // Not a literal of this plugin: Qt keeps the names it has looked up.
    client.connectToHost(QString::fromLatin1("localhost"), port);
    const bool echoed = QTest::qWaitFor([&] { return echo == "ping"; });
    *reused = client.isSessionReused();
    client.disconnectFromHost();
    return QTest::qWaitFor([&] { return client.state() == QAbstractSocket::UnconnectedState; })
           && echoed;
}

} // namespace

extern "C" {

//! Returns how many of the types came through a queued signal as they were sent.
Q_DECL_EXPORT int reloadQueuedSignals()
{
    Relay relay;
    Q_EMIT relay.certificate(relay.sent);
    Q_EMIT relay.chain(QList<SslCertificatePtr>{SslCertificatePtr(), relay.sent});
    Q_EMIT relay.verdict(vela::VerifyExpired);
    Q_EMIT relay.acceptance(vela::AcceptSession);
    Q_EMIT relay.hostName(vela::HostNameMismatched);
    vela::CertTrust trust;
    trust.state = 1;
    trust.accept = vela::AcceptNever;
    trust.mark = 3;
    Q_EMIT relay.trust(trust);
    if (relay.intact != 0)
        return -1;
    QCoreApplication::sendPostedEvents(&relay);
    return relay.intact;
}

//! Returns how many certificates of the embedded bundle a store took.
Q_DECL_EXPORT int reloadImportedRoots()
{
    QFile bundle(QStringLiteral(":/Certificates/RootCerts.pem"));
    if (!bundle.open(QIODevice::ReadOnly))
        return -1;
    vela::GenericCertStore store(nullptr);
    store.importRootCerts(&bundle, vela::AcceptAlways);
    return store.count();
}

//! Talks TLS over loopback; returns how many conversations went well, or -1 if none was resumed.
Q_DECL_EXPORT int reloadConversations()
{
    int done = 0;
    int resumed = 0;
    {
        test::TlsServer server;
        QObject::connect(&server, &test::TlsServer::accepted, [](SslSocket* socket) {
            QObject::connect(socket, &SslSocket::readyRead, socket,
                             [socket] { socket->write(socket->readAll()); });
        });
        for (int i = 0; i < CONVERSATIONS; ++i) {
            bool reused = false;
            done += converse(server.serverPort(), &reused) ? 1 : 0;
            resumed += reused ? 1 : 0;
        }
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return resumed > 0 ? done : -1;
}

} // extern "C"

#include "ReloadPlugin.moc"

// SPDX-License-Identifier: BSD-3-Clause
// A peer that the library cannot agree with is told so: what its user reads is the alert, not that
// the connection has ended.

#include "tests/common/PeerProcess.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

using test::PeerProcess;
using vela::SslSocket;

namespace {

constexpr int PATIENCE_MSECS = 20000;

} // namespace

class AlertsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void peerPrintsTheAlert_data();
    void peerPrintsTheAlert();

private:
    test::TlsServer m_server;
};

void AlertsTest::initTestCase()
{
    m_server.configure = [](SslSocket* socket) {
        socket->setCiphers(QStringLiteral("ECDHE-ECDSA-AES256-GCM-SHA384"));
        // What hosts are told to do in the first report.
        connect(socket, &QAbstractSocket::errorOccurred, socket, &QAbstractSocket::close);
    };
}

void AlertsTest::peerPrintsTheAlert_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QByteArray>("alert");
    const auto row = [](const char* program, const char* arguments, const char* alert) {
        QTest::newRow(program) << QString::fromLatin1(program) << QString::fromLatin1(arguments)
                               << QByteArray(alert);
    };
    row("openssl", "s_client -connect 127.0.0.1:%1 -tls1_2 -cipher ECDHE-ECDSA-AES128-GCM-SHA256",
        "alert handshake failure");
    row("curl",
        "--disable --insecure --silent --show-error --noproxy * --tls-max 1.2 "
        "--ciphers ECDHE-ECDSA-AES128-GCM-SHA256 https://127.0.0.1:%1/",
        "alert handshake failure");
    row("gnutls-cli",
        "--insecure --port %1 "
        "--priority NORMAL:-VERS-ALL:+VERS-TLS1.2:-CIPHER-ALL:+AES-128-GCM 127.0.0.1",
        "Received alert [40]: Handshake failed");
}

void AlertsTest::peerPrintsTheAlert()
{
    QFETCH(QString, program);
    QFETCH(QString, arguments);
    QFETCH(QByteArray, alert);
    if (PeerProcess::find(program).isEmpty()) {
        if (qEnvironmentVariableIsSet("CI"))
            QFAIL("a peer is not installed");
        QSKIP("not installed: nothing is known about talking to it");
    }
    PeerProcess peer(program);
    QVERIFY(peer.run(arguments.arg(m_server.serverPort()).split(QLatin1Char(' '))));
    QTRY_COMPARE_WITH_TIMEOUT(peer.state(), QProcess::NotRunning, PATIENCE_MSECS);
    const QByteArray output = peer.log() + peer.readAll();
    QVERIFY2(output.contains(alert), output.constData());
    QVERIFY(peer.exitCode() != 0);
}

QTEST_GUILESS_MAIN(AlertsTest)
#include "tst_alerts.moc"

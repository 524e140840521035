// SPDX-License-Identifier: BSD-3-Clause
#include "BlockingTlsClient.h"
#include "EventWait.h"

#include "tests/common/TlsServer.h"

#include <Ferrule/SslSocket.h>

#include <QtTest/QtTest>

#include <atomic>
#include <thread>

using namespace test;
using vela::SslSocket;

namespace {

constexpr int CONNECTIONS = 2000;
constexpr int PATIENCE_WITH_ALL_MSECS = 240000;

//! Echoes, and deletes each socket when its connection has ended.
class EchoServer : public TlsServer
{
public:
    EchoServer()
    {
        connect(this, &TlsServer::accepted, this, [this](SslSocket* socket) { serve(socket); });
    }

    int connections = 0;
    int tlsErrors = 0;
    int sockets = 0; //!< How many exist.

private:
    void serve(SslSocket* socket)
    {
        ++sockets;
        connect(socket, &QObject::destroyed, this, [this] { --sockets; });
        connect(socket, &SslSocket::connected, this, [this] { ++connections; });
        connect(socket, &SslSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &SslSocket::readyRead, socket,
                [socket] { socket->write(socket->readAll()); });
        connect(socket, &SslSocket::errorOccurred, socket,
                [this, socket](QAbstractSocket::SocketError error) {
                    if (error != QAbstractSocket::UnknownSocketError)
                        return;
                    qWarning() << socket->errorString();
                    ++tlsErrors;
                    socket->close();
                });
    }
};

//! Connects one socket of the library after another; the pool makes their sessions last.
class ClientSeries : public QObject
{
public:
    explicit ClientSeries(quint16 port)
        : m_port(port)
    {
        next();
    }

    bool isOver() const { return m_finished == CONNECTIONS; }
    int resumptions = 0;
    int errors = 0;

private:
    void next()
    {
        auto* socket = new SslSocket(SslSocket::Client, this);
        connect(socket, &SslSocket::connected, socket, [socket] {
            socket->socket()->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            socket->write("and again");
        });
        connect(socket, &SslSocket::errorOccurred, this, [this] { ++errors; });
        connect(socket, &SslSocket::readyRead, this, [this, socket] {
            if (socket->bytesAvailable() < int(sizeof "and again") - 1)
                return;
            resumptions += socket->isSessionReused() ? 1 : 0;
            socket->disconnectFromHost();
        });
        connect(socket, &SslSocket::disconnected, this, [this, socket] {
            socket->deleteLater();
            if (++m_finished < CONNECTIONS)
                next();
        });
        socket->connectToHost(QStringLiteral("127.0.0.1"), m_port);
    }

    quint16 m_port;
    int m_finished = 0;
};

} // namespace

//! Thousands of connections to one server: sessions come and go, and nothing piles up or is freed.
class TestLongRunningServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void servesResumingClients_data();
    void servesResumingClients();
    void servesClientsOfTheLibrary();
};

void TestLongRunningServer::servesResumingClients_data()
{
    QTest::addColumn<quint64>("options");
#ifdef SSL_OP_NO_TLSv1_3
    const quint64 legacy = SSL_OP_NO_TLSv1_3;
    QTest::newRow("tickets of TLS 1.3") << quint64(0);
#else
    const quint64 legacy = 0;
#endif
    QTest::newRow("tickets") << legacy;
    QTest::newRow("session identifiers") << quint64(legacy | SSL_OP_NO_TICKET);
}

void TestLongRunningServer::servesResumingClients()
{
    QFETCH(quint64, options);
    EchoServer server;
    BlockingTlsClient client(server.serverPort(), static_cast<unsigned long>(options));
    int succeeded = 0;
    std::atomic<bool> over{false};
    std::thread thread([&] {
        for (int i = 0; i < CONNECTIONS; ++i)
            succeeded += client.converse(QByteArray::number(i)) ? 1 : 0;
        over = true;
        QMetaObject::invokeMethod(
            &server, [] {}, Qt::QueuedConnection); // Wakes the server up.
    });
    const bool inTime = waitFor([&] { return over.load(); }, PATIENCE_WITH_ALL_MSECS);
    if (!inTime)
        server.close();
    thread.join();

    QVERIFY(inTime);
    QCOMPARE(succeeded, CONNECTIONS);
    QCOMPARE(client.resumptions(), CONNECTIONS - 1); // All but the first.
    QVERIFY(waitFor([&] { return server.sockets == 0; }));
    QCOMPARE(server.connections, CONNECTIONS);
    QCOMPARE(server.tlsErrors, 0);
}

void TestLongRunningServer::servesClientsOfTheLibrary()
{
    EchoServer server;
    ClientSeries series(server.serverPort());
    QVERIFY(waitFor([&] { return series.isOver(); }, PATIENCE_WITH_ALL_MSECS));
    QCOMPARE(series.errors, 0);
    QCOMPARE(series.resumptions, CONNECTIONS - 1);
    QVERIFY(waitFor([&] { return server.sockets == 0; }));
    QCOMPARE(server.connections, CONNECTIONS);
    QCOMPARE(server.tlsErrors, 0);
}

// The library writes a line for each session; thousands of them help nobody.
int main(int argc, char** argv)
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    QCoreApplication application(argc, argv);
    // Each server socket reads the default authorities; all those of the system would take longer
    // than everything else here.
    qputenv("SSL_CERT_FILE", "/dev/null");
    TestLongRunningServer test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_longrunningserver.moc"

// SPDX-License-Identifier: BSD-3-Clause
// What OpenSSL's own cache of sessions does to a process, and when.
#include "EventWait.h"
#include "TcpPair.h"

#include "socket/SessionCache.h"
#include "socket/SessionPool.h"
#include "socket/SslContext.h"
#include "tests/common/EnginePeer.h"
#include "tests/common/MessageLog.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

#include <ctime>

using namespace test;
using vela::SessionCache;
using vela::SslContext;
using vela::SslSocket;

namespace {

const QString REMOVED = QStringLiteral("session removed from cache");

//! Has a client of the library talk to a server of it; both sessions are in the cache then.
bool converse(TlsServer& server)
{
    QObject connections;
    QObject::connect(&server, &TlsServer::accepted, &connections,
                     [](SslSocket* socket) { socket->write("x"); });
    SslSocket client(SslSocket::Client);
    bool read = false;
    QObject::connect(&client, &SslSocket::readyRead, &client, [&] { read = true; });
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    return waitFor([&] { return read; });
}

long sessions()
{
    return SSL_CTX_sess_number(SslContext::get());
}

} // namespace

class SessionCacheTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void linesAreNotWrittenWhileOpenSslHoldsItsLock();
    void nothingExpiresInTheMiddleOfAHandshake();
    void abandonedHandshakesLeaveNothing();
    void serversPoolNothing();
};

void SessionCacheTest::cleanup()
{
    SSL_CTX_set_timeout(SslContext::get(), 600);
    SSL_CTX_flush_sessions(SslContext::get(), 0);
    while (SessionCache::tidy())
        QTest::qWait(SessionCache::tidyInterval());
}

// A host's handler may open a socket, which would wait for the lock for ever.
void SessionCacheTest::linesAreNotWrittenWhileOpenSslHoldsItsLock()
{
    TlsServer server;
    QVERIFY(converse(server));
    const long before = sessions();
    QVERIFY(before > 0);
    const MessageLog log;
    SSL_CTX_flush_sessions(SslContext::get(), 0);
    QCOMPARE(sessions(), 0L);
    QCOMPARE(log.messages().count(REMOVED), 0);
    QVERIFY(converse(server));
    QVERIFY(waitFor([&] { return log.messages().count(REMOVED) >= int(before); }));
}

// OpenSSL would look for them with every 256th connection.
void SessionCacheTest::nothingExpiresInTheMiddleOfAHandshake()
{
    QVERIFY(SSL_CTX_get_session_cache_mode(SslContext::get()) & SSL_SESS_CACHE_NO_AUTO_CLEAR);
    QCOMPARE(SSL_CTX_get_session_cache_mode(SslContext::get()) & SSL_SESS_CACHE_BOTH,
             SSL_SESS_CACHE_BOTH);
    SSL_CTX_set_timeout(SslContext::get(), 1);
    TlsServer server;
    QVERIFY(converse(server));
    const long before = sessions();
    QVERIFY(before > 0);
    SSL_CTX_set_timeout(SslContext::get(), 600);
    const std::time_t start = std::time(nullptr);
    QTRY_VERIFY(std::time(nullptr) > start + 2);
    QVERIFY(SessionCache::tidy() || sessions() < before);
    QTRY_COMPARE((SessionCache::tidy(), sessions()), 0L);
}

// A hello, and then the end: both sides have made a session, which nobody can use.
void SessionCacheTest::abandonedHandshakesLeaveNothing()
{
    constexpr int HANDSHAKES = 10;
    static int freed;
    freed = 0;
    const auto countFreed = [](void*, void*, CRYPTO_EX_DATA*, int, long, void*) { ++freed; };
    SSL_SESSION_get_ex_new_index(0, nullptr, nullptr, nullptr, countFreed);
    TlsServer server;
    for (int i = 0; i < HANDSHAKES; ++i) {
        const TcpPair pair;
        const std::unique_ptr<QTcpSocket> far(pair.far);
        SslSocket client(SslSocket::Client);
        client.setSocket(pair.near);
        client.sslConnect();
        QVERIFY(waitFor([&] { return far->bytesAvailable() > 0; }));

        QTcpSocket transport;
        transport.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QVERIFY(waitFor([&] { return transport.state() == QAbstractSocket::ConnectedState; }));
        transport.write(far->readAll());
        QVERIFY(waitFor([&] { return transport.bytesAvailable() > 0; }));
        delete server.lastSocket();
    }
    QVERIFY2(freed >= 2 * HANDSHAKES, QByteArray::number(freed).constData());
    QCOMPARE(sessions(), 0L);
}

void SessionCacheTest::serversPoolNothing()
{
    const qint64 before = vela::gSessionPool.size();
    TlsServer server;
    auto* transport = new QTcpSocket;
    EnginePeer peer(EnginePeer::Client, transport);
    SSL_set_options(peer.ssl(), SSL_OP_NO_TICKET); // The session gets a number to be found by.
    bool connected = false;
    connect(&server, &TlsServer::accepted, this, [&](SslSocket* socket) {
        connect(socket, &SslSocket::connected, this, [&] { connected = true; });
    });
    transport->connectToHost(QHostAddress::LocalHost, server.serverPort());
    QVERIFY(waitFor([&] { return connected; }));
    delete server.lastSocket();
    QCOMPARE(vela::gSessionPool.size(), before);
}

QTEST_GUILESS_MAIN(SessionCacheTest)
#include "tst_sessioncache.moc"

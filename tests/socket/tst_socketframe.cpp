// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/EnginePeer.h"
#include "tests/common/FreshPort.h"
#include "tests/common/SignalLog.h"
#include "tests/common/TlsServer.h"

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QNetworkProxy>
#include <QtTest/QtTest>

#include <thread>

using vela::SslSocket;

namespace {

const char ALREADY_CONNECTING[] =
    "QtSslSocket::connectToHost() called when not in UnconnectedState";
const char NOT_CONNECTED[] =
    "QtSslSocket::setSocket: QtSslSocket::setSocket() was called with a socket that is not in "
    "ConnectedState.";

const QString LOCALHOST = QStringLiteral("localhost");

//! A plain connection on loopback: what a host would hand to setSocket().
struct PlainPair
{
    PlainPair()
    {
        test::listenOnFreshPort(&server);
        near = new QTcpSocket;
        near->connectToHost(LOCALHOST, server.serverPort());
        server.waitForNewConnection(5000);
        far.reset(server.nextPendingConnection());
        far->setParent(nullptr);
        near->waitForConnected(5000);
    }

    ~PlainPair() { delete near.data(); }

    QTcpServer server;
    QPointer<QTcpSocket> near;
    std::unique_ptr<QTcpSocket> far;
};

class NamedSlotSocket : public SslSocket
{
    Q_OBJECT

public:
    using SslSocket::SslSocket;
    QStringList calls;

protected Q_SLOTS:
    void connectToHostImplementation(QString hostName, quint16 port, OpenMode openMode)
    {
        calls.append(QStringLiteral("%1:%2 %3").arg(hostName).arg(port).arg(int(openMode)));
    }

    void disconnectFromHostImplementation() { calls.append(QStringLiteral("disconnect")); }
};

} // namespace

class SocketFrameTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObjectListsItsMethodsInOrder();
    void newSocketHasAPlainInnerSocketOfItsOwn();
    void isSequentialAlways();
    void createSocketChoosesTheKind_data();
    void createSocketChoosesTheKind();
    void createSocketDoesNotAskForTheApplicationProxy();
    void createSocketByPartsIgnoresTheParent();
    void createSocketByPartsMakesAnHttpProxy_data();
    void createSocketByPartsMakesAnHttpProxy();
    void connectToHostTwiceWarnsAndChangesNothing();
    void connectEmitsItsSignalsInOrder_data();
    void connectEmitsItsSignalsInOrder();
    void serverEmitsItsSignalsInOrder();
    void connectIgnoresTheProtocol();
    void connectOpensTheDeviceInTheGivenMode();
    void connectRunsTheSubclassSlotOfThatName();
    void connectToHostAddressWorksToo();
    void connectFromAnotherThreadRunsOnTheSocketsOwn();
    void disconnectFromHostEmitsTheStateEvenUnchanged();
    void disconnectEmitsItsSignalsInOrder();
    void disconnectWithBytesPendingClosesAfterThem();
    void peerClosingIsRelayedAndResetsNothing();
    void closeAbortsTheInnerSocket();
    void transportErrorsAreRelayedOnce();
    void errorsOfAnAdoptedSocketAreRelayedOnce();
    void socketCanBeUsedAgain();
    void setSocketRefusesAnUnconnectedSocket();
    void setSocketRefusesNull();
    void setSocketReplacesTheOwnInnerSocket();
    void setSocketDropsConnectionsOfThePreviousOwner();
    void setSocketLeavesAnEarlierAdoptedSocketAlone();
    void setSocketTakesTheInnerSocketAgain();
    void setSocketCopiesModeAndEndpoint();
    void adoptedSocketIsDeletedLaterWithTheFrame();
    void deletedAdoptedSocketLeavesAUsableFrame();
    void moveToThreadTakesTheInnerSocketAlong();
    void trUsesTheQualifiedContext();
};

void SocketFrameTest::metaObjectListsItsMethodsInOrder()
{
    const QMetaObject& meta = SslSocket::staticMetaObject;
    QCOMPARE(meta.className(), "vela::SslSocket");
    struct
    {
        const char* signature;
        QMetaMethod::MethodType type;
        QMetaMethod::Access access;
    } const expected[] = {
        {"connectionVerificationDone(vela::CertVerify,bool,QString)", QMetaMethod::Signal,
         QMetaMethod::Public},
        {"sslConnect()", QMetaMethod::Slot, QMetaMethod::Public},
        {"sslAccept()", QMetaMethod::Slot, QMetaMethod::Public},
        {"connectToHostImplementation(QString,quint16,OpenMode)", QMetaMethod::Slot,
         QMetaMethod::Protected},
        {"disconnectFromHostImplementation()", QMetaMethod::Slot, QMetaMethod::Protected},
        {"handleSocketError(QAbstractSocket::SocketError)", QMetaMethod::Slot,
         QMetaMethod::Private},
        {"handleStateChanged(QAbstractSocket::SocketState)", QMetaMethod::Slot,
         QMetaMethod::Private},
        {"readFromSocket()", QMetaMethod::Slot, QMetaMethod::Private},
        {"writeToSocket()", QMetaMethod::Slot, QMetaMethod::Private},
        {"socketBytesWritten(qint64)", QMetaMethod::Slot, QMetaMethod::Private},
    };
    int index = meta.methodOffset();
    for (const auto& method : expected) {
        QCOMPARE(meta.indexOfMethod(QMetaObject::normalizedSignature(method.signature)), index);
        QCOMPARE(meta.method(index).methodType(), method.type);
        QCOMPARE(meta.method(index).access(), method.access);
        ++index;
    }
    QCOMPARE(meta.methodCount(), index);
    QCOMPARE(QByteArray(meta.method(meta.indexOfMethod("sslConnect()")).typeName()),
             QByteArray("bool"));
}

void SocketFrameTest::newSocketHasAPlainInnerSocketOfItsOwn()
{
    QObject parent;
    auto* socket = new SslSocket(SslSocket::Client, &parent);
    QCOMPARE(socket->parent(), &parent);
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket->isOpen());
    QVERIFY(socket->socket());
    QCOMPARE(socket->socket()->metaObject()->className(), "QTcpSocket");
    QCOMPARE(socket->socket()->parent(), socket);
    QCOMPARE(socket->bytesAvailable(), 0);
    QCOMPARE(socket->bytesToWrite(), 0);
}

void SocketFrameTest::isSequentialAlways()
{
    QVERIFY(SslSocket(SslSocket::Client).isSequential());
    QVERIFY(SslSocket(SslSocket::Server).isSequential());
}

void SocketFrameTest::createSocketChoosesTheKind_data()
{
    QTest::addColumn<bool>("ssl");
    QTest::addColumn<int>("proxyType");
    QTest::addColumn<QByteArray>("className");
    const std::pair<const char*, QNetworkProxy::ProxyType> types[] = {
        {"default proxy", QNetworkProxy::DefaultProxy},
        {"SOCKS proxy", QNetworkProxy::Socks5Proxy},
        {"no proxy", QNetworkProxy::NoProxy},
        {"HTTP proxy", QNetworkProxy::HttpProxy},
        {"HTTP caching proxy", QNetworkProxy::HttpCachingProxy},
        {"FTP caching proxy", QNetworkProxy::FtpCachingProxy},
    };
    for (const auto& type : types) {
        const bool direct = type.second == QNetworkProxy::NoProxy;
        QTest::addRow("TLS, %s", type.first)
            << true << int(type.second)
            << QByteArray(direct ? "vela::SslSocket" : "vela::SslProxySocket");
        QTest::addRow("plain, %s", type.first)
            << false << int(type.second) << QByteArray("QTcpSocket");
    }
}

void SocketFrameTest::createSocketChoosesTheKind()
{
    QFETCH(bool, ssl);
    QFETCH(int, proxyType);
    QFETCH(QByteArray, className);
    const auto type = static_cast<QNetworkProxy::ProxyType>(proxyType);
    QObject parent;
    const QNetworkProxy proxy(type, QStringLiteral("proxy"), 8080, QStringLiteral("user"),
                              QStringLiteral("secret"));
    QTcpSocket* socket = SslSocket::createSocket(ssl, proxy, &parent);
    QVERIFY(socket);
    QCOMPARE(QByteArray(socket->metaObject()->className()), className);
    QCOMPARE(socket->parent(), &parent);
    const bool direct = type == QNetworkProxy::NoProxy;
    QCOMPARE(socket->proxy(), direct ? QTcpSocket().proxy() : proxy);
}

void SocketFrameTest::createSocketDoesNotAskForTheApplicationProxy()
{
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("proxy"), 8080));
    const std::unique_ptr<QTcpSocket> direct(
        SslSocket::createSocket(true, QNetworkProxy(QNetworkProxy::NoProxy), nullptr));
    const std::unique_ptr<QTcpSocket> proxied(
        SslSocket::createSocket(true, QNetworkProxy(QNetworkProxy::DefaultProxy), nullptr));
    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    QCOMPARE(direct->metaObject()->className(), "vela::SslSocket");
    QCOMPARE(proxied->metaObject()->className(), "vela::SslProxySocket");
    QVERIFY(proxied->proxy().hostName().isEmpty());
}

void SocketFrameTest::createSocketByPartsIgnoresTheParent()
{
    QObject parent;
    for (const bool ssl : {true, false}) {
        for (const QString& host : {QString(), QStringLiteral("proxy")}) {
            const std::unique_ptr<QTcpSocket> socket(
                SslSocket::createSocket(ssl, host, 3128, QString(), QString(), &parent));
            QVERIFY(socket);
            QVERIFY(!socket->parent());
        }
    }
    QVERIFY(parent.children().isEmpty());
}

void SocketFrameTest::createSocketByPartsMakesAnHttpProxy_data()
{
    QTest::addColumn<bool>("ssl");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QByteArray>("className");
    const QString host = QStringLiteral("proxy");
    QTest::newRow("TLS, proxy") << true << host << QByteArray("vela::SslProxySocket");
    QTest::newRow("TLS, no proxy") << true << QString() << QByteArray("vela::SslSocket");
    QTest::newRow("plain, proxy") << false << host << QByteArray("QTcpSocket");
    QTest::newRow("plain, no proxy") << false << QString() << QByteArray("QTcpSocket");
}

void SocketFrameTest::createSocketByPartsMakesAnHttpProxy()
{
    QFETCH(bool, ssl);
    QFETCH(QString, host);
    QFETCH(QByteArray, className);
    const std::unique_ptr<QTcpSocket> socket(SslSocket::createSocket(
        ssl, host, 65536 + 3128, QStringLiteral("user"), QStringLiteral("secret"), nullptr));
    QCOMPARE(QByteArray(socket->metaObject()->className()), className);
    const QNetworkProxy proxy(QNetworkProxy::HttpProxy, host, 3128, QStringLiteral("user"),
                              QStringLiteral("secret"));
    QCOMPARE(socket->proxy(), host.isEmpty() ? QTcpSocket().proxy() : proxy);
}

void SocketFrameTest::connectToHostTwiceWarnsAndChangesNothing()
{
    test::TlsServer server;
    QTcpServer other;
    test::listenOnFreshPort(&other);
    QSignalSpy otherConnections(&other, &QTcpServer::newConnection);
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    const QAbstractSocket::SocketState state = socket.state();
    const test::SignalLog log(&socket);

    QTest::ignoreMessage(QtWarningMsg, ALREADY_CONNECTING);
    socket.connectToHost(LOCALHOST, other.serverPort());
    QCOMPARE(socket.state(), state);
    QVERIFY(log.isEmpty());

    QVERIFY(connected.wait());
    QCOMPARE(socket.peerPort(), server.serverPort());
    QVERIFY(otherConnections.isEmpty());
    QTest::ignoreMessage(QtWarningMsg, ALREADY_CONNECTING);
    socket.connectToHost(LOCALHOST, other.serverPort());
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
}

void SocketFrameTest::connectEmitsItsSignalsInOrder_data()
{
    QTest::addColumn<QString>("host");
    QTest::newRow("name") << "localhost";
    QTest::newRow("address") << "127.0.0.1";
}

void SocketFrameTest::connectEmitsItsSignalsInOrder()
{
    QFETCH(QString, host);
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    const test::SignalLog log(&socket);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(host, server.serverPort());
    QVERIFY(socket.state() != QAbstractSocket::UnconnectedState);
    QVERIFY(connected.wait());
    const QStringList expected = {
        QStringLiteral("state HostLookup"), QStringLiteral("state Connecting"),
        QStringLiteral("verdict 2"),        QStringLiteral("state Connected"),
        QStringLiteral("state Connected"),  QStringLiteral("connected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(socket.peerPort(), server.serverPort());
    QCOMPARE(socket.peerName(), host);
    QCOMPARE(socket.peerAddress(), socket.socket()->peerAddress());
    QCOMPARE(socket.localPort(), socket.socket()->localPort());
    QVERIFY(socket.localPort() != 0);
}

void SocketFrameTest::serverEmitsItsSignalsInOrder()
{
    test::TlsServer server;
    std::unique_ptr<test::SignalLog> log;
    server.configure = [&log](SslSocket* accepted) {
        log = std::make_unique<test::SignalLog>(accepted);
    };
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    QTRY_COMPARE(log ? log->size() : 0, 4);
    const QStringList expected = {QStringLiteral("verdict 3"), QStringLiteral("state Connected"),
                                  QStringLiteral("state Connected"), QStringLiteral("connected")};
    QCOMPARE(static_cast<const QStringList&>(*log), expected);
}

// The server listens on IPv4 alone, so that IPv6 could not reach it.
void SocketFrameTest::connectIgnoresTheProtocol()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(QStringLiteral("127.0.0.1"), server.serverPort(), QIODevice::ReadWrite,
                         QAbstractSocket::IPv6Protocol);
    QVERIFY(connected.wait());
}

void SocketFrameTest::connectOpensTheDeviceInTheGivenMode()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    socket.connectToHost(LOCALHOST, server.serverPort(), QIODevice::ReadOnly);
    QCOMPARE(socket.openMode(), QIODevice::OpenMode(QIODevice::ReadOnly));
}

void SocketFrameTest::connectRunsTheSubclassSlotOfThatName()
{
    NamedSlotSocket socket(SslSocket::Client);
    static_cast<QAbstractSocket&>(socket).connectToHost(QStringLiteral("host"), 99,
                                                        QIODevice::ReadWrite);
    static_cast<QAbstractSocket&>(socket).disconnectFromHost();
    const QStringList expected = {QStringLiteral("host:99 3"), QStringLiteral("disconnect")};
    QCOMPARE(socket.calls, expected);
}

void SocketFrameTest::connectToHostAddressWorksToo()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), server.serverPort());
    QVERIFY(connected.wait());
    QCOMPARE(socket.peerName(), QStringLiteral("127.0.0.1"));
}

void SocketFrameTest::connectFromAnotherThreadRunsOnTheSocketsOwn()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    std::thread([&] { socket.connectToHost(LOCALHOST, server.serverPort()); }).join();
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(connected.wait());

    QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
    std::thread([&] { socket.disconnectFromHost(); }).join();
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
    QVERIFY(disconnected.wait());
}

void SocketFrameTest::disconnectFromHostEmitsTheStateEvenUnchanged()
{
    SslSocket socket(SslSocket::Client);
    const test::SignalLog log(&socket);
    socket.disconnectFromHost();
    QCOMPARE(static_cast<const QStringList&>(log), {QStringLiteral("state Unconnected")});
}

void SocketFrameTest::disconnectEmitsItsSignalsInOrder()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    QTRY_COMPARE(socket.socket()->bytesToWrite(), 0);
    const test::SignalLog log(&socket);
    socket.disconnectFromHost();
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    // The mirrored states and the relayed signal, then the state once more.
    const QStringList expected = {
        QStringLiteral("state Closing"), QStringLiteral("state Unconnected"),
        QStringLiteral("disconnected"), QStringLiteral("state Unconnected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QVERIFY(socket.getCipherName().isEmpty());
}

void SocketFrameTest::disconnectWithBytesPendingClosesAfterThem()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    socket.write("encrypted and handed to the inner socket");
    QCoreApplication::sendPostedEvents(&socket);
    QVERIFY(socket.socket()->bytesToWrite() > 0);
    const test::SignalLog log(&socket);
    socket.disconnectFromHost();
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    const QStringList expected = {QStringLiteral("state Closing"), QStringLiteral("state Closing"),
                                  QStringLiteral("state Unconnected"),
                                  QStringLiteral("disconnected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QTRY_COMPARE(server.lastSocket()->bytesAvailable(), 40);
    QCOMPARE(server.lastSocket()->readAll(),
             QByteArray("encrypted and handed to the inner socket"));
}

void SocketFrameTest::peerClosingIsRelayedAndResetsNothing()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    QSignalSpy readyRead(&socket, &QIODevice::readyRead);
    server.lastSocket()->write("last words");
    QVERIFY(readyRead.wait());
    const test::SignalLog log(&socket);

    QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
    server.lastSocket()->disconnectFromHost();
    QVERIFY(disconnected.wait());
    const QStringList expected = {
        QStringLiteral("error %1").arg(int(QAbstractSocket::RemoteHostClosedError)),
        QStringLiteral("state Closing"), QStringLiteral("state Unconnected"),
        QStringLiteral("disconnected")};
    QCOMPARE(static_cast<const QStringList&>(log), expected);
    QCOMPARE(socket.readAll(), QByteArray("last words"));
    QVERIFY(!socket.getCipherName().isEmpty());
}

void SocketFrameTest::closeAbortsTheInnerSocket()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
    socket.close();
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(socket.socket()->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket.isOpen());
}

void SocketFrameTest::transportErrorsAreRelayedOnce()
{
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 port = closed.serverPort();
    closed.close();

    SslSocket socket(SslSocket::Client);
    QSignalSpy occurred(&socket, &QAbstractSocket::errorOccurred);
    QSignalSpy error(&socket, SIGNAL(error(QAbstractSocket::SocketError)));
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(occurred.size(), 1);
    QCOMPARE(error.size(), 1);
    const auto code = QAbstractSocket::ConnectionRefusedError;
    QCOMPARE(occurred.first().first().value<QAbstractSocket::SocketError>(), code);
    QCOMPARE(error.first().first().value<QAbstractSocket::SocketError>(), code);
    QCOMPARE(socket.error(), code);
    QVERIFY(!socket.errorString().isEmpty());
    QCOMPARE(socket.errorString(), socket.socket()->errorString());
}

void SocketFrameTest::errorsOfAnAdoptedSocketAreRelayedOnce()
{
    PlainPair pair;
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    QSignalSpy occurred(&socket, &QAbstractSocket::errorOccurred);
    QSignalSpy error(&socket, SIGNAL(error(QAbstractSocket::SocketError)));
    QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
    pair.far->disconnectFromHost();
    QVERIFY(disconnected.wait());
    QCOMPARE(occurred.size(), 1);
    QCOMPARE(error.size(), 1);
    QCOMPARE(socket.error(), QAbstractSocket::RemoteHostClosedError);
}

void SocketFrameTest::socketCanBeUsedAgain()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    for (int round = 0; round < 3; ++round) {
        QSignalSpy connected(&socket, &QAbstractSocket::connected);
        QSignalSpy verdict(&socket, &SslSocket::connectionVerificationDone);
        socket.connectToHost(LOCALHOST, server.serverPort());
        QVERIFY(connected.wait());
        QCOMPARE(connected.size(), 1);
        QCOMPARE(verdict.size(), 1);
        QSignalSpy readyRead(&socket, &QIODevice::readyRead);
        server.lastSocket()->write(QByteArray::number(round));
        QVERIFY(readyRead.wait());
        QCOMPARE(socket.readAll(), QByteArray::number(round));
        socket.disconnectFromHost();
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    }
}

void SocketFrameTest::setSocketRefusesAnUnconnectedSocket()
{
    test::TlsServer server;
    SslSocket socket(SslSocket::Client);
    QTcpSocket* inner = socket.socket();
    QTcpSocket unconnected;
    QTest::ignoreMessage(QtWarningMsg, NOT_CONNECTED);
    socket.setSocket(&unconnected);
    QCOMPARE(socket.socket(), inner);
    // And the frame still hears its own inner socket.
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
}

void SocketFrameTest::setSocketRefusesNull()
{
    SslSocket socket(SslSocket::Client);
    QTcpSocket* inner = socket.socket();
    QTest::ignoreMessage(QtWarningMsg, NOT_CONNECTED);
    socket.setSocket(nullptr);
    QCOMPARE(socket.socket(), inner);
}

void SocketFrameTest::setSocketReplacesTheOwnInnerSocket()
{
    PlainPair pair;
    SslSocket socket(SslSocket::Client);
    const QPointer<QTcpSocket> own = socket.socket();
    const test::SignalLog log(&socket);
    socket.setSocket(pair.near);
    QVERIFY(own.isNull());
    QCOMPARE(socket.socket(), pair.near.data());
    QVERIFY(!pair.near->parent());
    QVERIFY(log.isEmpty());
}

void SocketFrameTest::setSocketDropsConnectionsOfThePreviousOwner()
{
    PlainPair pair;
    int heard = 0;
    connect(pair.near, &QIODevice::readyRead, this, [&heard] { ++heard; });
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    QSignalSpy error(&socket, &QAbstractSocket::errorOccurred);
    pair.far->write("this is no TLS at all");
    QVERIFY(error.wait());
    QCOMPARE(heard, 0);
}

void SocketFrameTest::setSocketLeavesAnEarlierAdoptedSocketAlone()
{
    PlainPair first;
    PlainPair second;
    SslSocket socket(SslSocket::Client);
    socket.setSocket(first.near);
    socket.setSocket(second.near);
    QVERIFY(first.near);
    const test::SignalLog log(&socket);
    QSignalSpy closed(first.near.data(), &QAbstractSocket::disconnected);
    first.far->write("nobody listens");
    first.far->disconnectFromHost();
    QVERIFY(closed.wait());
    QVERIFY(log.isEmpty());
}

void SocketFrameTest::setSocketTakesTheInnerSocketAgain()
{
    PlainPair pair;
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    socket.setSocket(socket.socket());
    QCOMPARE(socket.socket(), pair.near.data());
    QVERIFY(pair.near);
    QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
    pair.far->disconnectFromHost();
    QVERIFY(disconnected.wait());
    QCOMPARE(disconnected.size(), 1);
}

void SocketFrameTest::setSocketCopiesModeAndEndpoint()
{
    PlainPair pair;
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    QCOMPARE(socket.openMode(), pair.near->openMode());
    QCOMPARE(socket.peerAddress(), pair.near->peerAddress());
    QCOMPARE(socket.peerPort(), pair.server.serverPort());
    QCOMPARE(socket.peerName(), LOCALHOST);
    QCOMPARE(socket.localAddress(), pair.near->localAddress());
    QCOMPARE(socket.localPort(), pair.near->localPort());
    QVERIFY(socket.localPort() != 0);
}

void SocketFrameTest::adoptedSocketIsDeletedLaterWithTheFrame()
{
    PlainPair pair;
    auto socket = std::make_unique<SslSocket>(SslSocket::Client);
    socket->setSocket(pair.near);
    socket.reset();
    QVERIFY(pair.near);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(pair.near.isNull());
}

void SocketFrameTest::deletedAdoptedSocketLeavesAUsableFrame()
{
    test::TlsServer server;
    PlainPair pair;
    SslSocket socket(SslSocket::Client);
    socket.setSocket(pair.near);
    delete pair.near;
    QVERIFY(!socket.socket());
    socket.write("lost");
    QVERIFY(!socket.waitForReadyRead(0));
    QVERIFY(!socket.waitForBytesWritten(0));
    socket.disconnectFromHost();
    QSignalSpy connected(&socket, &QAbstractSocket::connected);
    socket.connectToHost(LOCALHOST, server.serverPort());
    QVERIFY(connected.wait());
}

void SocketFrameTest::moveToThreadTakesTheInnerSocketAlong()
{
    QThread thread;
    PlainPair pair;
    SslSocket own(SslSocket::Client);
    SslSocket adopting(SslSocket::Client);
    adopting.setSocket(pair.near);
    own.moveToThread(&thread);
    adopting.moveToThread(&thread);
    QCOMPARE(own.thread(), &thread);
    QCOMPARE(own.socket()->thread(), &thread);
    QCOMPARE(adopting.thread(), &thread);
    QCOMPARE(pair.near->thread(), &thread);
}

void SocketFrameTest::trUsesTheQualifiedContext()
{
    class Echo : public QTranslator
    {
    public:
        QString translate(const char* context, const char*, const char*, int) const override
        {
            return QString::fromLatin1(context);
        }
        bool isEmpty() const override { return false; }
    } echo;
    QCoreApplication::installTranslator(&echo);
    const QString context = SslSocket::tr("Out of memory");
    QCoreApplication::removeTranslator(&echo);
    QCOMPARE(context, QStringLiteral("vela::SslSocket"));
    QCOMPARE(SslSocket::tr("Out of memory"), QStringLiteral("Out of memory"));
}

QTEST_GUILESS_MAIN(SocketFrameTest)
#include "tst_socketframe.moc"

// SPDX-License-Identifier: BSD-3-Clause
// ferrule-server: its command line, its clients, its lines and its end.

#include "tests/common/EnginePeer.h"
#include "tests/common/OpenSslCommand.h"
#include "tests/examples/Program.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QLoggingCategory>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

using namespace test;

namespace {

constexpr int MEBIBYTE = 1024 * 1024;

QByteArray digest(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

/*! A plain TCP connection to the server. */
std::unique_ptr<QTcpSocket> connectPlain(quint16 port)
{
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    socket->waitForConnected();
    return socket;
}

} // namespace

class tst_FerruleServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpNamesEveryOptionAndStatus();
    void wrongCommandLine_data();
    void wrongCommandLine();
    void unusableSetting_data();
    void unusableSetting();
    void portInUse();
    void portZeroPrintsThePort();
    void echoesToTheCommonClient();
    void echoReachesAClientThatHasSaidGoodbye();
    void sendsTheFile_data();
    void sendsTheFile();
    void fileReachesAClientThatKeepsSending();
    void manyClientsAtOnce();
    void lineForEachConnection();
    void badClientsGetALineAndTheServerGoesOn_data();
    void badClientsGetALineAndTheServerGoesOn();
    void silentClientIsDropped();
    void clientThatTakesNothingIsDropped();
    void cipherListIsObeyed();
    void endsOnSignal_data();
    void endsOnSignal();

private:
    Authority m_authority;
    PemDirectory m_directory;
    QString m_certificate;
    QString m_key;
};

void tst_FerruleServer::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    const Identity identity = m_authority.issue();
    m_certificate = m_directory.writeCertificate(QStringLiteral("server.pem"), identity);
    m_key = m_directory.writeKey(QStringLiteral("server.key"), identity);
}

void tst_FerruleServer::helpNamesEveryOptionAndStatus()
{
    Program server(QStringLiteral(SERVER_PROGRAM), {QStringLiteral("--help")});
    server.start();
    QCOMPARE(server.finish(), 0);
    for (const QString& option : words("--cert --key --host --port --ciphers --file --timeout "
                                       "--max-backlog --verbose --help --version"))
        QVERIFY2(server.output().contains(option.toLatin1()), qPrintable(option));
    for (int status = 0; status <= 3; ++status)
        QVERIFY(server.output().contains("\n  " + QByteArray::number(status) + "  "));

    Program version(QStringLiteral(SERVER_PROGRAM), {QStringLiteral("--version")});
    version.start();
    QCOMPARE(version.finish(), 0);
    QVERIFY(version.output().startsWith("ferrule-server ") && isOneLine(version.output()));
}

void tst_FerruleServer::wrongCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList();
    QTest::newRow("no key") << words("--cert x.pem");
    QTest::newRow("no certificate") << words("--key x.pem");
    QTest::newRow("argument") << words("--cert x --key y here");
    QTest::newRow("unknown option") << words("--cert x --key y --frobnicate");
    QTest::newRow("host name") << words("--cert x --key y --host example");
    QTest::newRow("port word") << words("--cert x --key y --port https");
    QTest::newRow("port too large") << words("--cert x --key y --port 65536");
    QTest::newRow("timeout word") << words("--cert x --key y --timeout soon");
    QTest::newRow("backlog 0") << words("--cert x --key y --max-backlog 0");
    QTest::newRow("empty ciphers") << words("--cert x --key y --ciphers=");
}

void tst_FerruleServer::wrongCommandLine()
{
    QFETCH(QStringList, arguments);
    Program server(QStringLiteral(SERVER_PROGRAM), arguments);
    server.start();
    QCOMPARE(server.finish(), 1);
    QVERIFY2(isOneLine(server.errors()), server.errors().constData());
    QCOMPARE(server.output(), QByteArray());
}

void tst_FerruleServer::unusableSetting_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("text");
    const QString garbage = m_directory.write(QStringLiteral("garbage"), "not a PEM file\n");
    const QString missing = m_directory.path() + QStringLiteral("/missing");
    const auto identity = [](const QString& certificate, const QString& key) {
        return QStringList{QStringLiteral("--cert"), certificate, QStringLiteral("--key"), key};
    };
    const QStringList good = identity(m_certificate, m_key);
    QTest::newRow("missing certificate")
        << identity(missing, m_key) << QByteArray("Error loading certificate, error:");
    QTest::newRow("garbage key") << identity(m_certificate, garbage)
                                 << QByteArray("Error loading private key, error:");
    QTest::newRow("nonsense ciphers") << good + words("--ciphers no-such-cipher")
                                      << QByteArray("Invalid or empty cipher list, error:");
    QTest::newRow("missing file") << good + QStringList{QStringLiteral("--file"), missing}
                                  << QByteArray("No such file");
    QTest::newRow("directory for a file")
        << good + QStringList{QStringLiteral("--file"), m_directory.path()}
        << QByteArray("irectory");
}

void tst_FerruleServer::unusableSetting()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, text);
    Program server(QStringLiteral(SERVER_PROGRAM), options + words("--port 0"));
    server.start();
    QCOMPARE(server.finish(), 2);
    QVERIFY2(server.errors().contains(text), server.errors().constData());
    QVERIFY2(isOneLine(server.errors()), server.errors().constData());
    QCOMPARE(server.output(), QByteArray());
}

void tst_FerruleServer::portInUse()
{
    QTcpServer occupant;
    QVERIFY(occupant.listen(QHostAddress::LocalHost));
    Program server(QStringLiteral(SERVER_PROGRAM),
                   {QStringLiteral("--cert"), m_certificate, QStringLiteral("--key"), m_key,
                    QStringLiteral("--port"), QString::number(occupant.serverPort())});
    server.start();
    QCOMPARE(server.finish(), 3);
    QVERIFY2(isOneLine(server.errors()), server.errors().constData());
}

void tst_FerruleServer::portZeroPrintsThePort()
{
    ServerProgram server(m_authority);
    QVERIFY(server.port() > 0);
    QCOMPARE(server.output(), "listening on 127.0.0.1:" + QByteArray::number(server.port()) + '\n');
    QCOMPARE(connectPlain(server.port())->state(), QAbstractSocket::ConnectedState);
}

void tst_FerruleServer::echoesToTheCommonClient()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    const QByteArray data = randomBytes(8 * MEBIBYTE, 6);
    ServerProgram server(m_authority);
    Program client(openSslCommand(), words("s_client -quiet -connect")
                                         << QStringLiteral("127.0.0.1:%1").arg(server.port()));
    client.start();
    client.write(data);
    QVERIFY(client.waitForSize(data.size()));
    client.kill();
    QCOMPARE(digest(client.output()), digest(data));
    QVERIFY(server.waitForOutput(" in 8388608 out 8388608: "));
}

void tst_FerruleServer::echoReachesAClientThatHasSaidGoodbye()
{
    ServerProgram server(m_authority);
    EnginePeer client(EnginePeer::Client, connectPlain(server.port()).release());
    client.process();
    QTRY_VERIFY(client.isHandshakeDone());
    client.hold(true);
    client.write("last words");
    client.sendCloseNotify();
    client.transport()->write(client.takePending());
    QTRY_COMPARE(client.received(), QByteArray("last words"));
    QVERIFY(server.waitForOutput(" in 10 out 10: closed by the client\n"));
}

void tst_FerruleServer::sendsTheFile_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("empty") << 0;
    QTest::newRow("one byte") << 1;
    QTest::newRow("one piece") << 64 * 1024;
    QTest::newRow("large") << 8 * MEBIBYTE + 3;
}

void tst_FerruleServer::sendsTheFile()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    QFETCH(int, size);
    const QByteArray data = randomBytes(size, 7);
    ServerProgram server(
        m_authority, {QStringLiteral("--file"), m_directory.write(QStringLiteral("file"), data)});
    ClientProgram first(server.port(), words("--quiet"));
    Program second(openSslCommand(), words("s_client -quiet -connect")
                                         << QStringLiteral("127.0.0.1:%1").arg(server.port()));
    first.start();
    second.start();
    QCOMPARE(first.finish(), 0);
    QVERIFY(second.finish() >= 0);
    QCOMPARE(digest(first.output()), digest(data));
    QCOMPARE(digest(second.output()), digest(data));
    QCOMPARE(server.stop(), 0);
    const QByteArray line = " in 0 out " + QByteArray::number(size) + ": closed by the client\n";
    QVERIFY2(server.output().count(line) == 2, server.output().constData());
}

void tst_FerruleServer::fileReachesAClientThatKeepsSending()
{
    const QByteArray data = randomBytes(8 * MEBIBYTE, 8);
    ServerProgram server(
        m_authority, {QStringLiteral("--file"), m_directory.write(QStringLiteral("file"), data)});
    ClientProgram client(server.port(), words("--quiet"));
    client.setStandardInputFile(QStringLiteral("/dev/zero"));
    client.start();
    const int status = client.finish();
    QVERIFY2(status == 0 || status == 8, client.errors().constData());
    QCOMPARE(digest(client.output()), digest(data));
}

void tst_FerruleServer::manyClientsAtOnce()
{
    constexpr int CLIENTS = 50;
    ServerProgram server(m_authority);
    std::vector<std::unique_ptr<vela::SslSocket>> clients;
    std::vector<QByteArray> received(CLIENTS);
    int established = 0;
    for (int i = 0; i < CLIENTS; ++i) {
        clients.push_back(std::make_unique<vela::SslSocket>(vela::SslSocket::Client));
        vela::SslSocket* client = clients.back().get();
        connect(client, &QAbstractSocket::connected, this, [&] { ++established; });
        connect(client, &QIODevice::readyRead, this,
                [&received, i, client] { received[i] += client->readAll(); });
        client->connectToHost(QStringLiteral("127.0.0.1"), server.port());
    }
    QTRY_COMPARE_WITH_TIMEOUT(established, CLIENTS, 60000);
    for (int i = 0; i < CLIENTS; ++i)
        clients[i]->write(randomBytes(64 * 1024, 100 + i));
    const auto isComplete = [](const QByteArray& data) { return data.size() >= 64 * 1024; };
    QTRY_VERIFY_WITH_TIMEOUT(std::all_of(received.begin(), received.end(), isComplete), 60000);
    for (int i = 0; i < CLIENTS; ++i)
        QVERIFY(received[i] == randomBytes(64 * 1024, 100 + i));
    for (const auto& client : clients)
        client->disconnectFromHost();
    QTRY_COMPARE_WITH_TIMEOUT(server.output().count(" in 65536 out 65536: closed by the client\n"),
                              CLIENTS, 60000);
}

void tst_FerruleServer::lineForEachConnection()
{
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--repeat 2 --close-after-input 0.2"));
    client.start();
    client.write("12345");
    QCOMPARE(client.finishInput(), 0);
    QCOMPARE(server.stop(), 0);
    const QList<QByteArray> lines = server.output().trimmed().split('\n');
    QCOMPARE(lines.size(), 3);
    const QString pattern =
        QStringLiteral("^127\\.0\\.0\\.1:\\d+ [A-Z0-9_-]+ %1: closed by the client$");
    QVERIFY2(QRegularExpression(pattern.arg(QStringLiteral("new in 0 out 0")))
                 .match(QString::fromLatin1(lines[1]))
                 .hasMatch(),
             lines[1].constData());
    QVERIFY2(QRegularExpression(pattern.arg(QStringLiteral("reused in 5 out 5")))
                 .match(QString::fromLatin1(lines[2]))
                 .hasMatch(),
             lines[2].constData());
}

void tst_FerruleServer::badClientsGetALineAndTheServerGoesOn_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("plain HTTP") << QByteArray("GET / HTTP/1.0\r\n\r\n")
                                << QByteArray("in 0 out 0: SSL error: error:");
    QTest::newRow("garbage") << randomBytes(5000, 9) << QByteArray("in 0 out 0: SSL error: error:");
    QTest::newRow("nothing") << QByteArray()
                             << QByteArray("in 0 out 0: closed by the client in the handshake");
    QTest::newRow("half a hello") << QByteArray(
        "\x16\x03\x01\x02") << QByteArray("in 0 out 0: closed by the client in the handshake");
}

void tst_FerruleServer::badClientsGetALineAndTheServerGoesOn()
{
    QFETCH(QByteArray, octets);
    QFETCH(QByteArray, text);
    ServerProgram server(m_authority);
    const auto bad = connectPlain(server.port());
    bad->write(octets);
    bad->flush();
    bad->disconnectFromHost();
    QVERIFY2(server.waitForOutput(text), server.output().constData());

    ClientProgram good(server.port(), words("--quiet --close-after-input 0"));
    good.start();
    QCOMPARE(good.finishInput(), 0);
    QVERIFY(server.waitForOutput("closed by the client\n"));
    QCOMPARE(server.errors(), QByteArray());
}

void tst_FerruleServer::silentClientIsDropped()
{
    ServerProgram server(m_authority, words("--timeout 0.2"));
    const auto silent = connectPlain(server.port());
    QVERIFY(server.waitForOutput("in 0 out 0: no handshake in time\n"));
    QTRY_COMPARE(silent->state(), QAbstractSocket::UnconnectedState);
}

void tst_FerruleServer::clientThatTakesNothingIsDropped()
{
    ServerProgram server(m_authority, words("--max-backlog 1"));
    auto transport = connectPlain(server.port());
    transport->setReadBufferSize(1024);
    EnginePeer client(EnginePeer::Client, transport.release());
    client.process();
    QTRY_VERIFY(client.isHandshakeDone());
    client.disconnect();
    QObject::disconnect(client.transport(), &QIODevice::readyRead, nullptr, nullptr);
    const QByteArray piece(MEBIBYTE, 'x');
    for (int i = 0; i < 64 && !server.output().contains("does not take"); ++i) {
        client.write(piece);
        QTRY_VERIFY(client.transport()->bytesToWrite() == 0
                    || client.transport()->state() != QAbstractSocket::ConnectedState
                    || server.output().contains("does not take"));
    }
    QVERIFY2(server.waitForOutput(": the client does not take its echo\n"),
             server.output().constData());
}

void tst_FerruleServer::cipherListIsObeyed()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
    ServerProgram server(m_authority, words("--ciphers ECDHE-ECDSA-AES128-GCM-SHA256"));
    Program client(openSslCommand(), words("s_client -tls1_2 -connect")
                                         << QStringLiteral("127.0.0.1:%1").arg(server.port()));
    client.start();
    QCOMPARE(client.finishInput(), 0);
    QVERIFY(server.waitForOutput(" ECDHE-ECDSA-AES128-GCM-SHA256 new "));
}

void tst_FerruleServer::endsOnSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("connected");
    QTest::newRow("SIGTERM, no client") << SIGTERM << false;
    QTest::newRow("SIGTERM, a client") << SIGTERM << true;
    QTest::newRow("SIGINT, no client") << SIGINT << false;
    QTest::newRow("SIGINT, a client") << SIGINT << true;
}

void tst_FerruleServer::endsOnSignal()
{
    QFETCH(int, signal);
    QFETCH(bool, connected);
    ServerProgram server(m_authority);
    ClientProgram client(server.port(), words("--quiet"));
    if (connected) {
        client.start();
        client.write("hello\n");
        QVERIFY(client.waitForOutput("hello\n"));
    }
    QCOMPARE(::kill(static_cast<pid_t>(server.processId()), signal), 0);
    QCOMPARE(server.finish(), 0);
    QCOMPARE(server.errors(), QByteArray());
    QCOMPARE(server.output().count("in 6 out 6: the server was stopped\n"), connected ? 1 : 0);
    if (connected)
        QCOMPARE(client.finish(), 0);
}

QTEST_GUILESS_MAIN(tst_FerruleServer)

#include "tst_ferruleserver.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    What leaves when a host writes 10,000 times 32 bytes in one pass of its event loop: TLS records
    and bytes on the wire, as the peer receives them, and system calls that write to the connection.

    The peer is OpenSSL alone on a plain socket. The calls are counted by functions of this program
    that stand before those of the C library; only those on the connection's own descriptor count.
*/

#include "common/Events.h"
#include "common/Identity.h"
#include "common/MemoryPeer.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"
#include "smallwrites/WriteCalls.h"

#include <Ferrule/SslSocket.h>

#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslSocket>
#include <QtNetwork/QTcpServer>

namespace {

constexpr int WRITES = 10000;
constexpr int LENGTH = 32;
constexpr int HEADER = 5; // Of a TLS record: its type, its version, and in the last two its length.

//! Counts records in the octets that come in.
class RecordCounter
{
public:
    void take(const QByteArray& octets)
    {
        m_bytes += octets.size();
        m_rest += octets;
        int place = 0;
        while (m_rest.size() - place >= HEADER) {
            const int length = static_cast<uchar>(m_rest.at(place + 3)) * 256
                               + static_cast<uchar>(m_rest.at(place + 4));
            if (m_rest.size() - place < HEADER + length)
                break;
            place += HEADER + length;
            ++m_records;
        }
        m_rest.remove(0, place);
    }

    int records() const { return m_records; }
    qint64 bytes() const { return m_bytes; }

private:
    QByteArray m_rest;
    int m_records = 0;
    qint64 m_bytes = 0;
};

//! A client of either kind; both are driven as a QTcpSocket, only the set-up differs.
struct Client
{
    explicit Client(const QString& subject)
        : isFerrule(subject == QLatin1String("Ferrule"))
    {
        if (isFerrule)
            socket.reset(new vela::SslSocket(vela::SslSocket::Client));
        else
            socket.reset(new QSslSocket);
    }

    void connectToHost(quint16 port, const QString& protocol)
    {
        auto* ssl = qobject_cast<QSslSocket*>(socket.data());
        if (isFerrule) {
            socket->connectToHost(QStringLiteral("localhost"), port);
            return;
        }
        ssl->setPeerVerifyMode(QSslSocket::VerifyNone);
        ssl->setProtocol(protocol == QLatin1String("TLS 1.3") ? QSsl::TlsV1_3 : QSsl::TlsV1_2);
        ssl->connectToHostEncrypted(QStringLiteral("localhost"), port);
    }

    bool isReady() const
    {
        const auto* ssl = qobject_cast<const QSslSocket*>(socket.data());
        return ssl ? ssl->isEncrypted() : socket->state() == QAbstractSocket::ConnectedState;
    }

    qintptr descriptor() const
    {
        const auto* own = qobject_cast<const vela::SslSocket*>(socket.data());
        return own ? own->socket()->socketDescriptor() : socket->socketDescriptor();
    }

    bool isFerrule;
    QScopedPointer<QTcpSocket> socket;
};

struct Sample
{
    int records;
    qint64 bytes;
    int calls;
};

Sample measure(const QString& subject, const bench::Identity& identity, const QString& protocol,
               int writes)
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        bench::fail(QStringLiteral("cannot listen on loopback"));
    Client client(subject);
    client.connectToHost(server.serverPort(), protocol);
    bench::processEventsUntil([&] { return server.hasPendingConnections(); });
    QTcpSocket* transport = server.nextPendingConnection();
    bench::MemoryPeer peer(identity, protocol);
    RecordCounter counter;
    qint64 received = 0;
    const auto take = [&] {
        const QByteArray octets = transport->readAll();
        if (!peer.isReady()) {
            transport->write(peer.handshake(octets));
            return;
        }
        counter.take(octets);
        received += peer.decrypt(octets);
    };
    QObject::connect(transport, &QIODevice::readyRead, transport, take);
    take(); // The hello may be here already.
    bench::processEventsUntil([&] { return peer.isReady() && client.isReady(); });
    peer.check();

    bench::countWriteCalls(static_cast<int>(client.descriptor()));
    const QByteArray data(LENGTH, 'x');
    for (int i = 0; i < writes; ++i)
        client.socket->write(data);
    const qint64 wanted = static_cast<qint64>(writes) * LENGTH;
    bench::processEventsUntil([&] { return received >= wanted; });
    const int calls = bench::countedWriteCalls();
    if (received != wanted || calls < 1 || counter.records() < 1)
        bench::fail(QStringLiteral("what was counted cannot be true"));
    return {counter.records(), counter.bytes(), calls};
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const bench::Options options =
        bench::parseOptions(QStringLiteral("Counts what many small writes send."));
    const bench::Identity identity;
    bench::Results results(QStringLiteral("smallwrites"));
    const int writes = bench::scaled(options, WRITES);

    QList<std::function<void(bool)>> tasks;
    for (const QString& protocol : bench::protocols()) {
        for (const char* name : {"Ferrule", "QSslSocket"}) {
            const QString subject = QString::fromLatin1(name);
            tasks.append([&, subject, protocol](bool counts) {
                const Sample sample = measure(subject, identity, protocol, writes);
                const QString what = QStringLiteral("%1 of %2 writes of 32 bytes");
                const auto add = [&](const char* of, double value, const char* unit) {
                    results.add({what.arg(QString::fromLatin1(of)).arg(writes), QString(), protocol,
                                 subject},
                                value, QString::fromLatin1(unit), bench::Better::Less);
                };
                if (!counts)
                    return;
                add("TLS records", sample.records, "records");
                add("bytes on the wire", static_cast<double>(sample.bytes), "bytes");
                add("system calls", sample.calls, "calls");
            });
        }
    }
    bench::runRounds(options.rounds, tasks);
    return results.finish(options);
}

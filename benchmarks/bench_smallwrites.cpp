// SPDX-License-Identifier: BSD-3-Clause

/*
    What leaves when a host writes 10,000 times 32 bytes in one pass of its event loop: TLS records
    and bytes on the wire, as the peer receives them, and system calls that write to the connection.

    The peer is OpenSSL alone on a plain socket. The calls are counted by functions of this program
    that stand before those of the C library; only those on the connection's own descriptor count.
*/

#include "common/Endpoint.h"
#include "common/Events.h"
#include "common/Identity.h"
#include "common/MemoryPeer.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"
#include "smallwrites/WriteCalls.h"

#include <Ferrule/SslSocket.h>

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

struct Sample
{
    int records;
    qint64 bytes;
    int calls;
};

//! The descriptor that what \a client sends goes to.
int descriptor(const QTcpSocket& client)
{
    const auto* ferrule = qobject_cast<const vela::SslSocket*>(&client);
    return static_cast<int>((ferrule ? ferrule->socket() : &client)->socketDescriptor());
}

Sample measure(const bench::Setup& setup, int writes)
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        bench::fail(QStringLiteral("cannot listen on loopback"));
    const auto client = bench::EndpointFactory(setup).connectClient(QStringLiteral("127.0.0.1"),
                                                                    server.serverPort());
    bool isReady = false;
    bench::whenReady(client.get(), setup, [&] { isReady = true; });
    bench::processEventsUntil([&] { return server.hasPendingConnections(); });
    QTcpSocket* transport = server.nextPendingConnection();
    bench::MemoryPeer peer(setup);
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
    bench::processEventsUntil([&] { return peer.isReady() && isReady; });
    peer.check();

    bench::countWriteCalls(descriptor(*client));
    const QByteArray data(LENGTH, 'x');
    for (int i = 0; i < writes; ++i)
        client->write(data);
    const qint64 wanted = static_cast<qint64>(writes) * LENGTH;
    bench::processEventsUntil([&] { return received >= wanted; });
    const int calls = bench::countedWriteCalls();
    if (received != wanted || calls < 1 || counter.records() < 1)
        bench::fail(QStringLiteral("what was counted cannot be true"));
    return {counter.records(), counter.bytes(), calls};
}

void add(bench::Results& results, const bench::Setup& setup, const Sample& sample, int writes)
{
    const auto addOne = [&](const QString& what, double value, const QString& unit) {
        results.add({QStringLiteral("%1 of %2 writes of 32 bytes").arg(what).arg(writes), QString(),
                     bench::nameOf(setup.protocol), bench::nameOf(setup.subject)},
                    value, unit, bench::Better::Less);
    };
    addOne(QStringLiteral("TLS records"), sample.records, QStringLiteral("records"));
    addOne(QStringLiteral("bytes on the wire"), static_cast<double>(sample.bytes),
           QStringLiteral("bytes"));
    addOne(QStringLiteral("system calls"), sample.calls, QStringLiteral("calls"));
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    bench::prepareProcess();
    const bench::Options options =
        bench::parseOptions(QStringLiteral("Counts what many small writes send."));
    const bench::Identity identity;
    bench::Results results(QStringLiteral("smallwrites"));
    const int writes = bench::scaled(options, WRITES);

    QList<std::function<void(bool)>> tasks;
    for (bench::Protocol protocol : bench::protocols()) {
        for (bench::Subject subject : {bench::Subject::Ferrule, bench::Subject::QSslSocket}) {
            const bench::Setup setup{subject, protocol, identity.certificateFile(),
                                     identity.keyFile()};
            tasks.append([&results, setup, writes](bool counts) {
                const Sample sample = measure(setup, writes);
                if (counts)
                    add(results, setup, sample, writes);
            });
        }
    }
    bench::runRounds(options.rounds, tasks);
    return results.finish(options);
}

// SPDX-License-Identifier: BSD-3-Clause

/*
    What it costs to decrypt data that has piled up, by the size of the pile. The cost for each MiB
    should not depend on the size: told is its ratio to that of the smallest pile.

    The peer is OpenSSL alone. Everything arrives in the inner socket before the first byte is
    decrypted; only the decryption is timed, with a host that reads each piece in readyRead().
*/

#include "common/Endpoint.h"
#include "common/Events.h"
#include "common/Identity.h"
#include "common/MemoryPeer.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"

#include <Ferrule/SslSocket.h>

#include <QtNetwork/QTcpServer>

#include <algorithm>
#include <ctime>

namespace {

constexpr int MIB = 1024 * 1024;
constexpr int REPETITIONS = 8; // A single MiB is over before the clock has ticked often.
constexpr int QUEUED = 8 * MIB;
constexpr double LIMIT = 1.2;

//! Returns the seconds of processor time that decrypting a backlog of \a size MiB takes.
double decryptBacklog(int size, const bench::Setup& setup)
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        bench::fail(QStringLiteral("cannot listen on loopback"));
    const auto end = bench::EndpointFactory(setup).connectClient(QStringLiteral("127.0.0.1"),
                                                                 server.serverPort());
    auto& client = static_cast<vela::SslSocket&>(*end);
    bench::processEventsUntil([&] { return server.hasPendingConnections(); });
    QTcpSocket* transport = server.nextPendingConnection();
    bench::MemoryPeer peer(setup);
    const auto answer = [&] { transport->write(peer.handshake(transport->readAll())); };
    QObject::connect(transport, &QIODevice::readyRead, transport, answer);
    answer(); // The hello may be here already.
    bench::processEventsUntil(
        [&] { return peer.isReady() && client.state() == QAbstractSocket::ConnectedState; });
    peer.check();

    qint64 pending = client.socket()->bytesAvailable();
    client.socket()->blockSignals(true);
    const QByteArray data(MIB, 'x');
    for (int i = 0; i < size; ++i) {
        const QByteArray wire = peer.encrypt(data);
        pending += wire.size();
        transport->write(wire);
        bench::processEventsUntil([&] { return transport->bytesToWrite() < QUEUED; });
    }
    bench::processEventsUntil([&] { return client.socket()->bytesAvailable() >= pending; });
    client.socket()->blockSignals(false);

    qint64 read = 0;
    QObject::connect(&client, &QIODevice::readyRead, &client, [&] {
        char piece[4096];
        read += client.read(piece, sizeof piece);
    });
    // Processor time: a long round would be interrupted more often than a short one.
    const std::clock_t start = std::clock();
    QMetaObject::invokeMethod(&client, "readFromSocket");
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    if (read != static_cast<qint64>(size) * MIB)
        bench::fail(QStringLiteral("not everything was decrypted"));
    return seconds;
}

bench::Key key(int size, bench::Protocol protocol)
{
    return {QStringLiteral("a backlog of %1 MiB").arg(size), QString(), bench::nameOf(protocol),
            QStringLiteral("Ferrule")};
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    bench::prepareProcess();
    const bench::Options options = bench::parseOptions(
        QStringLiteral("Measures what decrypting costs by how much has piled up."));
    const bench::Identity identity;
    bench::Results results(QStringLiteral("backlog"));
    QList<int> sizes;
    for (int size : {1, 16, 64, 256})
        sizes.append(size == 1 ? 1 : std::max(2, bench::scaled(options, size)));

    QList<std::function<void(bool)>> tasks;
    for (bench::Protocol protocol : bench::protocols()) {
        const bench::Setup setup{bench::Subject::Ferrule, protocol, identity.certificateFile(),
                                 identity.keyFile()};
        for (int size : qAsConst(sizes)) {
            tasks.append([&results, size, setup](bool counts) {
                const int repetitions = size == 1 ? REPETITIONS : 1;
                double seconds = 0;
                for (int i = 0; i < repetitions; ++i)
                    seconds += decryptBacklog(size, setup);
                if (counts)
                    results.add(key(size, setup.protocol), seconds * 1000 / (size * repetitions),
                                QStringLiteral("ms/MiB"), bench::Better::Less);
            });
        }
        for (int size : sizes.mid(1, sizes.size() - 2))
            results.compare(key(size, protocol), key(1, protocol));
        results.expect(key(sizes.last(), protocol), key(1, protocol), LIMIT);
    }
    bench::runRounds(options.rounds, tasks);
    return results.finish(options);
}

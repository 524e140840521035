// SPDX-License-Identifier: BSD-3-Clause

/*
    How much a thousand connections in one event loop receive together, next to what one connection
    does in the same loop: for Ferrule, and for the sockets of Qt for comparison. The amount is the
    same, divided among the connections.

    The clients are in the main thread, the servers' ends in another. Before the clock runs all
    handshakes are over, and every connection has carried the same amount once, so that buffers are
    allocated and the windows of TCP are open. A server's end is written to in pieces of 16 KiB, as
   long as not more than 64 KiB are on their way to the operating system.
*/

#include "common/Connections.h"
#include "common/Events.h"
#include "common/Identity.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <algorithm>
#include <atomic>

namespace {

constexpr int KIB = 1024;
constexpr int PIECE = 16 * KIB;
constexpr qint64 QUEUED = 64 * KIB;
constexpr int CONNECTIONS = 1000;
constexpr int PIECES = 16 * CONNECTIONS; // A quarter of a GiB.
constexpr double LIMIT = 0.8;

//! Sends \a pieces to a client as soon as it asks.
void serve(QTcpSocket* end, int pieces)
{
    const auto rest = std::make_shared<int>(0);
    const auto refill = [end, rest] {
        static const QByteArray piece(PIECE, 'x');
        while (*rest > 0 && bench::outstanding(end) < QUEUED) {
            --*rest; // First: writing may come back here.
            end->write(piece);
        }
    };
    bench::whenSent(end, refill);
    const auto begin = [end, rest, refill, pieces] {
        if (end->readAll().isEmpty())
            return;
        *rest = pieces;
        refill();
    };
    QObject::connect(end, &QIODevice::readyRead, end, begin);
    begin(); // The demand may be here already.
}

//! A server in a thread of its own.
class ServerThread
{
public:
    ServerThread(const bench::Setup& setup, int pieces)
    {
        m_context.moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(
            &m_context,
            [&] {
                m_server =
                    std::make_unique<bench::EndServer>(setup, [this, pieces](QTcpSocket* end) {
                        serve(end, pieces);
                        ++m_ready;
                    });
            },
            Qt::BlockingQueuedConnection);
    }

    ~ServerThread()
    {
        QMetaObject::invokeMethod(
            &m_context, [&] { m_server.reset(); }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

    quint16 port() const { return m_server->serverPort(); }
    std::size_t ready() const { return m_ready; }

private:
    Q_DISABLE_COPY(ServerThread)
    QThread m_thread;
    QObject m_context;
    std::unique_ptr<bench::EndServer> m_server;
    std::atomic<std::size_t> m_ready{0};
};

//! Connects \a count clients, at no time many more than the server has seen.
bench::Clients connectTo(const ServerThread& server, const bench::Setup& setup, int count)
{
    constexpr int AT_ONCE = 45;
    bench::EndpointFactory factory(setup);
    bench::Clients clients;
    while (static_cast<int>(clients.size()) < count) {
        const int missing = count - static_cast<int>(clients.size());
        bench::connectClients(clients, factory, std::min(missing, AT_ONCE), server.port(),
                              bench::Handshakes::Resumed);
        bench::processEventsUntil([&] { return server.ready() == clients.size(); }, 1);
    }
    return clients;
}

//! Returns the bytes a second that \a count connections receive together.
double measure(const bench::Setup& setup, int count, int pieces)
{
    const int piecesOfEach = pieces / count;
    const ServerThread server(setup, piecesOfEach);
    const bench::Clients clients = connectTo(server, setup, count);
    const qint64 wanted = static_cast<qint64>(piecesOfEach) * count * PIECE;
    qint64 received = 0;
    for (const auto& client : clients) {
        QTcpSocket* socket = client.get();
        QObject::connect(socket, &QIODevice::readyRead, socket,
                         [&received, socket] { received += socket->readAll().size(); });
    }
    double seconds = 0;
    for (int pass = 0; pass < 2; ++pass) {
        received = 0;
        QElapsedTimer timer;
        timer.start();
        for (const auto& client : clients)
            client->write("x", 1);
        bench::processEventsUntil([&] { return received >= wanted; });
        seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9; // Of the last pass.
        if (received != wanted)
            bench::fail(QStringLiteral("more was received than was sent"));
    }
    return static_cast<double>(wanted) / seconds;
}

bench::Key key(const bench::Setup& setup, int count)
{
    return {count == 1 ? QStringLiteral("1 connection")
                       : QStringLiteral("%1 connections").arg(count),
            bench::nameOf(bench::Arrangement::Threads),
            setup.subject == bench::Subject::QTcpSocket ? QString() : bench::nameOf(setup.protocol),
            bench::nameOf(setup.subject)};
}

} // namespace

int main(int argc, char** argv)
{
    bench::holdToProtocol(bench::Protocol::Tls12, argv);
    const QCoreApplication application(argc, argv);
    bench::prepareProcess();
    bench::raiseFileLimit();
    const bench::Options options = bench::parseOptions(
        QStringLiteral("Measures what many busy connections cost, next to one."),
        bench::OneSubject::Possible);
    const bench::Identity identity;
    bench::Results results(QStringLiteral("busy"));
    // Fewer connections would be another load, so these remain with less to do.
    const int pieces = std::max(1, bench::scaled(options, PIECES / CONNECTIONS)) * CONNECTIONS;

    QList<std::function<void(bool)>> tasks;
    for (bench::Subject subject :
         {bench::Subject::Ferrule, bench::Subject::QSslSocket, bench::Subject::QTcpSocket}) {
        if (!options.measures(bench::nameOf(subject)))
            continue;
        const bench::Setup setup{subject, bench::Protocol::Tls12, identity.certificateFile(),
                                 identity.keyFile()};
        for (int count : {1, CONNECTIONS}) {
            tasks.append([&results, setup, count, pieces](bool counts) {
                const double speed = measure(setup, count, pieces);
                if (counts)
                    results.add(key(setup, count), speed / (KIB * KIB), QStringLiteral("MiB/s"),
                                bench::Better::More);
            });
        }
        if (subject == bench::Subject::Ferrule)
            results.expect(key(setup, CONNECTIONS), key(setup, 1), LIMIT);
        else
            results.compare(key(setup, CONNECTIONS), key(setup, 1));
    }
    if (tasks.isEmpty())
        bench::fail(QStringLiteral("\"%1\" is no subject of this load").arg(options.only));
    bench::runRounds(options.rounds, tasks);
    return results.finish(options);
}

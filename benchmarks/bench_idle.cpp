// SPDX-License-Identifier: BSD-3-Clause

/*
    How much memory a connection takes that is idle, one of a thousand: that is how much a process
    grows with them, divided by their number. Each connection has had a full handshake and has
    carried 64 bytes to the server and back.

    Server and client are processes of their own, new ones for each sample: memory that was freed
    would be used again. A first connection that does not count pays for what there is once. Told
    is what the kernel says is resident, and what the allocator has given out.
*/

#include "common/Connections.h"
#include "common/Events.h"
#include "common/Identity.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"
#include "idle/Children.h"

#include <algorithm>

namespace {

constexpr int CONNECTIONS = 1000;
constexpr double LIMIT = 0.7;

struct Place
{
    const char* where;
    bool isServer;
    bool isResident;
};

const Place PLACES[] = {
    {"resident memory, client", false, true},
    {"resident memory, server", true, true},
    {"heap, client", false, false},
    {"heap, server", true, false},
};

bench::Key key(const Place& place, const bench::Setup& setup)
{
    return {QString::fromLatin1(place.where), bench::nameOf(bench::Arrangement::Processes),
            bench::nameOf(setup.protocol), bench::nameOf(setup.subject)};
}

void add(bench::Results& results, const bench::Setup& setup, const bench::Growth& client,
         const bench::Growth& server, int connections)
{
    for (const Place& place : PLACES) {
        const bench::Growth& growth = place.isServer ? server : client;
        const qint64 bytes = place.isResident ? growth.resident : growth.heap;
        results.add(key(place, setup), static_cast<double>(bytes) / 1024 / connections,
                    QStringLiteral("KiB"), bench::Better::Less);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    bench::prepareProcess();
    bench::raiseFileLimit();
    if (bench::isChild())
        return bench::runChild();
    const bench::Options options =
        bench::parseOptions(QStringLiteral("Measures the memory of idle connections."));
    const bench::Identity identity;
    bench::Results results(QStringLiteral("idle"));
    const int connections = std::max(50, bench::scaled(options, CONNECTIONS));

    QList<std::function<void(bool)>> tasks;
    for (bench::Protocol protocol : bench::protocols()) {
        bench::Setup setup{bench::Subject::Ferrule, protocol, identity.certificateFile(),
                           identity.keyFile()};
        for (bench::Subject subject : {bench::Subject::Ferrule, bench::Subject::QSslSocket}) {
            setup.subject = subject;
            tasks.append([&results, setup, connections](bool counts) {
                bench::Growth client;
                bench::Growth server;
                // Nothing remains of a sample that would speed up the next one.
                if (!counts)
                    return;
                bench::measureChildren(setup, connections, client, server);
                add(results, setup, client, server, connections);
            });
        }
        for (const Place& place : PLACES) {
            if (place.isResident)
                results.expect(key(place, setup.as(bench::Subject::Ferrule)),
                               key(place, setup.as(bench::Subject::QSslSocket)), LIMIT);
        }
    }
    bench::runRounds(options.rounds, tasks);
    return results.finish(options);
}

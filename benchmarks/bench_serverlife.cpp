// SPDX-License-Identifier: BSD-3-Clause

/*
    What remains of connections in a server process that has had a great many of them: full
    handshakes, resumed ones, and clients that go after their ClientHello. Told are the resident
    bytes for each connection after the first 30 %, by when OpenSSL's own cache of sessions is full;
    the processor time of each of the last tenth over each of the first; and the longest pause of
    the event loop while all those sessions expire. And how much a client grows whose server sends
    it 20,000 tickets of 60 KB.

    Each sample takes a new process, and there is only one of each kind: 100,000 connections are
    enough of a statistic. The clock that OpenSSL sees is put forward; nobody waits ten minutes.
    With --share the cache is not full when the bytes are first looked at, and the figures mean
    less.
*/

#include "common/Identity.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"
#include "serverlife/Lives.h"

#include <QtCore/QCoreApplication>

namespace {

using namespace bench;

constexpr int CONNECTIONS = 100000;
constexpr int TICKETS = 20000;
constexpr double MEBIBYTE = 1024 * 1024;

//! Notes a figure next to the most that it is to be.
void addWithGoal(Results& results, const QString& what, Protocol protocol, double value,
                 const QString& unit, double most)
{
    const Key subject{what, QString(), nameOf(protocol), nameOf(Subject::Ferrule)};
    const Key goal{what, QString(), nameOf(protocol), QStringLiteral("the goal")};
    results.add(subject, value, unit, Better::Less);
    results.add(goal, most, unit, Better::Less);
    results.expect(subject, goal, 1);
}

void addLife(Results& results, const QString& name, const Setup& setup, const ServerLife& life)
{
    addWithGoal(results, name + QStringLiteral(": kept of each connection"), setup.protocol,
                life.bytesKept, QStringLiteral("bytes"), 16);
    const QString time = name + QStringLiteral(": processor time");
    const auto key = [&](const char* when) {
        return Key{time, QString(), nameOf(setup.protocol), QString::fromLatin1(when)};
    };
    results.add(key("the last tenth"), life.secondsLast * 1e6, QStringLiteral("µs"), Better::Less);
    results.add(key("the first tenth"), life.secondsFirst * 1e6, QStringLiteral("µs"),
                Better::Less);
    results.expect(key("the last tenth"), key("the first tenth"), 1.1);
    addWithGoal(results, name + QStringLiteral(": longest pause"), setup.protocol,
                life.longestPause, QStringLiteral("ms"), 10);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    prepareProcess();
    if (isLife())
        return runLife();
    const Options options =
        parseOptions(QStringLiteral("What 100,000 connections leave behind in a server."));
    const Identity identity;
    Results results(QStringLiteral("serverlife"));
    const std::pair<QString, Visit> kinds[] = {{QStringLiteral("full handshakes"), Visit::Full},
                                               {QStringLiteral("resumed"), Visit::Resumed},
                                               {QStringLiteral("abandoned"), Visit::Abandoned}};
    for (Protocol protocol : protocols()) {
        const Setup setup{Subject::Ferrule, protocol, identity.certificateFile(),
                          identity.keyFile()};
        for (const auto& [name, visit] : kinds)
            addLife(results, name, setup, liveThrough(setup, visit, scaled(options, CONNECTIONS)));
        if (protocol == Protocol::Tls13) {
            addWithGoal(results, QStringLiteral("tickets: growth of the client"), protocol,
                        growWithTickets(setup, scaled(options, TICKETS)) / MEBIBYTE,
                        QStringLiteral("MiB"), 4);
        }
    }
    return results.finish(options);
}

// SPDX-License-Identifier: BSD-3-Clause
#include "serverlife/Lives.h"

#include "common/BareLoop.h"
#include "common/Child.h"
#include "common/Connections.h"
#include "common/Options.h"
#include "serverlife/Process.h"
#include "serverlife/Visitor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>

#include <algorithm>

namespace bench {

namespace {

constexpr int SESSION_SECONDS = 600;
constexpr int EXPIRY_CONNECTIONS = 400;

const QString LIFE = QStringLiteral("--life"); // Then the role, the setup, and a port.
const QString SERVER = QStringLiteral("server");
const QString CLIENT = QStringLiteral("client");
const QString ADVANCE = QStringLiteral("advance");

QStringList arguments(const QString& role, const Setup& setup)
{
    return {LIFE, role,
            QString::fromUtf8(QJsonDocument(setup.json()).toJson(QJsonDocument::Compact))};
}

double valueOf(const QJsonObject& told, const char* name)
{
    return told.value(QLatin1String(name)).toDouble();
}

int runServer(const Setup& setup)
{
    EndServer server(setup, [](QTcpSocket* end) { end->write("x"); });
    ProcessWatch watch;
    tellParent({{QStringLiteral("port"), server.serverPort()}});
    answerFromLoop([&](const QJsonObject& question) {
        advanceClock(question.value(ADVANCE).toInt());
        return watch.tell();
    });
    return 0;
}

int runClient(const Setup& setup, quint16 port)
{
    EndpointFactory factory(setup);
    Clients clients;
    connectClients(clients, factory, 1, port, Handshakes::Full);
    QTcpSocket* client = clients.front().get();
    ProcessWatch watch;
    qint64 received = client->readAll().size();
    QObject::connect(client, &QIODevice::readyRead, client,
                     [&] { received += client->readAll().size(); });
    answerFromLoop([&](const QJsonObject&) {
        QJsonObject told = watch.tell();
        told.insert(QStringLiteral("received"), received);
        return told;
    });
    return 0;
}

} // namespace

ServerLife liveThrough(const Setup& setup, Visit visit, int connections)
{
    Child server(arguments(SERVER, setup), setup.protocol);
    const auto port = static_cast<quint16>(valueOf(server.read(), "port"));
    Visitor visitor(setup, port, visit);
    const int tenth = std::max(1, connections / 10);
    const auto seconds = [&](int count) {
        const double before = valueOf(server.ask({}), "seconds");
        visitor.visit(count);
        return (valueOf(server.ask({}), "seconds") - before) / count;
    };
    ServerLife life;
    visitor.visit(std::max(1, tenth / 10)); // Pays for what there is once.
    life.secondsFirst = seconds(tenth);
    visitor.visit(tenth * 2);
    const double early = valueOf(server.ask({}), "resident");
    visitor.visit(tenth * 6);
    life.secondsLast = seconds(tenth);
    life.bytesKept = (valueOf(server.ask({}), "resident") - early) / (tenth * 7);

    server.ask({{ADVANCE, SESSION_SECONDS + 1}});
    visitor.forgetSession();
    visitor.visit(EXPIRY_CONNECTIONS);
    life.longestPause = valueOf(server.ask({}), "pause");
    return life;
}

double growWithTickets(const Setup& setup, int tickets)
{
    TicketServer server(setup);
    Child client(arguments(CLIENT, setup) << QString::number(server.port()), setup.protocol);
    server.accept();
    const auto waitFor = [&](double received) {
        QJsonObject told = client.ask({});
        while (valueOf(told, "received") < received)
            told = client.ask({});
        return valueOf(told, "resident");
    };
    const double before = waitFor(1);
    server.send(tickets);
    return waitFor(1 + tickets) - before;
}

bool isLife()
{
    return QCoreApplication::arguments().value(1) == LIFE;
}

int runLife()
{
    const QStringList told = QCoreApplication::arguments();
    const Setup setup = Setup::fromJson(QJsonDocument::fromJson(told.value(3).toUtf8()).object());
    return told.value(2) == SERVER ? runServer(setup) : runClient(setup, told.value(4).toUShort());
}

} // namespace bench

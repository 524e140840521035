// SPDX-License-Identifier: BSD-3-Clause

/*
    How fast a lot of data goes through one connection, in either direction and for several sizes of
    a write.

    The clock runs from the client's request until it has read all that it asked for, or until the
    server thanks for the last octet. Each sample has a connection of its own, and that is made
    before. The engine alone does the work of both ends in one thread, where the others have two.
    The Qt sockets join small writes, while the bare loop makes a record of each.
*/

#include "common/Client.h"
#include "common/EnginePair.h"
#include "common/Plan.h"

#include <QtCore/QElapsedTimer>

namespace {

using namespace bench;

constexpr double MIB = 1024 * 1024;
constexpr int COMMON_PIECE = 16 * 1024; //!< The one that the goals are for.
const QString SPEED = QStringLiteral("speed");

//! What is sent in one sample.
struct Transfer
{
    bool toClient;
    int pieceSize;
    qint64 total;

    Request request() const
    {
        return {toClient ? Demand::Send : Demand::Receive, pieceSize, total};
    }
};

double seconds(const QElapsedTimer& timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

double measureQt(const Setup& setup, quint16 port, const Transfer& transfer)
{
    const EndpointFactory factory(setup);
    std::unique_ptr<QTcpSocket> client = greetedClient(factory, port);
    PatientLoop loop;
    qint64 left = transfer.toClient ? transfer.total : 1; // The server thanks with one octet.
    QObject::connect(client.get(), &QIODevice::readyRead, client.get(), [&] {
        left -= readAvailable(client.get());
        if (left == 0)
            loop.end();
    });
    const Request request = transfer.request();
    QElapsedTimer timer;
    timer.start();
    client->write(reinterpret_cast<const char*>(&request), sizeof request);
    if (!transfer.toClient)
        sendAll(client.get(), transfer.pieceSize, transfer.total);
    loop.run();
    const double result = seconds(timer);
    close(std::move(client));
    return result;
}

double measureBare(const Setup& setup, quint16 port, const Transfer& transfer)
{
    const EngineContext context(setup, EngineContext::Role::Client);
    const std::unique_ptr<BareConnection> client = greetedConnection(context, port);
    const Request request = transfer.request();
    QElapsedTimer timer;
    timer.start();
    client->write(reinterpret_cast<const char*>(&request), sizeof request);
    if (!transfer.toClient)
        client->send(transfer.pieceSize, transfer.total);
    client->receive(transfer.toClient ? transfer.total : 1);
    return seconds(timer);
}

double measureEngine(const Setup& setup, const Transfer& transfer)
{
    const EngineContext client(setup, EngineContext::Role::Client);
    const EngineContext server(setup, EngineContext::Role::Server);
    EnginePair pair(client, server);
    pair.handshake();
    QElapsedTimer timer;
    timer.start();
    pair.transfer(transfer.toClient, transfer.pieceSize, transfer.total);
    return seconds(timer);
}

double measureCipher(const Transfer& transfer)
{
    QElapsedTimer timer;
    timer.start();
    encryptAndDecrypt(transfer.total);
    return seconds(timer);
}

QJsonObject measure(const Job& job, Hosts& hosts)
{
    const Transfer transfer{
        job.details.value(QStringLiteral("toClient")).toBool(),
        job.details.value(QStringLiteral("piece")).toInt(),
        static_cast<qint64>(job.details.value(QStringLiteral("total")).toDouble())};
    double result = 0;
    switch (job.setup.subject) {
    case Subject::BareLoop:
        result = measureBare(job.setup, hosts.port(job.setup, job.arrangement), transfer);
        break;
    case Subject::EngineAlone:
        result = measureEngine(job.setup, transfer);
        break;
    case Subject::AesGcmAlone:
        result = measureCipher(transfer);
        break;
    default:
        result = measureQt(job.setup, hosts.port(job.setup, job.arrangement), transfer);
    }
    return {{SPEED, static_cast<double>(transfer.total) / MIB / result}};
}

struct Size
{
    const char* name;
    int piece;
    int mebibytes; //!< So many that a sample takes some tenths of a second.
};

const Size SIZES[] = {
    {"1 KiB", 1024, 96}, {"16 KiB", COMMON_PIECE, 320}, {"1 MiB", 1024 * 1024, 320}};

void plan(Plan& plan, const Size& size, bool toClient, Protocol protocol)
{
    const QString what =
        QString::fromLatin1(size.name)
        + (toClient ? QStringLiteral(" to the client") : QStringLiteral(" to the server"));
    const Quantity speed{SPEED, QStringLiteral("MiB/s"), Better::More};
    const QJsonObject details{
        {QStringLiteral("toClient"), toClient},
        {QStringLiteral("piece"), size.piece},
        {QStringLiteral("total"), scaled(plan.options(), size.mebibytes) * MIB}};
    const auto job = [&](Subject subject, Arrangement arrangement) {
        return Job{plan.setup(subject, protocol), arrangement, details};
    };
    for (Arrangement arrangement : {Arrangement::Threads, Arrangement::Processes}) {
        for (Subject subject :
             {Subject::Ferrule, Subject::QSslSocket, Subject::QTcpSocket, Subject::BareLoop}) {
            plan.add(what, speed, job(subject, arrangement));
        }
        if (size.piece == COMMON_PIECE) {
            plan.expect(what, job(Subject::QSslSocket, arrangement), 1.5);
            plan.expect(what, job(Subject::BareLoop, arrangement), 0.85);
        }
    }
    for (Subject subject : {Subject::EngineAlone, Subject::AesGcmAlone})
        plan.add(what, speed, job(subject, Arrangement::Threads));
}

} // namespace

int main(int argc, char** argv)
{
    prepareProcess();
    const QCoreApplication application(argc, argv);
    if (workForParent(QCoreApplication::arguments(), measure))
        return 0;
    const Options options = parseOptions(
        QStringLiteral(
            "How fast a lot of data goes through one connection, for several sizes of a write."),
        OneSubject::Possible);
    Plan bulk(QStringLiteral("bulk"), options);
    for (Protocol protocol : protocols()) {
        for (const Size& size : SIZES) {
            // The other sizes tell of the socket, not of the protocol.
            if (protocol != Protocol::Tls12 && size.piece != COMMON_PIECE)
                continue;
            plan(bulk, size, true, protocol);
            plan(bulk, size, false, protocol);
        }
    }
    return bulk.run();
}

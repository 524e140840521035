// SPDX-License-Identifier: BSD-3-Clause

/*
    How fast a lot of data goes through one connection, in either direction and for several sizes of
    a write.

    The clock runs from the client's request until it has read all that it asked for, or until the
    server thanks for the last octet. Each sample has a connection of its own, and that is made
    before. The engine alone does the work of both ends in one thread, where the others have two.
*/

#include "common/Client.h"
#include "common/Crew.h"
#include "common/EnginePair.h"
#include "common/Identity.h"
#include "common/Options.h"
#include "common/Results.h"
#include "common/Rounds.h"

#include <QtCore/QElapsedTimer>

namespace {

using namespace bench;

constexpr double MIB = 1024 * 1024;

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
    const std::unique_ptr<QTcpSocket> client = greetedClient(factory, port);
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
    client->disconnectFromHost();
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
    return {{QStringLiteral("speed"), static_cast<double>(transfer.total) / MIB / result}};
}

struct Size
{
    const char* name;
    int piece;
    int mebibytes; //!< So many that a sample takes some tenths of a second.
};

const Size SIZES[] = {{"1 KiB", 1024, 64}, {"16 KiB", 16 * 1024, 192}, {"1 MiB", 1024 * 1024, 192}};

//! Everything that is measured, made into tasks.
class Plan
{
public:
    explicit Plan(const Options& options)
        : m_options(options)
        , m_results(QStringLiteral("bulk"))
    {
        m_setup.certificateFile = m_identity.certificateFile();
        m_setup.keyFile = m_identity.keyFile();
    }

    int run()
    {
        for (Protocol protocol : protocols()) {
            m_setup.protocol = protocol;
            for (const Size& size : SIZES) {
                // The other sizes tell of the socket, not of the protocol.
                if (protocol == Protocol::Tls12 || size.piece == 16 * 1024) {
                    addSize(size, true);
                    addSize(size, false);
                }
            }
        }
        runRounds(m_options.rounds, m_tasks);
        for (const Key& key : qAsConst(m_goals)) {
            m_results.expect(key, against(key, Subject::QSslSocket), 1.5);
            m_results.expect(key, against(key, Subject::BareLoop), 0.85);
        }
        return m_results.finish(m_options);
    }

private:
    static Key against(Key key, Subject reference)
    {
        key.subject = nameOf(reference);
        return key;
    }

    void addSize(const Size& size, bool toClient)
    {
        const QString what =
            QString::fromLatin1(size.name)
            + (toClient ? QStringLiteral(" to the client") : QStringLiteral(" to the server"));
        const double total = scaled(m_options, size.mebibytes) * MIB;
        const QJsonObject details{{QStringLiteral("toClient"), toClient},
                                  {QStringLiteral("piece"), size.piece},
                                  {QStringLiteral("total"), total}};
        for (Arrangement arrangement : {Arrangement::Threads, Arrangement::Processes}) {
            for (Subject subject :
                 {Subject::Ferrule, Subject::QSslSocket, Subject::QTcpSocket, Subject::BareLoop}) {
                addTask({what, nameOf(arrangement), nameOf(m_setup.protocol), nameOf(subject)},
                        {m_setup.as(subject), arrangement, details});
            }
            if (size.piece == 16 * 1024) {
                m_goals.append({what, nameOf(arrangement), nameOf(m_setup.protocol),
                                nameOf(Subject::Ferrule)});
            }
        }
        for (Subject subject : {Subject::EngineAlone, Subject::AesGcmAlone}) {
            addTask({what, QString(), nameOf(m_setup.protocol), nameOf(subject)},
                    {m_setup.as(subject), Arrangement::Threads, details});
        }
    }

    void addTask(const Key& key, const Job& job)
    {
        m_tasks.append([this, key, job](bool counts) {
            const double speed = m_crew.measure(job).value(QStringLiteral("speed")).toDouble();
            if (counts)
                m_results.add(key, speed, QStringLiteral("MiB/s"), Better::More);
        });
    }

    Options m_options;
    Identity m_identity;
    Crew m_crew;
    Setup m_setup;
    Results m_results;
    QList<std::function<void(bool)>> m_tasks;
    QList<Key> m_goals;
};

} // namespace

int main(int argc, char** argv)
{
    prepareProcess();
    const QCoreApplication application(argc, argv);
    if (workForParent(QCoreApplication::arguments(), measure))
        return 0;
    const Options options = parseOptions(QStringLiteral(
        "How fast a lot of data goes through one connection, for several sizes of a write."));
    return Plan(options).run();
}

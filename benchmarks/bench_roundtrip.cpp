// SPDX-License-Identifier: BSD-3-Clause

/*
    How long 64 bytes take to the server and 64 bytes back, over a connection that stands. The next
    request is sent when the answer to the last one has been read.

    All run on one processor, for only one end ever has something to do. Where the system spreads
   the two ends over two, waking the other processor takes longer than all the rest, and which
   subject it spreads is its whim.
*/

#include "common/Client.h"
#include "common/Events.h"
#include "common/Plan.h"
#include "common/Rounds.h"

#include <QtCore/QElapsedTimer>

namespace {

using namespace bench;

constexpr int PIECE = 64;
constexpr int EXCHANGES = 2000;
const QString MEDIAN = QStringLiteral("median");
const QString PERCENTILE = QStringLiteral("99th percentile");

const Request REQUEST{Demand::Echo, PIECE, 0};

QVector<double> measureQt(const Setup& setup, quint16 port, int count)
{
    const EndpointFactory factory(setup);
    std::unique_ptr<QTcpSocket> client = greetedClient(factory, port);
    client->write(reinterpret_cast<const char*>(&REQUEST), sizeof REQUEST);
    const QByteArray piece(PIECE, 'x');
    QVector<double> times;
    times.reserve(count);
    PatientLoop loop;
    QElapsedTimer timer;
    qint64 arrived = 0;
    const auto ask = [&] {
        arrived = 0;
        timer.start();
        client->write(piece);
    };
    QObject::connect(client.get(), &QIODevice::readyRead, client.get(), [&] {
        arrived += readAvailable(client.get());
        if (arrived < PIECE)
            return;
        times.append(static_cast<double>(timer.nsecsElapsed()) / 1000);
        if (times.size() == count)
            loop.end();
        else
            ask();
    });
    ask();
    loop.run();
    close(std::move(client));
    return times;
}

QVector<double> measureBare(const Setup& setup, quint16 port, int count)
{
    const EngineContext context(setup, EngineContext::Role::Client);
    const std::unique_ptr<BareConnection> client = greetedConnection(context, port);
    client->write(reinterpret_cast<const char*>(&REQUEST), sizeof REQUEST);
    char piece[PIECE] = {};
    QVector<double> times;
    times.reserve(count);
    QElapsedTimer timer;
    for (int i = 0; i < count; ++i) {
        timer.start();
        client->write(piece, PIECE);
        client->readExactly(piece, PIECE);
        times.append(static_cast<double>(timer.nsecsElapsed()) / 1000);
    }
    return times;
}

QJsonObject measure(const Job& job, Hosts& hosts)
{
    const int count = job.details.value(QStringLiteral("count")).toInt();
    const quint16 port = hosts.port(job.setup, job.arrangement);
    const QVector<double> times = job.setup.subject == Subject::BareLoop
                                      ? measureBare(job.setup, port, count)
                                      : measureQt(job.setup, port, count);
    return {{MEDIAN, median(times)}, {PERCENTILE, percentile(times, 0.99)}};
}

void plan(Plan& plan, Protocol protocol, Arrangement arrangement)
{
    const QString what = QStringLiteral("64 bytes there and back");
    const QString unit = QStringLiteral("us");
    const QJsonObject details{{QStringLiteral("count"), scaled(plan.options(), EXCHANGES)}};
    const auto job = [&](Subject subject) {
        return Job{plan.setup(subject, protocol), arrangement, details};
    };
    for (Subject subject :
         {Subject::Ferrule, Subject::QSslSocket, Subject::QTcpSocket, Subject::BareLoop}) {
        plan.add(what, {{MEDIAN, unit, Better::Less}, {PERCENTILE, unit, Better::Less}},
                 job(subject));
    }
    plan.expect(what + QStringLiteral(", ") + MEDIAN, job(Subject::QSslSocket), 1.0);
    plan.expect(what + QStringLiteral(", ") + MEDIAN, job(Subject::BareLoop), 1.25);
}

} // namespace

int main(int argc, char** argv)
{
    prepareProcess();
    useOneProcessor();
    const QCoreApplication application(argc, argv);
    if (workForParent(QCoreApplication::arguments(), measure))
        return 0;
    const Options options = parseOptions(
        QStringLiteral("How long 64 bytes take to the server and back."), OneSubject::Possible);
    Plan roundtrip(QStringLiteral("roundtrip"), options);
    for (Protocol protocol : protocols()) {
        plan(roundtrip, protocol, Arrangement::Threads);
        plan(roundtrip, protocol, Arrangement::Processes);
    }
    return roundtrip.run();
}

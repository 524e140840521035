// SPDX-License-Identifier: BSD-3-Clause

/*
    How many connections a second a client makes, with full handshakes and with sessions that are
    resumed. A connection counts when the client has read one octet from the server, with which TLS
    1.3 has also brought the sessions; then the client closes it and makes another.

    A Ferrule client resumes whatever it can, by the name and port of the server, so that each full
    handshake is with an address that is spelled in another way. A server that is a QSslSocket has a
    context for each connection and cannot resume what it did not make; therefore repeated
    connections are also made to a server that is the bare engine, and can. What was resumed is
    checked where a client can tell.
*/

#include "common/Client.h"
#include "common/EnginePair.h"
#include "common/Plan.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QElapsedTimer>

namespace {

using namespace bench;

constexpr int CONNECTIONS = 200;
const QString RATE = QStringLiteral("rate");

//! What a sample is made of.
struct Course
{
    bool repeated;     //!< Sessions are to be resumed.
    int simultaneous;  //!< So many connections are being made at a time.
    bool engineServer; //!< The server is the bare engine.
    int count;

    QJsonObject json() const
    {
        return {{QStringLiteral("repeated"), repeated},
                {QStringLiteral("simultaneous"), simultaneous},
                {QStringLiteral("engineServer"), engineServer},
                {QStringLiteral("count"), count}};
    }

    static Course fromJson(const QJsonObject& json)
    {
        return {json.value(QStringLiteral("repeated")).toBool(),
                json.value(QStringLiteral("simultaneous")).toInt(),
                json.value(QStringLiteral("engineServer")).toBool(),
                json.value(QStringLiteral("count")).toInt()};
    }
};

//! Makes connections, one behind the other in each of several places.
class Visitor : public QObject
{
public:
    Visitor(const Setup& setup, quint16 port, const Course& course)
        : m_factory(setup)
        , m_port(port)
        , m_course(course)
    {
    }

    //! Makes \a count connections and returns the seconds that it took.
    double visit(int count)
    {
        m_toStart = count;
        m_toEnd = count;
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < m_course.simultaneous && m_toStart > 0; ++i)
            start();
        m_loop.run();
        const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        // The bare server has time for one connection only.
        deleteSpentSockets();
        return seconds;
    }

    //! Ends the program if full handshakes were not, or resumed sessions but the first were not.
    void checkSessions() const
    {
        if (!m_course.engineServer && m_factory.setup().subject != Subject::Ferrule)
            return; // Neither end can tell, and a QSslSocket resumes nothing as a server.
        if (m_course.repeated ? m_resumed < m_visits - 1 : m_resumed > 0)
            fail(QStringLiteral("%1 of %2 sessions were resumed").arg(m_resumed).arg(m_visits));
    }

private:
    void start()
    {
        --m_toStart;
        static int number = 0; // For the whole process: sessions outlive their samples.
        const QString host = spelledLoopback(m_course.repeated ? 0 : ++number % SPELLINGS);
        QTcpSocket* client = m_factory.connectClient(host, m_port).release();
        whenReady(client, m_factory.setup(), [] {});
        connect(client, &QIODevice::readyRead, this, [this, client] { finish(client); });
    }

    void finish(QTcpSocket* client)
    {
        char greeting = 0;
        if (client->read(&greeting, 1) != 1)
            return;
        if (m_course.repeated)
            m_factory.keepSession(client);
        const auto* ferrule = qobject_cast<vela::SslSocket*>(client);
        if (ferrule ? ferrule->isSessionReused() : greeting == GREETING_AGAIN)
            ++m_resumed;
        ++m_visits;
        client->disconnectFromHost();
        client->deleteLater();
        if (m_toStart > 0)
            start();
        if (--m_toEnd == 0)
            m_loop.end();
    }

    EndpointFactory m_factory;
    quint16 m_port;
    Course m_course;
    PatientLoop m_loop;
    int m_toStart = 0;
    int m_toEnd = 0;
    int m_visits = 0;
    int m_resumed = 0;
};

double measureQt(const Setup& setup, quint16 port, const Course& course)
{
    Visitor visitor(setup, port, course);
    // A session to resume, which an earlier sample may have left already.
    if (course.repeated)
        visitor.visit(1);
    const double seconds = visitor.visit(course.count);
    visitor.checkSessions();
    return seconds;
}

double measureEngine(const Setup& setup, const Course& course)
{
    const EngineContext client(setup, EngineContext::Role::Client);
    const EngineContext server(setup, EngineContext::Role::Server);
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < course.count; ++i)
        EnginePair(client, server).handshake();
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

QJsonObject measure(const Job& job, Hosts& hosts)
{
    const Course course = Course::fromJson(job.details);
    double seconds = 0;
    if (job.setup.subject == Subject::EngineAlone) {
        seconds = measureEngine(job.setup, course);
    } else {
        const Subject server = course.engineServer ? Subject::BareLoop : job.setup.subject;
        seconds = measureQt(job.setup, hosts.port(job.setup.as(server), job.arrangement), course);
    }
    return {{RATE, course.count / seconds}};
}

struct Kind
{
    QString what;
    Course course;
    double limit; //!< The goal next to QSslSocket.
};

void plan(Plan& plan, Protocol protocol, const Kind& kind)
{
    Course course = kind.course;
    course.count = scaled(plan.options(), course.count);
    const Quantity rate{RATE, QStringLiteral("per second"), Better::More};
    const auto job = [&](Subject subject, Arrangement arrangement) {
        return Job{plan.setup(subject, protocol), arrangement, course.json()};
    };
    for (Arrangement arrangement : {Arrangement::Threads, Arrangement::Processes}) {
        for (Subject subject : {Subject::Ferrule, Subject::QSslSocket})
            plan.add(kind.what, rate, job(subject, arrangement));
        plan.expect(kind.what, job(Subject::QSslSocket, arrangement), kind.limit);
        if (!course.repeated)
            plan.expect(kind.what, job(Subject::EngineAlone, arrangement), 0.95);
    }
    if (!course.repeated)
        plan.add(kind.what, rate, job(Subject::EngineAlone, Arrangement::Threads));
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
            "How many connections a second there are, with full handshakes and resumed sessions."),
        OneSubject::Possible);
    const Kind kinds[] = {
        {QStringLiteral("full, one at a time"), {false, 1, false, CONNECTIONS}, 1.2},
        {QStringLiteral("full, 8 at a time"), {false, 8, false, CONNECTIONS}, 1.2},
        {QStringLiteral("repeated, one at a time"), {true, 1, false, CONNECTIONS}, 5},
        {QStringLiteral("repeated, to a bare engine"), {true, 1, true, CONNECTIONS}, 5}};
    Plan handshake(QStringLiteral("handshake"), options);
    for (Protocol protocol : protocols()) {
        for (const Kind& kind : kinds)
            plan(handshake, protocol, kind);
    }
    return handshake.run();
}

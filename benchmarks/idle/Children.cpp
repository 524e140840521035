// SPDX-License-Identifier: BSD-3-Clause
#include "idle/Children.h"

#include "common/Connections.h"
#include "common/Events.h"
#include "common/Options.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTextStream>

#include <malloc.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr int LENGTH = 64;
constexpr int LIMIT_MS = 60000;

const QString CHILD =
    QStringLiteral("--child"); // Then the role, the setup, and what it has to know.
const QString SERVER = QStringLiteral("server");

//! What the process takes now.
Growth taken()
{
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    if (!file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("the kernel does not tell of memory"));
    Growth result;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith("Rss:"))
            result.resident = line.simplified().split(' ').at(1).toLongLong() * 1024;
    }
    const auto information = mallinfo2();
    result.heap =
        static_cast<qint64>(information.uordblks) + static_cast<qint64>(information.hblkhd);
    if (result.resident == 0 || result.heap == 0)
        fail(QStringLiteral("no memory is in use, they say"));
    return result;
}

void tell(const Growth& before)
{
    const Growth now = taken();
    QTextStream(stdout) << now.resident - before.resident << ' ' << now.heap - before.heap << '\n'
                        << Qt::flush;
}

//! Waits for a line of the parent, or for its end.
void waitForParent()
{
    bool isTold = false;
    QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&] {
        char line[16];
        isTold = true;
        if (read(STDIN_FILENO, line, sizeof line) <= 0)
            notifier.setEnabled(false);
    });
    processEventsUntil([&] { return isTold; });
}

int runServer(const Setup& setup)
{
    EndServer server(setup, [](QTcpSocket* end) {
        const auto echo = [end] { end->write(end->readAll()); };
        QObject::connect(end, &QIODevice::readyRead, end, echo);
        echo();
    });
    QTextStream(stdout) << server.serverPort() << '\n' << Qt::flush;
    waitForParent(); // There has been a first connection.
    const Growth before = taken();
    QTextStream(stdout) << "ready\n" << Qt::flush;
    waitForParent(); // All are there.
    tell(before);
    waitForParent();
    return 0;
}

//! Sends 64 bytes on each of the clients from number \a first on, and waits for them to come back.
void echoAll(const Clients& clients, std::size_t first)
{
    qint64 received = 0;
    const QByteArray data(LENGTH, 'x');
    QObject context;
    for (std::size_t i = first; i < clients.size(); ++i) {
        QTcpSocket* client = clients.at(i).get();
        QObject::connect(client, &QIODevice::readyRead, &context,
                         [&received, client] { received += client->readAll().size(); });
        client->write(data);
    }
    const auto wanted = static_cast<qint64>(clients.size() - first) * LENGTH;
    processEventsUntil([&] { return received >= wanted; });
}

int runClient(const Setup& setup, quint16 port, int connections)
{
    EndpointFactory factory(setup);
    Clients clients;
    clients.reserve(static_cast<std::size_t>(connections) + 1);
    connectClients(clients, factory, 1, port, Handshakes::Full);
    echoAll(clients, 0);
    QTextStream(stdout) << "ready\n" << Qt::flush;
    waitForParent();
    const Growth before = taken();
    connectClients(clients, factory, connections, port, Handshakes::Full);
    echoAll(clients, 1);
    tell(before);
    waitForParent();
    return 0;
}

//! One file for all processes that are held to \a protocol.
QString configurationOf(Protocol protocol)
{
    static QMap<Protocol, QString> files;
    if (!files.contains(protocol))
        files.insert(protocol, protocolConfiguration(protocol));
    return files.value(protocol);
}

//! A process of this program; it is ended with the object.
class Child
{
public:
    Child(const QString& role, const Setup& setup, const QStringList& more)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("OPENSSL_CONF"), configurationOf(setup.protocol));
        m_process.setProcessEnvironment(environment);
        const QByteArray json = QJsonDocument(setup.json()).toJson(QJsonDocument::Compact);
        m_process.start(QCoreApplication::applicationFilePath(),
                        QStringList{CHILD, role, QString::fromUtf8(json)} + more);
    }

    ~Child()
    {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(LIMIT_MS)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }

    QByteArray line()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(LIMIT_MS))
                fail(QStringLiteral("a child process tells nothing"));
        }
        return m_process.readLine().trimmed();
    }

    void tell()
    {
        m_process.write("\n");
        m_process.waitForBytesWritten(LIMIT_MS);
    }

    Growth growth()
    {
        const QList<QByteArray> words = line().split(' ');
        if (words.size() != 2)
            fail(QStringLiteral("a child process does not tell how it has grown"));
        return {words.first().toLongLong(), words.last().toLongLong()};
    }

private:
    Q_DISABLE_COPY(Child)
    QProcess m_process;
};

} // namespace

bool isChild()
{
    return QCoreApplication::arguments().value(1) == CHILD;
}

int runChild()
{
    const QStringList arguments = QCoreApplication::arguments();
    const Setup setup =
        Setup::fromJson(QJsonDocument::fromJson(arguments.value(3).toUtf8()).object());
    if (arguments.value(2) == SERVER)
        return runServer(setup);
    return runClient(setup, arguments.value(4).toUShort(), arguments.value(5).toInt());
}

void measureChildren(const Setup& setup, int connections, Growth& client, Growth& server)
{
    Child serverChild(SERVER, setup, {});
    const QString port = QString::fromLatin1(serverChild.line());
    Child clientChild(QStringLiteral("client"), setup, {port, QString::number(connections)});
    if (clientChild.line() != "ready")
        fail(QStringLiteral("the client is not ready"));
    serverChild.tell();
    if (serverChild.line() != "ready")
        fail(QStringLiteral("the server is not ready"));
    clientChild.tell();
    client = clientChild.growth();
    serverChild.tell();
    server = serverChild.growth();
}

} // namespace bench

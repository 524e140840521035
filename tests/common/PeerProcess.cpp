// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/PeerProcess.h"

#include "tests/common/FreshPort.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QStandardPaths>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#ifdef Q_OS_LINUX
#    include <csignal>
#    include <sys/prctl.h>
#endif

namespace test {

namespace {

constexpr int PORT_ATTEMPTS = 5;
constexpr int START_DEADLINE_MS = 20000;
constexpr int END_DEADLINE_MS = 20000;
constexpr int CONNECT_DEADLINE_MS = 1000;
constexpr int RETRY_PAUSE_MS = 20;

quint16 freePort()
{
    QTcpServer server;
    listenOnFreshPort(&server);
    return server.serverPort();
}

} // namespace

QString PeerProcess::find(const QString& program)
{
    const QString path = QStandardPaths::findExecutable(program);
    if (!path.isEmpty())
        return path;
    // Where servers are; not on every user's search path.
    return QStandardPaths::findExecutable(
        program, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/local/sbin")});
}

PeerProcess::PeerProcess(const QString& program, QObject* parent)
    : QProcess(parent)
{
    setProgram(find(program));
    connect(this, &QProcess::readyReadStandardError, this, &PeerProcess::log);
}

PeerProcess::~PeerProcess()
{
    stop();
}

bool PeerProcess::run(const QStringList& arguments)
{
    m_log.clear();
    setArguments(arguments);
    start();
    return waitForStarted(START_DEADLINE_MS);
}

bool PeerProcess::runServer(const std::function<QStringList(quint16 port)>& arguments)
{
    for (int attempt = 0; attempt < PORT_ATTEMPTS; ++attempt) {
        m_port = freePort();
        if (!run(arguments(m_port)))
            return false;
        if (awaitListening())
            return true;
        const bool ended = state() == NotRunning;
        stop();
        if (!ended)
            break;
    }
    qWarning("%s does not listen: %s", qPrintable(program()), m_log.constData());
    return false;
}

bool PeerProcess::awaitListening()
{
    const QDeadlineTimer deadline(START_DEADLINE_MS);
    while (!deadline.hasExpired()) {
        QTcpSocket probe;
        probe.connectToHost(QStringLiteral("127.0.0.1"), m_port);
        // A server that could not have the port ends, and the port is somebody else's.
        if (probe.waitForConnected(CONNECT_DEADLINE_MS))
            return !waitForFinished(RETRY_PAUSE_MS) && state() == Running;
        if (waitForFinished(RETRY_PAUSE_MS) || state() != Running)
            return false;
    }
    return false;
}

bool PeerProcess::waitForSuccess()
{
    if (state() != NotRunning) {
        // Not waitForFinished(): what the program waits for may still have to be sent.
        QEventLoop loop;
        connect(this, QOverload<int, ExitStatus>::of(&QProcess::finished), &loop,
                &QEventLoop::quit);
        QTimer::singleShot(END_DEADLINE_MS, &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (state() != NotRunning)
        return false;
    return exitStatus() == NormalExit && exitCode() == 0;
}

QByteArray PeerProcess::readUntil(const QByteArray& text)
{
    QByteArray output = readAllStandardOutput();
    const QDeadlineTimer deadline(END_DEADLINE_MS);
    while (!output.contains(text) && !deadline.hasExpired()) {
        QEventLoop loop;
        connect(this, &QProcess::readyReadStandardOutput, &loop, &QEventLoop::quit);
        connect(this, QOverload<int, ExitStatus>::of(&QProcess::finished), &loop,
                &QEventLoop::quit);
        QTimer::singleShot(deadline.remainingTime(), &loop, &QEventLoop::quit);
        if (state() == NotRunning)
            break;
        loop.exec();
        output += readAllStandardOutput();
    }
    return output;
}

void PeerProcess::stop()
{
    if (state() == NotRunning)
        return;
    kill();
    waitForFinished(END_DEADLINE_MS);
}

QByteArray PeerProcess::log()
{
    m_log += readAllStandardError();
    return m_log;
}

void PeerProcess::setupChildProcess()
{
#ifdef Q_OS_LINUX
    // A test that crashes leaves no server behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
}

} // namespace test

#include "moc_PeerProcess.cpp"

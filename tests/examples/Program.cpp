// SPDX-License-Identifier: BSD-3-Clause
#include "tests/examples/Program.h"

#include "tests/common/OpenSslCommand.h"

#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

namespace test {

namespace {

constexpr int PATIENCE_MSECS = 40 * 1000;

} // namespace

Program::Program(const QString& path, const QStringList& arguments)
{
    setProgram(path);
    setArguments(arguments);
    connect(this, &QProcess::readyReadStandardOutput, this,
            [this] { m_output += readAllStandardOutput(); });
    connect(this, &QProcess::readyReadStandardError, this, [this] { m_errors += readErrors(); });
}

Program::~Program()
{
    disconnect();
    if (state() == NotRunning)
        return;
    kill();
    waitForFinished();
}

bool Program::waitForOutput(const QByteArray& text)
{
    return QTest::qWaitFor([&] { return m_output.contains(text) || state() == NotRunning; },
                           PATIENCE_MSECS)
           && m_output.contains(text);
}

bool Program::waitForErrors(const QByteArray& text)
{
    return QTest::qWaitFor([&] { return m_errors.contains(text) || state() == NotRunning; },
                           PATIENCE_MSECS)
           && m_errors.contains(text);
}

bool Program::waitForSize(int size)
{
    return QTest::qWaitFor([&] { return m_output.size() >= size || state() == NotRunning; },
                           PATIENCE_MSECS)
           && m_output.size() >= size;
}

//! As text: lines end with a line feed alone on every system.
QByteArray Program::readErrors()
{
    return readAllStandardError().replace("\r", "");
}

int Program::finish()
{
    if (!QTest::qWaitFor([&] { return state() == NotRunning; }, PATIENCE_MSECS))
        return -2;
    m_output += readAllStandardOutput();
    m_errors += readErrors();
    return exitStatus() == NormalExit ? exitCode() : -1;
}

int Program::finishInput()
{
    closeWriteChannel();
    return finish();
}

qint64 Program::peakMemory() const
{
    QFile status(QStringLiteral("/proc/%1/status").arg(processId()));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
    }
    return 0;
}

ClientProgram::ClientProgram(quint16 port, const QStringList& options, const QString& host)
    : Program(QStringLiteral(CLIENT_PROGRAM), QStringList(options)
                                                  << QStringLiteral("%1:%2").arg(host).arg(port))
{
}

int ListeningProgram::stop()
{
    terminate();
    return finish();
}

void ListeningProgram::listen(const QStringList& options)
{
    setArguments(QStringList(options) << QStringLiteral("--port") << QStringLiteral("0"));
    start();
    if (waitForOutput("\n"))
        m_port = output().mid(output().lastIndexOf(':') + 1).trimmed().toUShort();
}

ProxyProgram::ProxyProgram(const QStringList& options)
    : ListeningProgram(QStringLiteral(PROXY_PROGRAM))
{
    listen(options);
}

ServerProgram::ServerProgram(const Authority& authority, const QStringList& options,
                             const QString& host)
    : ListeningProgram(QStringLiteral(SERVER_PROGRAM))
{
    QStringList all = options;
    if (!host.isEmpty())
        all << QStringLiteral("--host") << host;
    begin(authority.issue(QStringLiteral("127.0.0.1")), all);
}

ServerProgram::ServerProgram(const Identity& identity, const QStringList& options)
    : ListeningProgram(QStringLiteral(SERVER_PROGRAM))
{
    begin(identity, options);
}

void ServerProgram::begin(const Identity& identity, QStringList options)
{
    options << QStringLiteral("--cert")
            << m_directory.writeCertificate(QStringLiteral("server.pem"), identity)
            << QStringLiteral("--key")
            << m_directory.writeKey(QStringLiteral("server.key"), identity);
    listen(options);
}

OpenSslServer::OpenSslServer(const Authority& authority, const QStringList& options)
    : Program(openSslCommand())
{
    const Identity identity = authority.issue(QStringLiteral("127.0.0.1"));
    QStringList all = {QStringLiteral("s_server"),
                       QStringLiteral("-accept"),
                       QStringLiteral("127.0.0.1:0"),
                       QStringLiteral("-cert"),
                       m_directory.writeCertificate(QStringLiteral("server.pem"), identity),
                       QStringLiteral("-key"),
                       m_directory.writeKey(QStringLiteral("server.key"), identity)};
    setArguments(all + options);
}

quint16 OpenSslServer::port()
{
    if (state() == NotRunning)
        start();
    if (!waitForOutput("ACCEPT 127.0.0.1:") || !waitForOutput("\n"))
        return 0;
    const QByteArray text = output().mid(output().indexOf("ACCEPT 127.0.0.1:") + 17);
    return text.left(text.indexOf('\n')).trimmed().toUShort();
}

CertificatesProgram::CertificatesProgram(const QStringList& arguments)
    : Program(QStringLiteral(CERTIFICATES_PROGRAM), arguments)
{
}

int CertificatesProgram::run(const QByteArray& input)
{
    start();
    write(input);
    return finishInput();
}

bool CertificatesProgram::shows(const QByteArray& line) const
{
    return output().split('\n').contains(line);
}

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QByteArray randomBytes(int size, quint32 seed)
{
    QByteArray bytes((size + 3) / 4 * 4, Qt::Uninitialized);
    QRandomGenerator(seed).fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
    bytes.truncate(size);
    return bytes;
}

bool isOneLine(const QByteArray& text)
{
    return text.size() > 1 && text.indexOf('\n') == text.size() - 1;
}

} // namespace test

#include "moc_Program.cpp"

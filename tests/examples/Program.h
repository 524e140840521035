// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_PROGRAM_H
#define FERRULE_TESTS_PROGRAM_H

#include "tests/common/TestCertificates.h"
#include "tests/common/TlsServer.h"

#include <QtCore/QProcess>
#include <QtCore/QStringList>

namespace test {

/*!
    A program that runs as a child of the test and ends with this object at the latest. Both its
    output channels are kept from the start.
*/
class Program : public QProcess
{
    Q_OBJECT

public:
    explicit Program(const QString& path, const QStringList& arguments = QStringList());
    ~Program() override;

    const QByteArray& output() const { return m_output; }
    const QByteArray& errors() const { return m_errors; }

    //! Waits until the output, or the errors, contain \a text.
    bool waitForOutput(const QByteArray& text);
    bool waitForErrors(const QByteArray& text);

    //! Waits until the output has \a size bytes.
    bool waitForSize(int size);

    //! Waits for the end; returns the exit status, -1 if it crashed, -2 if it does not end.
    int finish();

    //! Closes the program's standard input, then as finish().
    int finishInput();

    //! The peak of the program's resident memory in bytes, 0 where the system does not tell.
    qint64 peakMemory() const;

private:
    QByteArray readErrors();

    QByteArray m_output;
    QByteArray m_errors;
};

/*! ferrule-client against \a port of 127.0.0.1. */
class ClientProgram : public Program
{
    Q_OBJECT

public:
    ClientProgram(quint16 port, const QStringList& options,
                  const QString& host = QStringLiteral("127.0.0.1"));
};

/*! A program that listens on a port and prints which. */
class ListeningProgram : public Program
{
    Q_OBJECT

public:
    using Program::Program;

    //! The port, 0 when the program does not listen.
    quint16 port() const { return m_port; }

    //! Ends the program with SIGTERM; returns the exit status.
    int stop();

protected:
    //! Starts the program on a free port, with \a options.
    void listen(const QStringList& options);

private:
    quint16 m_port = 0;
};

/*! ferrule-proxy on a free port. */
class ProxyProgram : public ListeningProgram
{
    Q_OBJECT

public:
    explicit ProxyProgram(const QStringList& options = QStringList());
};

/*! ferrule-server on a free port, with a certificate of \a authority for 127.0.0.1. */
class ServerProgram : public ListeningProgram
{
    Q_OBJECT

public:
    explicit ServerProgram(const Authority& authority, const QStringList& options = QStringList(),
                           const QString& host = QString());
    ServerProgram(const Identity& identity, const QStringList& options);

private:
    void begin(const Identity& identity, QStringList options);

    PemDirectory m_directory;
};

/*! ferrule-certificates with \a arguments. */
class CertificatesProgram : public Program
{
    Q_OBJECT

public:
    explicit CertificatesProgram(const QStringList& arguments);

    //! Runs the program with \a input on its standard input; returns the exit status.
    int run(const QByteArray& input = QByteArray());

    //! Returns true if \a line is one of the lines of the output.
    bool shows(const QByteArray& line) const;
};

/*! `openssl s_server` on a free port, with a certificate of \a authority for 127.0.0.1. */
class OpenSslServer : public Program
{
    Q_OBJECT

public:
    OpenSslServer(const Authority& authority, const QStringList& options);

    //! Returns when the server accepts connections, with its port; 0 when it does not.
    quint16 port();

private:
    PemDirectory m_directory;
};

//! Returns the words between the blanks of \a text.
QStringList words(const char* text);

//! Returns \a size bytes that look random and are the same for the same \a seed.
QByteArray randomBytes(int size, quint32 seed);

//! Returns true if \a text is one line, ended by a line feed.
bool isOneLine(const QByteArray& text);

} // namespace test

#define VERIFY_SHOWS(program, line)                                                                \
    QVERIFY2((program).shows(line),                                                                \
             QByteArray(QByteArray(line) + "\nis not in\n" + (program).output()).constData())

#endif

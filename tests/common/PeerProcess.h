// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_PEERPROCESS_H
#define FERRULE_TESTS_PEERPROCESS_H

#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <functional>

namespace test {

/*!
    Another program that a test talks to, as a child that ends with the test at the latest.

    As a `QIODevice` it is the program's standard input and output; what the program writes to its
    standard error is collected in log().
*/
class PeerProcess : public QProcess
{
    Q_OBJECT

public:
    //! Returns the path of \a program, or an empty string when it is not installed.
    static QString find(const QString& program);

    explicit PeerProcess(const QString& program, QObject* parent = nullptr);
    ~PeerProcess() override;

    //! Starts the program; false when it did not start.
    bool run(const QStringList& arguments);

    /*!
        Starts the program as a server on a free port of the loopback interface and returns when it
        accepts connections. \a arguments makes the command line for a port; it is asked again, for
        another port, when the program ended because the first one was taken meanwhile.
    */
    bool runServer(const std::function<QStringList(quint16 port)>& arguments);

    //! The port of the server that runServer() started.
    quint16 port() const { return m_port; }

    //! Waits until the program has ended; true if it did so by itself with status 0.
    bool waitForSuccess();

    //! Reads standard output until it contains \a text; returns all that was read.
    QByteArray readUntil(const QByteArray& text);

    //! Ends the program. What it wrote until then can still be read.
    void stop();

    //! Everything from standard error so far.
    QByteArray log();

protected:
    void setupChildProcess() override;

private:
    bool awaitListening();

    QByteArray m_log;
    quint16 m_port = 0;
};

} // namespace test

//! Skips the test where \a program is not installed; in continuous integration it fails there.
#define REQUIRE_PEER(program)                                                                      \
    do {                                                                                           \
        if (test::PeerProcess::find(QStringLiteral(program)).isEmpty()) {                          \
            if (qEnvironmentVariableIsSet("CI"))                                                   \
                QFAIL(program " is not installed");                                                \
            QSKIP(program " is not installed: nothing is known about talking to it");              \
        }                                                                                          \
    } while (false)

#endif

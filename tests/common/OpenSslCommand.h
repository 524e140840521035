// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLCOMMAND_H
#define FERRULE_OPENSSLCOMMAND_H

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

namespace test {

/*! Returns the path of the distribution's `openssl` command, empty when it is not installed. */
QString openSslCommand();

/*! True where a missing peer is a fault of the machine, not of its owner. */
bool isContinuousIntegration();

/*!
    Runs `openssl` with \a arguments and \a input on its standard input; returns its standard
    output. Failures of the command are fatal for the test program.
*/
QByteArray runOpenSsl(const QStringList& arguments, const QByteArray& input = QByteArray());

} // namespace test

/*!
    Skips the test function where `openssl` is not installed; fails it in continuous integration.
    Windows has no distribution, and the command of the engine built for it is older than the tests.
*/
#ifdef Q_OS_WIN
#    define FERRULE_REQUIRE_OPENSSL_COMMAND()                                                      \
        QSKIP("the distribution's openssl command does not run on Windows")
#else
#    define FERRULE_REQUIRE_OPENSSL_COMMAND()                                                      \
        do {                                                                                       \
            if (test::openSslCommand().isEmpty()) {                                                \
                if (test::isContinuousIntegration())                                               \
                    QFAIL("the openssl command is not installed");                                 \
                QSKIP("the openssl command is not installed");                                     \
            }                                                                                      \
        } while (false)
#endif

#endif

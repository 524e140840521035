// SPDX-License-Identifier: BSD-3-Clause
// A TLS client for the command line: shows what the library finds out about a peer, and carries the
// standard streams over the connection.

#include "client/Client.h"
#include "common/Console.h"
#include "common/LogDisplay.h"
#include "common/Platform.h"

#include <QtCore/QCoreApplication>

#include <optional>

int main(int argc, char** argv)
{
    platform::prepareStandardStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ferrule-client"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FERRULE_EXAMPLES_VERSION));

    ClientOptions options;
    int status = ExitOk;
    if (!options.parse(QCoreApplication::arguments(), status))
        return status;
    console::installMessageHandler(options.verbose);
    std::optional<LogDisplay> log;
    if (options.verbose)
        log.emplace();

    Client client(options);
    QMetaObject::invokeMethod(&client, &Client::start, Qt::QueuedConnection);
    return QCoreApplication::exec();
}

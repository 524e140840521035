// SPDX-License-Identifier: BSD-3-Clause
// A TLS server for the command line: echoes, or sends a file.

#include "common/Console.h"
#include "common/Listener.h"
#include "common/Platform.h"
#include "server/Connection.h"
#include "server/ServerOptions.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

namespace {

QString unusableSetting(const ServerOptions& options)
{
    QFile file(options.file);
    if (!options.file.isEmpty() && !file.open(QIODevice::ReadOnly))
        return QStringLiteral("%1: %2").arg(options.file, file.errorString());
    return options.tls.loadForServers();
}

} // namespace

int main(int argc, char** argv)
{
    platform::prepareStandardStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ferrule-server"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FERRULE_EXAMPLES_VERSION));

    ServerOptions options;
    int status = ExitOk;
    if (!options.parse(QCoreApplication::arguments(), status))
        return status;
    console::installMessageHandler(options.verbose);

    const QString unusable = unusableSetting(options);
    if (!unusable.isNull()) {
        console::complain(console::printable(unusable.trimmed()));
        return ExitSettings;
    }

    Listener listener(
        [&options](QTcpSocket* transport) { return new Connection(transport, options); });
    return listener.serve(options.address, options.port, ExitCannotListen);
}

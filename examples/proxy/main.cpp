// SPDX-License-Identifier: BSD-3-Clause
// An HTTP proxy for the command line that offers CONNECT, with or without authorisation.

#include "common/Console.h"
#include "common/Listener.h"
#include "common/Platform.h"
#include "proxy/ProxyOptions.h"
#include "proxy/Tunnel.h"

#include <QtCore/QCoreApplication>

int main(int argc, char** argv)
{
    platform::prepareStandardStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ferrule-proxy"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FERRULE_EXAMPLES_VERSION));

    ProxyOptions options;
    int status = ExitOk;
    if (!options.parse(QCoreApplication::arguments(), status))
        return status;
    console::installMessageHandler(false);
    Listener listener([&options](QTcpSocket* client) { return new Tunnel(client, options); });
    return listener.serve(options.address, options.port, ExitCannotListen);
}

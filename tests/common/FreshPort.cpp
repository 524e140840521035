// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/FreshPort.h"

#include <QtCore/QSet>

#include <mutex>

namespace test {

namespace {

//! Returns false if \a port was noted before.
bool noteFreshPort(quint16 port)
{
    static std::mutex mutex;
    static QSet<quint16> ports;
    const std::lock_guard<std::mutex> lock(mutex);
    const int before = ports.size();
    ports.insert(port);
    return ports.size() > before;
}

} // namespace

void listenOnFreshPort(QTcpServer* server)
{
    if (!server->listen(QHostAddress::LocalHost))
        qFatal("cannot listen on loopback: %s", qPrintable(server->errorString()));
    quint16 port = server->serverPort();
    if (noteFreshPort(port))
        return;
    // A system short of ports gives the same few again and again; beside them there are others.
    constexpr quint16 FIRST_DYNAMIC_PORT = 49152;
    constexpr quint16 LAST_PORT = 65535;
    server->close();
    for (int attempt = 0; attempt < LAST_PORT; ++attempt) {
        port = port == LAST_PORT ? FIRST_DYNAMIC_PORT : static_cast<quint16>(port + 1);
        if (noteFreshPort(port) && server->listen(QHostAddress::LocalHost, port))
            return;
    }
    qFatal("no port of the loopback interface is fresh");
}

} // namespace test

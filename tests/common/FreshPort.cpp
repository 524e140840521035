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
    constexpr int ATTEMPTS = 1000;
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
        if (!server->listen(QHostAddress::LocalHost))
            qFatal("cannot listen on loopback: %s", qPrintable(server->errorString()));
        if (noteFreshPort(server->serverPort()))
            return;
        server->close();
    }
    qFatal("no port of the loopback interface is fresh");
}

} // namespace test

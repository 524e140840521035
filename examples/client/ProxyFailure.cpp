// SPDX-License-Identifier: BSD-3-Clause
#include "client/ProxyFailure.h"

#include <QtCore/QMetaEnum>

namespace {

// Longer first lines are not those of HTTP proxies.
constexpr int LINE_LENGTH = 200;

} // namespace

QString proxyRefusal(const QString& answer)
{
    const QString line = answer.section(QLatin1Char('\n'), 0, 0).trimmed();
    return QStringLiteral("the proxy refuses: ") + line.left(LINE_LENGTH);
}

QString proxyConnectionFailure(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QStringLiteral("the proxy cannot be reached: connection refused");
    case QAbstractSocket::HostNotFoundError:
        return QStringLiteral("the proxy cannot be reached: host not found");
    case QAbstractSocket::RemoteHostClosedError:
        return QStringLiteral("the proxy closed the connection without an answer");
    default:
        break;
    }
    const auto names = QMetaEnum::fromType<QAbstractSocket::SocketError>();
    return QStringLiteral("the connection to the proxy failed: ")
           + QString::fromLatin1(names.valueToKey(error));
}

// SPDX-License-Identifier: BSD-3-Clause
#include "common/OptionValues.h"

#include <QtCore/QCommandLineParser>
#include <QtNetwork/QHostAddress>

#include <limits>

bool parseSeconds(const QString& text, int& msecs)
{
    bool isNumber = false;
    const double milliseconds = text.toDouble(&isNumber) * 1000;
    if (!isNumber || !(milliseconds >= 0 && milliseconds <= std::numeric_limits<int>::max()))
        return false;
    msecs = static_cast<int>(milliseconds);
    return true;
}

QString readListenAddress(const QCommandLineParser& parser, const QCommandLineOption& host,
                          const QCommandLineOption& port, QHostAddress& address,
                          quint16& portNumber)
{
    if (!address.setAddress(parser.value(host)))
        return QStringLiteral("--host \"%1\" is not an IP address").arg(parser.value(host));
    bool isNumber = false;
    portNumber = parser.value(port).toUShort(&isNumber);
    if (!isNumber)
        return QStringLiteral("--port \"%1\" is not a port").arg(parser.value(port));
    return QString();
}

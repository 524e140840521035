// SPDX-License-Identifier: BSD-3-Clause
#include "common/Endpoint.h"

bool Endpoint::parse(const QString& text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool isNumber = false;
    port = text.mid(colon + 1).toUShort(&isNumber);
    host = text.left(colon);
    if (colon < 1 || !isNumber || port == 0)
        return false;
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    else if (host.contains(QLatin1Char(':')))
        return false;
    return !host.isEmpty();
}

QString Endpoint::text() const
{
    const bool bracketed = host.contains(QLatin1Char(':'));
    return QString::fromLatin1(bracketed ? "[%1]:%2" : "%1:%2").arg(host).arg(port);
}

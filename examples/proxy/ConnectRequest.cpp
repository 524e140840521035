// SPDX-License-Identifier: BSD-3-Clause
#include "proxy/ConnectRequest.h"

#include <QtCore/QList>

namespace {

QByteArray basicCredentials(const QByteArray& field)
{
    const QList<QByteArray> words = field.simplified().split(' ');
    if (words.size() != 2 || words.first().toLower() != "basic")
        return QByteArray();
    return QByteArray::fromBase64(words.last());
}

} // namespace

int ConnectRequest::headerSize(const QByteArray& data)
{
    const int end = data.indexOf("\r\n\r\n");
    return end < 0 ? 0 : end + 4;
}

int ConnectRequest::parse(const QByteArray& header)
{
    const QList<QByteArray> lines = header.split('\n');
    const QList<QByteArray> words = lines.first().trimmed().split(' ');
    if (words.size() != 3 || !words.last().startsWith("HTTP/1."))
        return 400;
    if (words.first() != "CONNECT")
        return 405;
    if (!parseTarget(words.at(1)))
        return 400;
    for (const QByteArray& line : lines) {
        const int colon = line.indexOf(':');
        if (line.left(colon).toLower() == "proxy-authorization")
            credentials = basicCredentials(line.mid(colon + 1));
    }
    return 200;
}

bool ConnectRequest::parseTarget(const QByteArray& text)
{
    const int colon = text.lastIndexOf(':');
    QByteArray host = text.left(colon);
    if (host.contains(':') && !host.startsWith('['))
        host = '[' + host + ']';
    return target.parse(QString::fromLatin1(host + text.mid(colon)));
}

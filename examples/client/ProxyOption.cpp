// SPDX-License-Identifier: BSD-3-Clause
#include "client/ProxyOption.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

namespace {

bool isPercentEncoded(const QString& text)
{
    static const QRegularExpression stray(QStringLiteral("%(?![0-9A-Fa-f]{2})"));
    return !text.contains(stray);
}

bool isLatin1(const QString& text)
{
    return QString::fromLatin1(text.toLatin1()) == text;
}

} // namespace

QString ProxyOption::parse(const QString& text)
{
    const int at = text.lastIndexOf(QLatin1Char('@'));
    if (!endpoint.parse(text.mid(at + 1)))
        return QStringLiteral("--proxy is not [USER[:PASSWORD]@]HOST:PORT");
    return at < 0 ? QString() : parseCredentials(text.left(at));
}

QString ProxyOption::parseCredentials(const QString& text)
{
    if (!isPercentEncoded(text))
        return QStringLiteral("--proxy: a \"%\" in user or password needs two hexadecimal digits "
                              "after it; for the character itself write %25");
    user = QUrl::fromPercentEncoding(text.section(QLatin1Char(':'), 0, 0).toUtf8());
    password = QUrl::fromPercentEncoding(text.section(QLatin1Char(':'), 1).toUtf8());
    if (user.isEmpty())
        return QStringLiteral("--proxy: there is an \"@\", but no user before it");
    if (user.contains(QLatin1Char(':')))
        return QStringLiteral("--proxy: the user contains a colon, which proxies cannot be told");
    if (!isLatin1(user + password))
        return QStringLiteral("--proxy: user and password must be of characters of Latin-1");
    return QString();
}

// SPDX-License-Identifier: BSD-3-Clause
#include "ChainSuite.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace test {

namespace {

QStringList toStrings(const QJsonValue& list)
{
    QStringList strings;
    for (const QJsonValue& value : list.toArray())
        strings.append(value.toString());
    return strings;
}

QList<QByteArray> certificatesOf(const QJsonObject& certificates, const QStringList& names)
{
    QList<QByteArray> ders;
    for (const QString& name : names)
        ders.append(QByteArray::fromBase64(certificates.value(name).toString().toLatin1()));
    return ders;
}

//! Other purposes than these two stand for rules beyond usages, or for no usage.
QList<QByteArray> usagesOf(const QString& purpose)
{
    if (purpose.startsWith(QLatin1String("server")))
        return {"1.3.6.1.5.5.7.3.1"};
    if (purpose.startsWith(QLatin1String("client")))
        return {"1.3.6.1.5.5.7.3.2"};
    return {};
}

qint64 timeOf(const QString& text)
{
    return text.isEmpty() ? DAY_OF_THE_SUITES
                          : QDateTime::fromString(text, Qt::ISODateWithMs).toSecsSinceEpoch();
}

ChainCase toCase(const QJsonObject& entry, const QJsonObject& certificates)
{
    const auto value = [&entry](const char* name) { return entry.value(QLatin1String(name)); };
    ChainCase one;
    one.id = value("id").toString();
    one.tags = toStrings(value("tags"));
    one.leaf = certificatesOf(certificates, {value("leaf").toString()}).first();
    one.untrusted = certificatesOf(certificates, toStrings(value("untrusted")));
    one.trusted = certificatesOf(certificates, toStrings(value("trusted")));
    one.time = timeOf(value("time").toString());
    one.usages = usagesOf(value("purpose").toString());
    one.isAccepted = value("expect").toString() == QLatin1String("accept");
    one.reasons = toStrings(value("reason"));
    for (const QJsonValue& element : value("elements").toArray()) {
        one.atElements.append({element.toObject().value(QLatin1String("i")).toInt(),
                               toStrings(element.toObject().value(QLatin1String("flags")))});
    }
    return one;
}

} // namespace

QList<ChainCase> readChainSuite(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    const QJsonObject suite = QJsonDocument::fromJson(file.readAll()).object();
    const QJsonObject certificates = suite.value(QLatin1String("certs")).toObject();
    QList<ChainCase> cases;
    for (const QJsonValue& value : suite.value(QLatin1String("cases")).toArray())
        cases.append(toCase(value.toObject(), certificates));
    if (cases.isEmpty())
        qFatal("%s: no cases", qPrintable(path));
    return cases;
}

} // namespace test

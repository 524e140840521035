// SPDX-License-Identifier: BSD-3-Clause
#include "common/About.h"

#include "common/CertificateRows.h"
#include "common/LoadedModules.h"

#include <Ferrule/Log.h>

#include <QtCore/QCoreApplication>
#include <QtNetwork/QNetworkInterface>

namespace {

QString pathOf(modules::Address address)
{
    const QString path = modules::pathOf(address);
    return path.isEmpty() ? QStringLiteral("unknown") : path;
}

template <typename Function>
modules::Address addressOf(Function* function)
{
    return reinterpret_cast<modules::Address>(function);
}

struct Engine
{
    QString text;
    QString path;
};

//! The OpenSSL that the library calls. Its version function has had two names.
Engine loadedEngine()
{
    const QString library = modules::pathOf(addressOf(&vela::Log::instance));
    for (const char* name : {"SSLeay_version", "OpenSSL_version"}) {
        const modules::Address function = modules::engineFunction(library, name);
        if (function) {
            const auto version = reinterpret_cast<const char* (*)(int)>(function);
            return {QString::fromLatin1(version(0)), pathOf(function)};
        }
    }
    return {};
}

} // namespace

QStringList aboutLines()
{
    const QString builtFor = QStringLiteral(FERRULE_EXAMPLES_ENGINE);
    const Engine engine = loadedEngine();
    QStringList lines{
        QCoreApplication::applicationName() + QLatin1Char(' ')
            + QCoreApplication::applicationVersion(),
        reportRow("Ferrule", pathOf(addressOf(&vela::Log::instance))),
        reportRow("Qt", QStringLiteral("%1, built for %2")
                            .arg(QString::fromLatin1(qVersion()), QStringLiteral(QT_VERSION_STR))),
        reportRow("Qt Core", pathOf(addressOf(&qVersion))),
        reportRow("Qt Network", pathOf(addressOf(&QNetworkInterface::allInterfaces))),
    };
    if (!engine.text.isEmpty())
        lines += {reportRow("OpenSSL", engine.text), reportRow("", engine.path)};
    const QString caution = engineCaution(builtFor, engine.text);
    if (!caution.isEmpty())
        lines += reportRow("caution", caution);
    return lines;
}

QString engineCaution(const QString& builtFor, const QString& found)
{
    if (found.section(QLatin1Char(' '), 1, 1) == builtFor)
        return QString();
    const QString what = found.isEmpty() ? QStringLiteral("no OpenSSL that tells its version")
                                         : QStringLiteral("\"%1\"").arg(found);
    return QStringLiteral(
               "Ferrule was built for OpenSSL %1, but finds %2; where the two are not of "
               "one series, connections fail or the program crashes")
        .arg(builtFor, what);
}

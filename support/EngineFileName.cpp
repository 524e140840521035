// SPDX-License-Identifier: BSD-3-Clause
#include "support/EngineFileName.h"

#include <QtCore/QFile>

namespace vela {

#ifdef Q_OS_WIN

QByteArray engineFileName(const QString& name)
{
    return name.toUtf8();
}

QString fileOfEngineName(const QByteArray& engineName)
{
    // What is not UTF-8, an environment variable for example, is in the system's code page.
    const QString name = QString::fromUtf8(engineName);
    return name.toUtf8() == engineName ? name : QFile::decodeName(engineName);
}

#else

QByteArray engineFileName(const QString& name)
{
    return QFile::encodeName(name);
}

QString fileOfEngineName(const QByteArray& engineName)
{
    return QFile::decodeName(engineName);
}

#endif

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "support/EngineFileName.h"

#include <QtCore/QFile>

namespace vela {

#ifdef Q_OS_WIN

QByteArray engineFileName(const QString& name)
{
    return name.toUtf8();
}

std::filesystem::path engineFilePath(const QByteArray& engineName)
{
    // What is not UTF-8, an environment variable for example, is in the system's code page.
    const QString name = QString::fromUtf8(engineName);
    const bool isUtf8 = name.toUtf8() == engineName;
    return (isUtf8 ? name : QFile::decodeName(engineName)).toStdWString();
}

#else

QByteArray engineFileName(const QString& name)
{
    return QFile::encodeName(name);
}

std::filesystem::path engineFilePath(const QByteArray& engineName)
{
    return engineName.toStdString();
}

#endif

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "common/FileBytes.h"

#include <QtCore/QFile>

namespace {

constexpr int STANDARD_INPUT = 0;
constexpr int LARGEST_FILE = 16 * 1024 * 1024;

} // namespace

QString readBytes(const QString& fileName, QByteArray& bytes)
{
    QFile file(fileName);
    const bool isOpen = fileName == QLatin1String("-")
                            ? file.open(STANDARD_INPUT, QIODevice::ReadOnly)
                            : file.open(QIODevice::ReadOnly);
    if (isOpen)
        bytes = file.read(LARGEST_FILE + 1);
    if (file.error() != QFileDevice::NoError)
        return QStringLiteral("%1: %2").arg(fileName, file.errorString());
    if (bytes.size() > LARGEST_FILE)
        return QStringLiteral("%1: too large for a file of certificates").arg(fileName);
    return QString();
}

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PEMTEXT_H
#define FERRULE_PEMTEXT_H

#include <QtCore/QFile>
#include <QtCore/QTextStream>

namespace vela {

/*!
    Opens \a file; false when that fails. Unlike `QFile::open()` it says nothing on Qt's warning
    channel about an empty name.
*/
inline bool openQuietly(QFile* file, QIODevice::OpenMode mode)
{
    return !file->fileName().isEmpty() && file->open(mode);
}

/*!
    Returns what \a write, called with a `QTextStream*`, writes.
*/
template <typename Write>
QString textOf(Write write)
{
    QString text;
    QTextStream stream(&text, QIODevice::ReadWrite);
    write(&stream);
    stream.flush();
    return text;
}

/*!
    Has \a write, called with a `QTextStream*`, write to \a device.
*/
template <typename Write>
void writeTextTo(QIODevice* device, Write write)
{
    QTextStream stream(device);
    write(&stream);
}

/*!
    Has \a write write to the file's beginning, without truncating it; not at all when the file
    cannot be opened.
*/
template <typename Write>
void writeTextTo(const QString& fileName, Write write)
{
    QFile file(fileName);
    if (openQuietly(&file, QIODevice::ReadWrite))
        writeTextTo(&file, write);
}

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILEVERSION_H
#define FERRULE_FILEVERSION_H

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>

namespace vela {

/*!
    What tells one state of a file from another without reading it: its size, and when it was
    written.
*/
class FileVersion
{
public:
    //! The version of no file.
    FileVersion() = default;

    //! Looks at the file \a engineName, a name as OpenSSL takes it.
    static FileVersion of(const QByteArray& engineName);

    /*!
        Returns false for no file, and for one written so lately that it could be written once more
        without a difference to be seen: file systems may count time in steps of two seconds.
    */
    bool isSettled(const QDateTime& now = QDateTime::currentDateTimeUtc()) const;

    friend bool operator==(const FileVersion& a, const FileVersion& b)
    {
        return a.m_modified == b.m_modified && a.m_size == b.m_size;
    }
    friend bool operator!=(const FileVersion& a, const FileVersion& b) { return !(a == b); }

private:
    qint64 m_modified = -1; // In milliseconds since 1970.
    qint64 m_size = -1;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILEVERSION_H
#define FERRULE_FILEVERSION_H

#include "support/FileStamp.h"

#include <QtCore/QByteArray>

#include <filesystem>

namespace vela {

/*!
    The state of a file that is loaded, and whether another one could look the same. Looked at for
    each connection, so that it must cost little: times are kept as the file system has them,
    because turning one into a QDateTime asks for the time zone's file as well.
*/
class FileVersion
{
public:
    using Clock = std::filesystem::file_time_type::clock;

    //! The version of no file.
    FileVersion() = default;

    //! Looks at the file \a engineName, a name as OpenSSL takes it.
    static FileVersion of(const QByteArray& engineName);

    /*!
        Returns false for a file written so lately that it could be written once more without a
        difference to be seen: file systems may count time in steps of two seconds.
    */
    bool isSettled(Clock::time_point now = Clock::now()) const;

    friend bool operator==(const FileVersion& a, const FileVersion& b)
    {
        return a.m_exists == b.m_exists && a.m_modified == b.m_modified && a.m_stamp == b.m_stamp;
    }
    friend bool operator!=(const FileVersion& a, const FileVersion& b) { return !(a == b); }

private:
    bool m_exists = false;
    Clock::time_point m_modified = {};
    FileStamp m_stamp;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILESTAMP_H
#define FERRULE_FILESTAMP_H

#include <cstdint>
#include <filesystem>

namespace vela {

/*!
    Which file it is that has a name, and when the system has last changed anything about it. Nobody
    sets these, as they do the time of the last writing; all are 0 where the file system has none,
    and for no file.
*/
struct FileStamp
{
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
    std::int64_t changed = 0; //!< In the finest steps of the system.

    static FileStamp of(const std::filesystem::path& file);

    friend bool operator==(const FileStamp& a, const FileStamp& b)
    {
        return a.volume == b.volume && a.number == b.number && a.changed == b.changed;
    }
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILESTAMP_H
#define FERRULE_FILESTAMP_H

#include <cstdint>
#include <filesystem>

namespace vela {

/*!
    What tells one state of a file from another without reading it: which file it is that has the
    name, its size, when it was written, and, because that can be set, when the system has last
    changed anything about it. The times are in the finest steps of the system. What the file system
    does not have is 0, and so is everything for no file.
*/
struct FileStamp
{
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;

    static FileStamp of(const std::filesystem::path& file);

    friend bool operator==(const FileStamp& a, const FileStamp& b)
    {
        return a.volume == b.volume && a.number == b.number && a.size == b.size
               && a.modified == b.modified && a.changed == b.changed;
    }
};

} // namespace vela

#endif

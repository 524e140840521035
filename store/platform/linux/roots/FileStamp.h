// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILESTAMP_H
#define FERRULE_FILESTAMP_H

#include <cstdint>
#include <string>

struct stat;

namespace vela {

/*! What tells one state of a file from another. */
struct FileStamp
{
    std::string path;
    std::uint64_t device;
    std::uint64_t inode;
    std::int64_t size;
    std::int64_t modified; //!< Nanoseconds, like the next.
    std::int64_t changed;

    //! For the file at \a filePath, which \a status is of.
    FileStamp(const std::string& filePath, const struct stat& status);

    bool operator==(const FileStamp& other) const;

    /*!
        Whether the file could change again without another stamp: it has changed since the last
        tick of the clock for such times, which ticks some hundred times a second.
    */
    bool isOfThisTick() const;
};

} // namespace vela

#endif

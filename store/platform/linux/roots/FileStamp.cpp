// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/FileStamp.h"

#include <sys/stat.h>

#include <ctime>
#include <tuple>

namespace vela {

namespace {

std::int64_t nanoseconds(const timespec& time)
{
    constexpr std::int64_t NANOSECONDS = 1000000000;
    return time.tv_sec * NANOSECONDS + time.tv_nsec;
}

} // namespace

FileStamp::FileStamp(const std::string& filePath, const struct stat& status)
    : path(filePath)
    , device(status.st_dev)
    , inode(status.st_ino)
    , size(status.st_size)
    , modified(nanoseconds(status.st_mtim))
    , changed(nanoseconds(status.st_ctim))
{
}

bool FileStamp::operator==(const FileStamp& other) const
{
    return std::tie(path, device, inode, size, modified, changed)
           == std::tie(other.path, other.device, other.inode, other.size, other.modified,
                       other.changed);
}

bool FileStamp::isOfThisTick() const
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return changed >= nanoseconds(now);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "support/FileStampUnix.h"

#include <sys/stat.h>

#include <ctime>

namespace vela {

namespace {

std::int64_t nanoseconds(const timespec& time)
{
    constexpr std::int64_t NANOSECONDS = 1'000'000'000;
    return time.tv_sec * NANOSECONDS + time.tv_nsec;
}

} // namespace

FileStamp FileStamp::of(const std::filesystem::path& file)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return {};
    return stampOf(status);
}

FileStamp stampOf(const struct stat& status)
{
    FileStamp stamp;
    stamp.volume = status.st_dev;
    stamp.number = status.st_ino;
    stamp.size = static_cast<std::uint64_t>(status.st_size);
    stamp.modified = nanoseconds(status.st_mtim);
    stamp.changed = nanoseconds(status.st_ctim);
    return stamp;
}

bool isOfThisTick(const FileStamp& stamp)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return stamp.changed >= nanoseconds(now);
}

} // namespace vela

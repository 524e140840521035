// SPDX-License-Identifier: BSD-3-Clause
#include "support/FileStamp.h"

#include <sys/stat.h>

namespace vela {

FileStamp FileStamp::of(const std::filesystem::path& file)
{
    constexpr std::int64_t NANOSECONDS = 1'000'000'000;
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino,
            status.st_ctim.tv_sec * NANOSECONDS + status.st_ctim.tv_nsec};
}

} // namespace vela

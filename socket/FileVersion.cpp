// SPDX-License-Identifier: BSD-3-Clause
#include "socket/FileVersion.h"

#include "support/EngineFileName.h"

#include <chrono>
#include <system_error>

namespace vela {

namespace {

constexpr std::chrono::milliseconds SETTLED_AFTER(2500);

} // namespace

FileVersion FileVersion::of(const QByteArray& engineName)
{
    const std::filesystem::path file = engineFilePath(engineName);
    std::error_code error;
    FileVersion version;
    version.m_modified = std::filesystem::last_write_time(file, error);
    if (error)
        return FileVersion();
    version.m_exists = true;
    version.m_stamp = FileStamp::of(file);
    return version;
}

bool FileVersion::isSettled(Clock::time_point now) const
{
    return !m_exists || now - m_modified >= SETTLED_AFTER;
}

} // namespace vela

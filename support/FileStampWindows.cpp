// SPDX-License-Identifier: BSD-3-Clause
#include "support/FileStamp.h"

#include <windows.h>

namespace vela {

namespace {

//! A file opened for nothing but looking at it, which keeps nobody from replacing it.
class OpenFile
{
public:
    explicit OpenFile(const std::filesystem::path& file)
        : m_handle(CreateFileW(file.c_str(), FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr))
    {
    }
    ~OpenFile()
    {
        if (m_handle != INVALID_HANDLE_VALUE)
            CloseHandle(m_handle);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    HANDLE handle() const { return m_handle; }

private:
    HANDLE m_handle;
};

} // namespace

FileStamp FileStamp::of(const std::filesystem::path& file)
{
    const OpenFile open(file);
    BY_HANDLE_FILE_INFORMATION identity = {};
    if (!GetFileInformationByHandle(open.handle(), &identity))
        return {};
    FileStamp stamp;
    stamp.volume = identity.dwVolumeSerialNumber;
    stamp.number = std::uint64_t(identity.nFileIndexHigh) << 32 | identity.nFileIndexLow;
    FILE_BASIC_INFO times = {};
    if (GetFileInformationByHandleEx(open.handle(), FileBasicInfo, &times, sizeof times))
        stamp.changed = times.ChangeTime.QuadPart;
    return stamp;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "support/FileStamp.h"

#include <windows.h>

#include <system_error>

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

std::uint64_t joined(DWORD high, DWORD low)
{
    return std::uint64_t(high) << 32 | low;
}

} // namespace

FileStamp FileStamp::of(const std::filesystem::path& file)
{
    FileStamp stamp;
    // Known even of a file that does not let itself be opened.
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    stamp.size = error ? 0 : size; // Of a directory there is none.
    const OpenFile open(file);
    BY_HANDLE_FILE_INFORMATION identity = {};
    if (!GetFileInformationByHandle(open.handle(), &identity))
        return stamp;
    stamp.volume = identity.dwVolumeSerialNumber;
    stamp.number = joined(identity.nFileIndexHigh, identity.nFileIndexLow);
    stamp.modified = static_cast<std::int64_t>(
        joined(identity.ftLastWriteTime.dwHighDateTime, identity.ftLastWriteTime.dwLowDateTime));
    FILE_BASIC_INFO times = {};
    if (GetFileInformationByHandleEx(open.handle(), FileBasicInfo, &times, sizeof times))
        stamp.changed = times.ChangeTime.QuadPart;
    return stamp;
}

} // namespace vela

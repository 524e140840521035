// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/PrivateDirectory.h"

#include "store/platform/linux/roots/RegularFile.h"

#include <QtCore/QRandomGenerator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace vela {

namespace {

namespace fs = std::filesystem;

constexpr mode_t DIRECTORY_MODE = S_IRWXU;
constexpr mode_t FILE_MODE = S_IRUSR | S_IWUSR;

//! Makes \a directory and what is missing above it, for the user alone.
void makeDirectories(const fs::path& directory)
{
    std::error_code error;
    if (fs::is_directory(directory, error) || !directory.has_relative_path())
        return;
    makeDirectories(directory.parent_path());
    mkdir(directory.c_str(), DIRECTORY_MODE);
}

/*! A file with a name of its own for the time being, which goes with the object. */
class TemporaryFile
{
public:
    TemporaryFile(int directory, const std::string& name)
        : m_directory(directory)
        , m_name(name + '.' + std::to_string(QRandomGenerator::system()->generate64()))
        , m_descriptor(openat(directory, m_name.c_str(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, FILE_MODE))
    {
    }

    ~TemporaryFile()
    {
        if (m_descriptor < 0)
            return;
        ::close(m_descriptor);
        if (!m_isInPlace)
            unlinkat(m_directory, m_name.c_str(), 0);
    }

    bool write(const QByteArray& content)
    {
        for (int written = 0; written < content.size();) {
            const ssize_t count =
                ::write(m_descriptor, content.constData() + written, content.size() - written);
            if (count < 0 && errno != EINTR)
                return false;
            written += static_cast<int>(std::max<ssize_t>(count, 0));
        }
        return true;
    }

    bool moveTo(const std::string& name)
    {
        m_isInPlace = fsync(m_descriptor) == 0
                      && renameat(m_directory, m_name.c_str(), m_directory, name.c_str()) == 0;
        return m_isInPlace;
    }

private:
    Q_DISABLE_COPY(TemporaryFile)

    const int m_directory;
    const std::string m_name;
    const int m_descriptor;
    bool m_isInPlace = false;
};

} // namespace

PrivateDirectory::PrivateDirectory(const std::string& base, const std::vector<std::string>& names)
{
    if (base.empty())
        return;
    makeDirectories(base);
    m_descriptor = ::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const std::string& name : names)
        enter(name);
    if (isOpen() && fchmod(m_descriptor, DIRECTORY_MODE) != 0)
        close();
}

PrivateDirectory::~PrivateDirectory()
{
    close();
}

void PrivateDirectory::enter(const std::string& name)
{
    if (!isOpen())
        return;
    mkdirat(m_descriptor, name.c_str(), DIRECTORY_MODE);
    const int inner =
        openat(m_descriptor, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    close();
    m_descriptor = inner;
    struct stat status = {};
    if (isOpen() && (fstat(inner, &status) != 0 || status.st_uid != geteuid()))
        close();
}

void PrivateDirectory::close()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}

bool PrivateDirectory::holds(const std::string& name, const QByteArray& content) const
{
    const int file = openat(m_descriptor, name.c_str(),
                            O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (file < 0)
        return false;
    struct stat status = {};
    const bool isEqual = fstat(file, &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0
                         && readRegularFile(file, content.size()).bytes == content;
    ::close(file);
    return isEqual;
}

bool PrivateDirectory::replace(const std::string& name, const QByteArray& content) const
{
    TemporaryFile file(m_descriptor, name);
    return file.write(content) && file.moveTo(name);
}

} // namespace vela

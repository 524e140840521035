// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace vela {

namespace {

constexpr std::size_t CHUNK = 16 * 1024;

class Descriptor
{
public:
    explicit Descriptor(const std::string& path)
        : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
    {
    }

    ~Descriptor()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }

    int get() const { return m_descriptor; }

private:
    Q_DISABLE_COPY(Descriptor)

    const int m_descriptor;
};

FileContent failure(int error)
{
    FileContent content;
    content.error = error;
    return content;
}

int kindError(const struct stat& status)
{
    if (S_ISREG(status.st_mode))
        return 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

} // namespace

FileContent readRegularFile(const std::string& path, int maxSize)
{
    const Descriptor descriptor(path);
    return descriptor.get() < 0 ? failure(errno) : readRegularFile(descriptor.get(), maxSize);
}

FileContent readRegularFile(int descriptor, int maxSize)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
        return failure(errno);
    if (const int error = kindError(status))
        return failure(error);

    FileContent content;
    std::array<char, CHUNK> chunk;
    while (const ssize_t count = read(descriptor, chunk.data(), chunk.size())) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failure(errno);
        content.bytes.append(chunk.data(), static_cast<int>(count));
        if (content.bytes.size() > maxSize)
            return failure(EFBIG);
    }
    return content;
}

} // namespace vela

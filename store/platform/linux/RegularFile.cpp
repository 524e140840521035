// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vela {

namespace {

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
    struct stat status = {};
    if (descriptor.get() < 0 || fstat(descriptor.get(), &status) != 0)
        return failure(errno);
    if (const int error = kindError(status))
        return failure(error);

    FileContent content;
    content.bytes.resize(static_cast<int>(std::min<off_t>(status.st_size, maxSize)) + 1);
    int size = 0;
    while (size < content.bytes.size()) {
        const ssize_t count = read(descriptor.get(), content.bytes.data() + size,
                                   static_cast<std::size_t>(content.bytes.size() - size));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failure(errno);
        if (count == 0)
            break;
        size += static_cast<int>(count);
    }
    if (size > maxSize)
        return failure(EFBIG);
    content.bytes.truncate(size);
    return content;
}

} // namespace vela

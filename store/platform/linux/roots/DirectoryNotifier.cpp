// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/DirectoryNotifier.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace vela {

namespace {

// Each write counts, so that nobody looks at a file between two of them.
constexpr std::uint32_t ACTIVITIES = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY
                                     | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::size_t BUFFER_SIZE = 4096;

} // namespace

DirectoryNotifier::~DirectoryNotifier()
{
    close();
}

bool DirectoryNotifier::open()
{
    m_wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // May fail where a user's share is used up; watch() reports it then.
    m_notifyDescriptor = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    return m_wakeDescriptor >= 0;
}

void DirectoryNotifier::close()
{
    for (int* descriptor : {&m_wakeDescriptor, &m_notifyDescriptor}) {
        if (*descriptor >= 0)
            ::close(*descriptor);
        *descriptor = -1;
    }
    m_watches.clear();
}

bool DirectoryNotifier::watch(const std::set<std::string>& directories)
{
    if (m_notifyDescriptor < 0)
        return false;
    bool isComplete = true;
    std::set<int> watches;
    for (const std::string& directory : directories) {
        // A directory that is watched already keeps its number.
        const int watch =
            inotify_add_watch(m_notifyDescriptor, directory.c_str(), ACTIVITIES | IN_ONLYDIR);
        if (watch >= 0)
            watches.insert(watch);
        else
            isComplete = false;
    }
    std::set<int> obsolete;
    std::set_difference(m_watches.begin(), m_watches.end(), watches.begin(), watches.end(),
                        std::inserter(obsolete, obsolete.end()));
    for (const int watch : obsolete)
        inotify_rm_watch(m_notifyDescriptor, watch);
    m_watches = std::move(watches);
    return isComplete;
}

DirectoryNotifier::Result DirectoryNotifier::wait(int milliseconds)
{
    // poll() passes over descriptors that are negative.
    std::array<pollfd, 2> descriptors = {
        {{m_wakeDescriptor, POLLIN, 0}, {m_notifyDescriptor, POLLIN, 0}}};
    if (poll(descriptors.data(), descriptors.size(), milliseconds) <= 0)
        return Result::TimedOut;
    for (const pollfd& descriptor : descriptors) {
        if (descriptor.revents != 0)
            drain(descriptor.fd);
    }
    return descriptors[0].revents != 0 ? Result::Woken : Result::Activity;
}

void DirectoryNotifier::wake()
{
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the thread wakes as well.
    const ssize_t written = write(m_wakeDescriptor, &one, sizeof one);
    Q_UNUSED(written)
}

void DirectoryNotifier::drain(int descriptor)
{
    std::array<char, BUFFER_SIZE> buffer;
    while (read(descriptor, buffer.data(), buffer.size()) > 0) {
    }
}

} // namespace vela

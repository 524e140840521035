// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/ChangeWatcher.h"

#include "store/platform/linux/PlatformThread.h"

#include <algorithm>
#include <system_error>

namespace vela {

namespace {

// At namespace scope, so that it is there before, and until after, every store of the host.
ChangeWatcher watcher;

int toMilliseconds(ChangeWatcher::Clock::duration duration)
{
    const auto count = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
    return static_cast<int>(std::max<decltype(count)>(count, 0));
}

} // namespace

ChangeWatcher::~ChangeWatcher()
{
    const std::lock_guard<std::mutex> lifeLocker(m_lifeMutex);
    stop();
}

bool ChangeWatcher::arm(const void* owner, const EventPtr& event, const RootLocations& locations,
                        const RootFiles& files)
{
    const std::lock_guard<std::mutex> lifeLocker(m_lifeMutex);
    if (!ensureRunning())
        return false;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        m_subscriptions[{owner, event}] = {locations, files};
    }
    // The thread compares at once, for changes since the files were read.
    m_notifier.wake();
    return true;
}

void ChangeWatcher::lookFor(const EventPtr& event)
{
    if (m_isSettling)
        return;
    const std::lock_guard<std::mutex> locker(m_mutex);
    for (auto& entry : m_subscriptions) {
        Subscription& subscription = entry.second;
        const Clock::time_point now = Clock::now();
        if (entry.first.second != event || now - subscription.lastLook < LOOK_TIME)
            continue;
        subscription.lastLook = now;
        signalIfChanged(event, &subscription);
    }
}

void ChangeWatcher::disarm(const void* owner, const EventPtr& event)
{
    removeIf([&](const Key& key) { return key == Key(owner, event); });
}

void ChangeWatcher::disarmAll(const void* owner)
{
    removeIf([&](const Key& key) { return key.first == owner; });
}

template <typename Predicate>
void ChangeWatcher::removeIf(Predicate isRemoved)
{
    const std::lock_guard<std::mutex> lifeLocker(m_lifeMutex);
    bool isIdle = false;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        for (auto entry = m_subscriptions.begin(); entry != m_subscriptions.end();)
            entry = isRemoved(entry->first) ? m_subscriptions.erase(entry) : std::next(entry);
        isIdle = m_subscriptions.empty();
    }
    if (isIdle)
        stop();
}

bool ChangeWatcher::ensureRunning()
{
    if (m_thread.joinable())
        return true;
    if (!m_notifier.open())
        return false;
    m_isStopping = false;
    m_isSettling = false;
    m_firstActivity.reset();
    try {
        m_thread = startPlatformThread([this] { run(); });
    } catch (const std::system_error&) {
        m_notifier.close();
        return false;
    }
    return true;
}

void ChangeWatcher::stop()
{
    if (!m_thread.joinable())
        return;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        m_isStopping = true;
    }
    m_notifier.wake();
    m_thread.join();
    m_notifier.close();
}

void ChangeWatcher::run()
{
    bool isComplete = watchDirectories();
    for (;;) {
        const auto result = m_notifier.wait(millisecondsToWait(isComplete));
        {
            const std::lock_guard<std::mutex> locker(m_mutex);
            if (m_isStopping)
                return;
        }
        if (result != DirectoryNotifier::Result::TimedOut)
            noteActivity();
        if (m_firstActivity && millisecondsToWait(isComplete) > 0)
            continue;
        m_firstActivity.reset();
        // Watched before compared: what happens in between shows in one of the two.
        isComplete = watchDirectories();
        m_isSettling = false;
        signalChanges();
    }
}

int ChangeWatcher::millisecondsToWait(bool isComplete) const
{
    if (m_firstActivity) {
        const auto settled =
            std::min(m_lastActivity + SETTLE_TIME, *m_firstActivity + MAX_SETTLE_TIME);
        return toMilliseconds(settled - Clock::now());
    }
    return isComplete ? -1 : toMilliseconds(POLL_TIME);
}

void ChangeWatcher::noteActivity()
{
    m_isSettling = true;
    m_lastActivity = Clock::now();
    if (!m_firstActivity)
        m_firstActivity = m_lastActivity;
}

bool ChangeWatcher::watchDirectories()
{
    std::vector<RootLocations> watched;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        for (const auto& entry : m_subscriptions)
            watched.push_back(entry.second.locations);
    }
    std::set<std::string> directories;
    for (const RootLocations& locations : watched)
        directories.merge(locations.watchedDirectories());
    return m_notifier.watch(directories);
}

void ChangeWatcher::signalChanges()
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    for (auto& entry : m_subscriptions)
        signalIfChanged(entry.first.second, &entry.second);
}

void ChangeWatcher::signalIfChanged(const EventPtr& event, Subscription* subscription)
{
    if (!subscription->isArmed || subscription->locations.files() == subscription->files)
        return;
    subscription->isArmed = false;
    event->set();
}

ChangeWatcher& changeWatcher()
{
    return watcher;
}

} // namespace vela

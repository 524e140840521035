// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHANGEWATCHER_H
#define FERRULE_CHANGEWATCHER_H

#include "store/platform/linux/roots/DirectoryNotifier.h"
#include "store/platform/linux/Event.h"
#include "store/platform/linux/roots/RootLocations.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace vela {

/*!
    Signals events when the files of trusted roots change.

    An armed event is signalled once, when the files differ from those it was armed with and nothing
    has happened in their directories for `SETTLE_TIME`, or something all the time for
    `MAX_SETTLE_TIME`. It must be armed again to be signalled again.

    A thread runs while anything is armed or may be armed again, that is, between the first arm()
    and the last disarm(), which returns when the thread is gone.
*/
class ChangeWatcher
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds SETTLE_TIME{200};
    static constexpr std::chrono::milliseconds MAX_SETTLE_TIME{2000};
    //! How often to look where the system cannot tell by itself.
    static constexpr std::chrono::milliseconds POLL_TIME{5000};

    //! How long a verdict may rely on nothing having been announced.
    static constexpr std::chrono::milliseconds LOOK_TIME{3000};

    ChangeWatcher() = default;
    ~ChangeWatcher();

    /*!
        Arms \a event, on behalf of \a owner, for changes of what was read as \a files. Returns
        false when the system has no means left to watch.
    */
    bool arm(const void* owner, const EventPtr& event, const RootLocations& locations,
             const RootFiles& files);
    /*!
        Signals \a event at once if it is armed and the files have changed without anything being
        seen of it, as on file systems of the network. Looks at most every `LOOK_TIME`, and leaves
        alone what is being seen to.
    */
    void lookFor(const EventPtr& event);
    void disarm(const void* owner, const EventPtr& event);
    void disarmAll(const void* owner);

private:
    Q_DISABLE_COPY(ChangeWatcher)

    struct Subscription
    {
        RootLocations locations;
        RootFiles files;
        bool isArmed = true;
        Clock::time_point lastLook = Clock::now();
    };
    using Key = std::pair<const void*, EventPtr>;

    bool ensureRunning();
    template <typename Predicate>
    void removeIf(Predicate isRemoved);
    void stop();

    void run();
    int millisecondsToWait(bool isComplete) const;
    void noteActivity();
    bool watchDirectories();
    void signalChanges();
    static void signalIfChanged(const EventPtr& event, Subscription* subscription);

    std::mutex m_lifeMutex; //!< Guards the thread's start and end; taken before the other.
    std::mutex m_mutex;     //!< Guards the subscriptions.
    std::map<Key, Subscription> m_subscriptions;
    DirectoryNotifier m_notifier;
    std::thread m_thread;
    bool m_isStopping = false; //!< Guarded by m_mutex.
    std::atomic<bool> m_isSettling{false};

    // The thread's own.
    std::optional<Clock::time_point> m_firstActivity;
    Clock::time_point m_lastActivity;
};

ChangeWatcher& changeWatcher();

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SIGNALCOUNTER_H
#define FERRULE_TESTS_SIGNALCOUNTER_H

#include "store/platform/TrustPlatform.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace test {

/*! Counts how often an event is signalled, by a registered wait. */
class SignalCounter
{
public:
    explicit SignalCounter(bool isSignalled = false)
        : m_event(vela::systemTrustPlatform().createEvent(FALSE, isSignalled ? TRUE : FALSE))
    {
        if (!vela::systemTrustPlatform().registerWait(&m_wait, m_event, &SignalCounter::noteSignal,
                                                      this, INFINITE, 0)) {
            qFatal("SignalCounter: registerWait failed");
        }
    }

    // In the order in which a system store closes them.
    ~SignalCounter()
    {
        vela::systemTrustPlatform().closeHandle(m_event);
        vela::systemTrustPlatform().closeHandle(m_wait);
    }

    HANDLE event() const { return m_event; }

    int count() const
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        return m_count;
    }

    //! Returns whether \a count is reached within a time that is long enough for slow machines.
    bool waitFor(int count)
    {
        constexpr std::chrono::seconds PATIENCE(20);
        std::unique_lock<std::mutex> locker(m_mutex);
        return m_condition.wait_for(locker, PATIENCE, [&] { return m_count >= count; });
    }

private:
    Q_DISABLE_COPY(SignalCounter)

    static void noteSignal(void* context, BOOLEAN timedOut)
    {
        if (timedOut)
            qFatal("SignalCounter: a wait without end has timed out");
        auto* const self = static_cast<SignalCounter*>(context);
        const std::lock_guard<std::mutex> locker(self->m_mutex);
        ++self->m_count;
        self->m_condition.notify_all();
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_condition;
    int m_count = 0;
    const HANDLE m_event;
    HANDLE m_wait = nullptr;
};

/*! The system store "ROOT" with an event that it signals. */
class WatchedStore
{
public:
    WatchedStore()
        : m_store(vela::systemTrustPlatform().openSystemStore(0, L"ROOT"))
    {
        control(CERT_STORE_CTRL_NOTIFY_CHANGE);
    }

    ~WatchedStore()
    {
        control(CERT_STORE_CTRL_CANCEL_NOTIFY);
        vela::systemTrustPlatform().closeStore(m_store, CERT_CLOSE_STORE_FORCE_FLAG);
    }

    void control(DWORD control)
    {
        const HANDLE event = m_counter.event();
        if (!vela::systemTrustPlatform().controlStore(m_store, 2, control, &event))
            qFatal("WatchedStore: controlStore failed");
    }

    void resynchronise() { control(CERT_STORE_CTRL_RESYNC); }
    int count() const { return m_counter.count(); }
    bool waitFor(int count) { return m_counter.waitFor(count); }

private:
    Q_DISABLE_COPY(WatchedStore)

    SignalCounter m_counter;
    const HCERTSTORE m_store;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/Event.h"

namespace vela {

Event::Event(bool isManualReset, bool isSignalled)
    : m_isManualReset(isManualReset)
    , m_isSignalled(isSignalled)
{
}

void Event::set()
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    m_isSignalled = true;
    m_condition.notify_all();
}

bool Event::take()
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return takeLocked();
}

bool Event::wait(const bool& isCancelled)
{
    std::unique_lock<std::mutex> locker(m_mutex);
    m_condition.wait(locker, [this, &isCancelled] { return m_isSignalled || isCancelled; });
    return !isCancelled && takeLocked();
}

void Event::cancel(bool* isCancelled)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    *isCancelled = true;
    m_condition.notify_all();
}

bool Event::takeLocked()
{
    const bool wasSignalled = m_isSignalled;
    if (!m_isManualReset)
        m_isSignalled = false;
    return wasSignalled;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/RegisteredWait.h"

#include "store/platform/linux/PlatformThread.h"

namespace vela {

RegisteredWait::RegisteredWait(const EventPtr& event, WAITORTIMERCALLBACK callback, void* context)
    : m_event(event)
    , m_thread(startPlatformThread([this, callback, context] {
        while (m_event->wait(m_isCancelled))
            callback(context, FALSE);
    }))
{
}

RegisteredWait::~RegisteredWait()
{
    m_event->cancel(&m_isCancelled);
    m_thread.join();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_REGISTEREDWAIT_H
#define FERRULE_REGISTEREDWAIT_H

#include "store/platform/CryptoApi.h"
#include "store/platform/linux/Event.h"

#include <thread>

namespace vela {

/*!
    Calls back each time an event is signalled, on a thread of its own that sleeps in between.

    The destructor returns when the callback is not running and never will again, so the callback
    must not wait for the thread that destroys the wait. Not destroyed by the callback itself.
*/
class RegisteredWait
{
public:
    RegisteredWait(const EventPtr& event, WAITORTIMERCALLBACK callback, void* context);
    ~RegisteredWait();

private:
    Q_DISABLE_COPY(RegisteredWait)

    const EventPtr m_event;
    bool m_isCancelled = false; //!< Guarded by the event.
    std::thread m_thread;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_KERNELOBJECTS_H
#define FERRULE_KERNELOBJECTS_H

#include "store/platform/CryptoApi.h"
#include "store/platform/linux/Event.h"

namespace vela {

//! Handles for what `CloseHandle` closes: events, and waits registered for them.
HANDLE newEventHandle(const EventPtr& event);
//! Throws `std::system_error` when the system has no thread left for it.
HANDLE newWaitHandle(const EventPtr& event, WAITORTIMERCALLBACK callback, void* context);
//! Returns null for a handle that is null or none of an event.
EventPtr eventOf(HANDLE handle);
void deleteKernelObject(HANDLE handle);

} // namespace vela

#endif

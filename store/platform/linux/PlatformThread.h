// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PLATFORMTHREAD_H
#define FERRULE_PLATFORMTHREAD_H

#include <functional>
#include <thread>

namespace vela {

/*!
    Starts a thread that leaves the process's signals to the host's own threads. Throws
    `std::system_error` like the thread's constructor.
*/
std::thread startPlatformThread(const std::function<void()>& run);

} // namespace vela

#endif

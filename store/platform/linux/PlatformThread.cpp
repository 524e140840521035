// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/PlatformThread.h"

#include <csignal>

namespace vela {

namespace {

/*! Keeps signals from this thread, and so from the threads that it starts meanwhile. */
class SignalBlock
{
public:
    SignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }

    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t m_before = {};
};

} // namespace

std::thread startPlatformThread(const std::function<void()>& run)
{
    const SignalBlock block;
    return std::thread(run);
}

} // namespace vela

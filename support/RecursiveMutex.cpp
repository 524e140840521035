// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/RecursiveMutex.h>

#include "support/ThreadAnnotations.h"

namespace vela {

void RecursiveMutex::lock()
{
    m_mutex.lock();
    annotateAcquire(this);
}

void RecursiveMutex::unlock()
{
    annotateRelease(this);
    m_mutex.unlock();
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_MUTEX_H
#define FERRULE_MUTEX_H

#include <Ferrule/RecursiveMutex.h>

#include <mutex>

namespace vela {

//! The mutex that hosts meet: one thread may lock it several times.
using Mutex = RecursiveMutex;

//! Locks a #Mutex for as long as the object lives.
using MutexLocker = std::lock_guard<Mutex>;

} // namespace vela

#endif

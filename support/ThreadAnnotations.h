// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_THREADANNOTATIONS_H
#define FERRULE_THREADANNOTATIONS_H

/*
    Tells ThreadSanitizer about locks that live in libraries built without it. In every other build
    both functions are empty.
*/

// GCC's macro first: for GCC, Qt's headers define __has_feature as always 0.
#if defined(__SANITIZE_THREAD__)
#    define FERRULE_THREAD_SANITIZER
#elif defined(__has_feature)
#    if __has_feature(thread_sanitizer)
#        define FERRULE_THREAD_SANITIZER
#    endif
#endif

#ifdef FERRULE_THREAD_SANITIZER
#    include <sanitizer/tsan_interface.h>
#endif

namespace vela {

inline void annotateAcquire(void* lock)
{
#ifdef FERRULE_THREAD_SANITIZER
    __tsan_acquire(lock);
#else
    static_cast<void>(lock);
#endif
}

inline void annotateRelease(void* lock)
{
#ifdef FERRULE_THREAD_SANITIZER
    __tsan_release(lock);
#else
    static_cast<void>(lock);
#endif
}

} // namespace vela

#endif

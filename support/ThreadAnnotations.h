// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_THREADANNOTATIONS_H
#define FERRULE_THREADANNOTATIONS_H

/*
    Tells ThreadSanitizer about locks that live in libraries built without it. In every other build
    both functions are empty.
*/

#if defined(__has_feature)
#    if __has_feature(thread_sanitizer)
#        define FERRULE_THREAD_SANITIZER
#    endif
#elif defined(__SANITIZE_THREAD__)
#    define FERRULE_THREAD_SANITIZER
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

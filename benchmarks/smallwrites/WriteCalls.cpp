// SPDX-License-Identifier: BSD-3-Clause
#include "WriteCalls.h"

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <dlfcn.h>

#include <atomic>

namespace {

std::atomic<int> watched{-1};
std::atomic<int> calls{0};

//! Counts the call, and returns the function of this name that it was meant for.
template <typename Function>
Function* counted(int descriptor, const char* name)
{
    if (descriptor == watched)
        ++calls;
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace bench {

void countWriteCalls(int descriptor)
{
    calls = 0;
    watched = descriptor;
}

int countedWriteCalls()
{
    return calls;
}

} // namespace bench

// The dynamic linker binds the calls of all libraries to these, which come before the C library's.
#define FERRULE_BENCH_INTERPOSE extern "C" __attribute__((visibility("default")))

FERRULE_BENCH_INTERPOSE ssize_t write(int descriptor, const void* data, size_t length)
{
    return counted<ssize_t(int, const void*, size_t)>(descriptor, "write")(descriptor, data,
                                                                           length);
}

FERRULE_BENCH_INTERPOSE ssize_t writev(int descriptor, const iovec* pieces, int count)
{
    return counted<ssize_t(int, const iovec*, int)>(descriptor, "writev")(descriptor, pieces,
                                                                          count);
}

FERRULE_BENCH_INTERPOSE ssize_t send(int descriptor, const void* data, size_t length, int flags)
{
    return counted<ssize_t(int, const void*, size_t, int)>(descriptor, "send")(descriptor, data,
                                                                               length, flags);
}

FERRULE_BENCH_INTERPOSE ssize_t sendto(int descriptor, const void* data, size_t length, int flags,
                                       const sockaddr* address, socklen_t addressLength)
{
    return counted<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)>(
        descriptor, "sendto")(descriptor, data, length, flags, address, addressLength);
}

FERRULE_BENCH_INTERPOSE ssize_t sendmsg(int descriptor, const msghdr* message, int flags)
{
    return counted<ssize_t(int, const msghdr*, int)>(descriptor, "sendmsg")(descriptor, message,
                                                                            flags);
}

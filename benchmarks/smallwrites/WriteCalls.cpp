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

/*
    The dynamic linker binds the calls of all libraries to these, which come before the C library's.
    Only to the linker do they have the same names: the compiler knows those as something else.
*/
#define FERRULE_BENCH_INSTEAD_OF(name) __asm__(name) __attribute__((visibility("default")))

extern "C" {

ssize_t countedWrite(int descriptor, const void* data, size_t length)
    FERRULE_BENCH_INSTEAD_OF("write");
ssize_t countedWritev(int descriptor, const iovec* pieces, int count)
    FERRULE_BENCH_INSTEAD_OF("writev");
ssize_t countedSend(int descriptor, const void* data, size_t length, int flags)
    FERRULE_BENCH_INSTEAD_OF("send");
ssize_t countedSendto(int descriptor, const void* data, size_t length, int flags,
                      const sockaddr* address, socklen_t addressLength)
    FERRULE_BENCH_INSTEAD_OF("sendto");
ssize_t countedSendmsg(int descriptor, const msghdr* message, int flags)
    FERRULE_BENCH_INSTEAD_OF("sendmsg");

ssize_t countedWrite(int descriptor, const void* data, size_t length)
{
    return counted<ssize_t(int, const void*, size_t)>(descriptor, "write")(descriptor, data,
                                                                           length);
}

ssize_t countedWritev(int descriptor, const iovec* pieces, int count)
{
    return counted<ssize_t(int, const iovec*, int)>(descriptor, "writev")(descriptor, pieces,
                                                                          count);
}

ssize_t countedSend(int descriptor, const void* data, size_t length, int flags)
{
    return counted<ssize_t(int, const void*, size_t, int)>(descriptor, "send")(descriptor, data,
                                                                               length, flags);
}

ssize_t countedSendto(int descriptor, const void* data, size_t length, int flags,
                      const sockaddr* address, socklen_t addressLength)
{
    return counted<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)>(
        descriptor, "sendto")(descriptor, data, length, flags, address, addressLength);
}

ssize_t countedSendmsg(int descriptor, const msghdr* message, int flags)
{
    return counted<ssize_t(int, const msghdr*, int)>(descriptor, "sendmsg")(descriptor, message,
                                                                            flags);
}

} // extern "C"

// SPDX-License-Identifier: BSD-3-Clause
#include "fuzz/Harness.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int REASON = 1;

int refuse(UI*, UI_STRING*)
{
    return 0;
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    // Stays for as long as the process runs.
    static char name[] = "nobody is there";
    static UI_METHOD* const method = UI_create_method(name);
    UI_method_set_reader(method, refuse);
    UI_set_default_method(method);
    return 0;
}

namespace fuzz {

void reportViolation(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

ErrorQueueWatch::ErrorQueueWatch()
{
    ERR_clear_error();
    ERR_put_error(ERR_LIB_USER, 0, REASON, __FILE__, __LINE__);
    m_entry = ERR_peek_last_error();
}

ErrorQueueWatch::~ErrorQueueWatch()
{
    const unsigned long first = ERR_get_error();
    // The queue keeps 16 entries, and OpenSSL 3 drops older ones when a damaged key makes more.
    FUZZ_CHECK(first == m_entry || (first == 0 && SSLeay() >= 0x10100000L));
    FUZZ_CHECK(ERR_get_error() == 0);
}

} // namespace fuzz

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FUZZ_HARNESS_H
#define FERRULE_FUZZ_HARNESS_H

#include <QtCore/qglobal.h>

#include <cstddef>
#include <cstdint>

//! Ends the process with a message when \a condition does not hold; in every build.
#define FUZZ_CHECK(condition)                                                                      \
    ((condition) ? void() : fuzz::reportViolation(#condition, __FILE__, __LINE__))

//! What each target defines: runs one input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/*!
    Runs once, before the first input. Has OpenSSL refuse every question for a password: it would
    otherwise ask the terminal, and wait there, at the first block that is marked as encrypted.
*/
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fuzz {

[[noreturn]] void reportViolation(const char* condition, const char* file, int line);

/*!
    Puts an entry into this thread's OpenSSL error queue and checks, at the end of the scope, that
    the queue holds nothing else, and this entry still unless the engine has dropped it. Only calls
    of the library belong into the scope.
*/
class ErrorQueueWatch
{
public:
    ErrorQueueWatch();
    ~ErrorQueueWatch();

private:
    Q_DISABLE_COPY(ErrorQueueWatch)

    unsigned long m_entry;
};

} // namespace fuzz

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_LOGFAILURE_H
#define FERRULE_LOGFAILURE_H

#include <string>

namespace vela {

/*!
    Writes \a text to the host's log as a failure of \a function, whose name is given with its
    namespace ("vela::WinCertStore::verify").
*/
void logFailure(const char* function, const std::wstring& text);

/*!
    The same for \a message and the error code that goes with it, which is written in decimal.
*/
inline void logFailure(const char* function, const std::wstring& message, unsigned long code)
{
    logFailure(function, message + std::to_wstring(code));
}

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "support/LogFailure.h"

#include "support/TextConversion.h"

#include <Ferrule/Log.h>

#include <ostream>

namespace vela {

namespace {

/*
    Unformatted output: nothing that the host has set on its stream shows in the line, or is changed
    by it. What the stream throws is not for those who called the library.
*/
void writeLine(std::wostream& stream, const std::wstring& line)
{
    try {
        stream.write(line.data(), static_cast<std::streamsize>(line.size()));
        stream.flush();
    } catch (...) { // The stream itself remembers that it failed.
    }
}

} // namespace

void logFailure(const char* function, const std::wstring& text)
{
    Log& log = Log::instance();
    // Locked before the stream is asked for, so that the host cannot take it away meanwhile.
    const MutexLocker locker(log.mutex());
    std::wostream* stream = log.getStream(Log::Failure);
    if (!stream || log.logLevel() >= Log::Silent)
        return;
    writeLine(*stream,
              log.pre(Log::Failure, L"Ferrule") + L'[' + tconvert(function) + L"] " + text + L'\n');
}

} // namespace vela

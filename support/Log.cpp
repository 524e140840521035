// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/Log.h>

#include <algorithm>
#include <iterator>

namespace vela {

namespace {

// Makes the log while the library is loaded: static objects of the host, made later, are destroyed
// before it and may use it in their destructors.
[[maybe_unused]] const Log& madeAtLoad = Log::instance();

} // namespace

Log& Log::instance()
{
    static Log log;
    return log;
}

std::wostream* Log::getStream(Level level) const
{
    if (level < 0 || level >= LEVELS)
        return nullptr;
    const MutexLocker locker(m_mutex);
    return m_streams[level];
}

void Log::setStream(std::wostream* stream)
{
    const MutexLocker locker(m_mutex);
    std::fill(std::begin(m_streams), std::end(m_streams), stream);
}

void Log::setStream(Level level, std::wostream* stream)
{
    if (level < 0 || level >= LEVELS)
        return;
    const MutexLocker locker(m_mutex);
    m_streams[level] = stream;
}

Log::Level Log::logLevel() const
{
    const MutexLocker locker(m_mutex);
    return m_logLevel;
}

void Log::setLogLevel(Level level)
{
    const MutexLocker locker(m_mutex);
    m_logLevel = level;
}

Mutex& Log::mutex()
{
    return m_mutex;
}

std::wstring Log::pre(Level level, const std::wstring& prefix) const
{
    static const wchar_t* const names[LEVELS] = {L"debug", L"information", L"warning", L"failure"};
    std::wstring text = prefix;
    if (!text.empty())
        text += L' ';
    if (level >= 0 && level < LEVELS)
        text.append(names[level]).append(L": ");
    return text;
}

} // namespace vela

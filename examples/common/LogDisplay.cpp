// SPDX-License-Identifier: BSD-3-Clause
#include "common/LogDisplay.h"

#include "common/Console.h"

#include <Ferrule/Log.h>

LogDisplay::LogDisplay()
{
    vela::Log::instance().setStream(&m_stream);
}

LogDisplay::~LogDisplay()
{
    vela::Log::instance().setStream(nullptr);
}

// The library flushes each line, and writes one at a time.
int LogDisplay::Lines::sync()
{
    console::complain(console::printable(QString::fromStdWString(str()).trimmed()));
    str(std::wstring());
    return 0;
}

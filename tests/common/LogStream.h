// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_LOGSTREAM_H
#define FERRULE_TESTS_LOGSTREAM_H

#include <Ferrule/Log.h>

#include <QtCore/QString>

#include <sstream>

namespace test {

/*! What the library logs while the object lives; afterwards the log is as it was at the start. */
class LogStream : public std::wostringstream
{
public:
    LogStream() { vela::Log::instance().setStream(this); }

    ~LogStream() override
    {
        vela::Log::instance().setStream(nullptr);
        vela::Log::instance().setLogLevel(vela::Log::Debug);
    }

    QString text() const { return QString::fromStdWString(str()); }
};

} // namespace test

#endif

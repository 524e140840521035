// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_LOGDISPLAY_H
#define FERRULE_EXAMPLES_LOGDISPLAY_H

#include <QtCore/qglobal.h>

#include <ostream>
#include <sstream>

/*!
    Shows the failures in the library's log on standard error, for as long as it exists. The wide
    stream of the standard library is of no use there: standard error is written in bytes, and no
    stream can be both.
*/
class LogDisplay
{
public:
    LogDisplay();
    ~LogDisplay();

private:
    class Lines : public std::wstringbuf
    {
        int sync() override;
    };

    Q_DISABLE_COPY(LogDisplay)

    Lines m_lines;
    std::wostream m_stream{&m_lines};
};

#endif

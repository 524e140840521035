// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_LOG_H
#define FERRULE_LOG_H

#include <Ferrule/Export.h>
#include <Ferrule/Mutex.h>

#include <iosfwd>
#include <string>

namespace vela {

/*!
    Where the library writes down failures that no return value describes, one line each. There is
    one log in the process, and it is silent until the host gives it a stream:

    \code
    std::wofstream file("ferrule.log");
    vela::Log::instance().setStream(&file);
    ...
    vela::Log::instance().setStream(nullptr); // before the file goes
    \endcode

    What the library writes has the level #Failure and looks like this:

    \code
    Ferrule failure: [vela::WinCertStore::createWinCryptChain] Certificate Chain failed 5
    \endcode

    Each line is written whole and flushed at once. The format flags, width, fill character and
    locale of the stream do not show in it and stay as they are.

    \section streamlifetime The stream
    It stays the host's. It must live, with its buffer, until setStream() has replaced it: when that
    returns, no thread of the library uses the old stream any more. A host that writes to the stream
    as well locks mutex() for each of its own lines, for the library writes from whichever thread
    meets a failure.

    A stream that fails is not repaired, nor is anybody told; if it throws, the exception ends in
    the library. Texts may hold characters outside ASCII: a file stream needs a locale that can
    write them (`stream.imbue(...)`), or it fails at the first one.

    \section loglifetime Loading and unloading
    The log may be used from any thread, by constructors and destructors of the host's static
    objects too, for as long as the library is loaded. Unloading it forgets streams and level;
    loaded again, the log is silent.
*/
class FERRULE_EXPORT Log
{
public:
    //! Kinds of lines, the gravest last. The library itself writes #Failure only.
    enum Level : int {
        Debug = 0,
        Information = 1,
        Warning = 2,
        Failure = 3, //!< Something that was asked for could not be done.
        Silent = 4   //!< As the log level: no line is written. No line has this level.
    };

    static Log& instance();

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /*!
        Returns the stream for lines of \a level, null if there is none. Write to it only with
        mutex() locked since before this call: only then is the stream sure to stay.
    */
    std::wostream* getStream(Level level) const;

    //! Sends lines of every level to \a stream. Null, the initial state, drops them.
    void setStream(std::wostream* stream);

    //! Sends lines of \a level to \a stream, null drops them. Has no effect for #Silent.
    void setStream(Level level, std::wostream* stream);

    //! Returns the least grave level of which lines are written; initially #Debug, that is all.
    Level logLevel() const;

    //! Drops lines below \a level. #Silent, and anything above, drops all of them.
    void setLogLevel(Level level);

    //! Returns the mutex that is held while a line is written.
    Mutex& mutex();

    /*!
        Returns what a line of \a level begins with: \a prefix, which says who writes, a blank
        unless it is empty, and the name of the level with ": " after it.
    */
    std::wstring pre(Level level, const std::wstring& prefix) const;

private:
    Log() = default;
    ~Log() = default;

    static constexpr int LEVELS = Silent;

    mutable Mutex m_mutex;
    Level m_logLevel = Debug;
    std::wostream* m_streams[LEVELS] = {};
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_DIRECTORYNOTIFIER_H
#define FERRULE_DIRECTORYNOTIFIER_H

#include <QtCore/qglobal.h>

#include <set>
#include <string>

namespace vela {

/*! Tells when something happens in directories. Used by one thread, except for wake(). */
class DirectoryNotifier
{
public:
    enum class Result {
        Woken,
        Activity,
        TimedOut,
    };

    DirectoryNotifier() = default;
    ~DirectoryNotifier();

    //! Takes the system's handles; returns false when there are none left.
    bool open();
    void close();

    /*!
        Watches \a directories and no others. Returns false when the system cannot watch all of
       them.
    */
    bool watch(const std::set<std::string>& directories);

    //! Waits for activity, wake(), or \a milliseconds; without end if they are negative.
    Result wait(int milliseconds);
    //! Ends the wait of the other thread, or its next one.
    void wake();

private:
    Q_DISABLE_COPY(DirectoryNotifier)

    static void drain(int descriptor);

    int m_wakeDescriptor = -1;
    int m_notifyDescriptor = -1;
    std::set<int> m_watches;
};

} // namespace vela

#endif

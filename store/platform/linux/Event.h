// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EVENT_H
#define FERRULE_EVENT_H

#include <QtCore/qglobal.h>

#include <condition_variable>
#include <memory>
#include <mutex>

namespace vela {

/*! A kernel event: a flag that threads can wait for. */
class Event
{
public:
    Event(bool isManualReset, bool isSignalled);

    void set();
    //! Returns whether the event is signalled; an auto-reset event is not afterwards.
    bool take();

    //! Waits for take() or cancel(); returns whether the event was taken.
    bool wait(const bool& isCancelled);
    //! Sets \a isCancelled and wakes its wait().
    void cancel(bool* isCancelled);

private:
    Q_DISABLE_COPY(Event)

    bool takeLocked();

    std::mutex m_mutex;
    std::condition_variable m_condition;
    const bool m_isManualReset;
    bool m_isSignalled;
};

using EventPtr = std::shared_ptr<Event>;

} // namespace vela

#endif

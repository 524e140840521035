// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/KernelObjects.h"

#include "store/platform/linux/RegisteredWait.h"

namespace vela {

namespace {

class KernelObject
{
public:
    KernelObject() = default;
    virtual ~KernelObject() = default;
    virtual EventPtr event() const { return nullptr; }

private:
    Q_DISABLE_COPY(KernelObject)
};

class EventObject : public KernelObject
{
public:
    explicit EventObject(const EventPtr& event)
        : m_event(event)
    {
    }

    EventPtr event() const override { return m_event; }

private:
    const EventPtr m_event;
};

class WaitObject : public KernelObject
{
public:
    WaitObject(const EventPtr& event, WAITORTIMERCALLBACK callback, void* context)
        : m_wait(event, callback, context)
    {
    }

private:
    RegisteredWait m_wait;
};

HANDLE toHandle(KernelObject* object)
{
    return object;
}

} // namespace

HANDLE newEventHandle(const EventPtr& event)
{
    return toHandle(new EventObject(event));
}

HANDLE newWaitHandle(const EventPtr& event, WAITORTIMERCALLBACK callback, void* context)
{
    return toHandle(new WaitObject(event, callback, context));
}

EventPtr eventOf(HANDLE handle)
{
    return handle ? static_cast<KernelObject*>(handle)->event() : nullptr;
}

void deleteKernelObject(HANDLE handle)
{
    delete static_cast<KernelObject*>(handle);
}

} // namespace vela

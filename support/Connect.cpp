// SPDX-License-Identifier: BSD-3-Clause
#include "support/Connect.h"

#include <QtCore/QMetaMethod>
#include <QtCore/QMetaObject>

namespace vela {

void connect(const QObject* sender, const char* signal, const QObject* receiver, const char* member,
             Qt::ConnectionType type)
{
    const bool connected = QObject::connect(sender, signal, receiver, member, type);
    Q_ASSERT(connected);
    Q_UNUSED(connected)
}

void invokeSlotQueued(QObject* object, const char* slot)
{
    constexpr char SLOT_CODE = '0' + QSLOT_CODE;
    const QMetaObject* const type = object->metaObject();
    const int index = *slot == SLOT_CODE ? type->indexOfSlot(slot + 1) : -1;
    const QMetaMethod method = type->method(index);
    // Qt also finds what can be invoked without being a slot.
    if (method.methodType() != QMetaMethod::Slot || !method.invoke(object, Qt::QueuedConnection)) {
        qWarning("vela::invokeSlotQueued: %s has no slot \"%s\" that takes no arguments",
                 type->className(), slot);
    }
}

} // namespace vela

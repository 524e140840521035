// SPDX-License-Identifier: BSD-3-Clause
#include "support/Connect.h"

#include <QtCore/QMetaObject>

namespace vela {

void connect(const QObject* sender, const char* signal, const QObject* receiver, const char* member,
             Qt::ConnectionType type)
{
    const bool connected = QObject::connect(sender, signal, receiver, member, type);
    Q_ASSERT(connected);
    Q_UNUSED(connected)
}

void invokeSlotQueued(QObject* object, const char* name)
{
    const bool invoked = QMetaObject::invokeMethod(object, name, Qt::QueuedConnection);
    Q_ASSERT(invoked);
    Q_UNUSED(invoked)
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CONNECT_H
#define FERRULE_CONNECT_H

#include <QtCore/QObject>

namespace vela {

/*!
    Connects \a signal of \a sender to \a member of \a receiver, both in the form of Qt's `SIGNAL`
    and `SLOT` macros ("2readyRead()", "1readFromSocket()"). A connection that cannot be made is a
    mistake in the library: it stops a debug build.
*/
void connect(const QObject* sender, const char* signal, const QObject* receiver, const char* member,
             Qt::ConnectionType type = Qt::AutoConnection);

/*!
    Calls the slot \a name, without arguments, from the event loop of \a object's thread.
*/
void invokeSlotQueued(QObject* object, const char* name);

} // namespace vela

#endif

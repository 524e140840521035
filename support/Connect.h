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
    Calls \a slot, which takes no arguments and is in the form of Qt's `SLOT` macro ("1reset()"),
    from the event loop of \a object's thread. May be called from any thread. A slot that \a object
    does not have is a mistake in the library: nothing is called, and Qt's message handler is told.
*/
void invokeSlotQueued(QObject* object, const char* slot);

} // namespace vela

#endif

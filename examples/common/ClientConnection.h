// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CLIENTCONNECTION_H
#define FERRULE_EXAMPLES_CLIENTCONNECTION_H

#include <QtCore/QObject>

/*!
    One client of a Listener, which makes the object, starts it, and deletes it later when it has
    emitted ended().
*/
class ClientConnection : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    //! Called once. The connection may end at once.
    virtual void start() = 0;

    //! Drops the client, for \a reason. Emits ended() unless that has happened.
    virtual void end(const QString& reason) = 0;

Q_SIGNALS:
    void ended();
};

#endif

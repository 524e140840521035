// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTACTIONMATRIX_H
#define FERRULE_TESTS_HOSTACTIONMATRIX_H

#include "HostConversation.h"

namespace test {

//! Whose sockets emit a signal.
enum class Audience {
    Everyone,
    DirectClients,
    ProxiedClients
};

//! A signal of the socket and how its peer makes it come.
struct HostSignal
{
    const char* name;
    const char* signature; //!< As Qt's SIGNAL macro makes it.
    int state;             //!< Which stateChanged(); -1 for the other signals.
    PeerDeed deed;
    Audience audience;
    bool endsConnection; //!< The connection is not to be expected to go on after it.
};

enum class HostAction {
    Close,
    Abort,
    Disconnect,
    Reconnect,
    AbortAndConnect,
    ConnectAgain,
    ConnectDirectly, //!< After the proxy was taken away; for proxied clients.
    Write,
    DeleteLater,
    Delete,
    SetSocket,
    WaitForReadyRead,
    WaitForBytesWritten,
    Nothing
};

//! How the host's code hangs on the signal.
enum class HostConnection {
    Functor,        //!< A functor in the context of another object.
    OwnFunctor,     //!< A functor in the context of the socket itself.
    SubclassSlot,   //!< A slot of a subclass of SslSocket.
    Slot,           //!< A slot of another object, connected by name.
    QueuedSlot,     //!< The same, queued.
    RelayedFunctor, //!< A functor in the socket's context, on a signal that a slot emits.
    NestedLoop,     //!< A functor in the socket's context, run by an event loop within a slot.
    Dialog          //!< The same, and the loop goes on for a while before and after.
};

const std::vector<HostSignal>& hostSignals();

//! Adds the columns and rows of a test function for \a connections.
void addHostActionRows(const std::vector<HostConnection>& connections);

//! Carries out the row that the test function was called with.
void runHostActionRow();

/*!
    The same for a host that opens a dialog within the signal: what it does, it does from an event
    loop that has run for a while and goes on. Meanwhile the peer does one of \a deeds.
*/
void addHostDialogRows(const std::vector<HostAction>& actions, const std::vector<PeerDeed>& deeds);
void runHostDialogRow();

} // namespace test

Q_DECLARE_METATYPE(const test::HostSignal*)
Q_DECLARE_METATYPE(test::HostAction)
Q_DECLARE_METATYPE(test::HostConnection)
Q_DECLARE_METATYPE(test::PeerDeed)

#endif

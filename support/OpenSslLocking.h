// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLLOCKING_H
#define FERRULE_OPENSSLLOCKING_H

namespace vela {

/*!
    Makes OpenSSL safe for several threads: installs the locking callback, backed by one mutex for
    each lock number, and the thread-id callback. Engines that lock by themselves ignore both.
*/
void installOpenSslLocking();

/*!
    Takes back the callbacks that are still ours, so that OpenSSL does not call into a library that
    is about to be unloaded, and frees the locks.
*/
void removeOpenSslLocking();

} // namespace vela

#endif

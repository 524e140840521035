// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLLOCKING_H
#define FERRULE_OPENSSLLOCKING_H

namespace vela {

/*!
    Makes OpenSSL safe for several threads: installs the locking callback, backed by one mutex for
    each lock number, and the thread-id callback. Engines that lock by themselves ignore both. A
    locking callback that is there already, a host's or Qt's, stays in use: locks that are held
    could not be released by another.
*/
void installOpenSslLocking();

/*!
    Takes back the callbacks that are still ours, so that OpenSSL does not call into a library that
    is about to be unloaded, and frees the locks. As long as somebody holds one, everything stays as
    it is: at the end of the process other threads may still be at work, and who unloads a library
    must have seen to it that none is.
*/
void removeOpenSslLocking();

} // namespace vela

#endif

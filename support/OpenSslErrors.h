// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLERRORS_H
#define FERRULE_OPENSSLERRORS_H

#include <QtCore/QString>

namespace vela {

/*!
    Empties this thread's OpenSSL error queue. Called before every OpenSSL operation whose outcome
    is judged by the queue: `SSL_get_error()` takes an entry that somebody else left there for a
    failure of the operation.
*/
void clearOpenSslErrors();

/*!
    Takes the oldest entry from this thread's OpenSSL error queue and returns it as
    `ERR_error_string()` renders it, an empty queue included.
*/
QString takeOpenSslError();

//! Renders an error code likewise; 0 stands for an empty queue.
QString describeOpenSslError(unsigned long error);

} // namespace vela

#endif

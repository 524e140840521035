// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_USERROOTS_H
#define FERRULE_USERROOTS_H

#include "store/platform/CryptoApi.h"

#include <QtCore/QByteArray>

namespace vela {

/*!
    Adds the certificate with the encoding \a der to the user's own trusted roots: a file of its own
    in a directory that only the user can enter, complete from the moment it can be seen. Adding a
    root again changes nothing. Nothing outside of that directory is changed, whatever links lead to
    it; see PrivateDirectory. Returns `ERROR_SUCCESS` or the reason for the failure.
*/
DWORD addUserRoot(const QByteArray& der);

} // namespace vela

#endif

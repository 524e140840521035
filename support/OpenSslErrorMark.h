// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLERRORMARK_H
#define FERRULE_OPENSSLERRORMARK_H

#include "support/OpenSslCompat.h"

#include <QtCore/qglobal.h>

namespace vela {

/*!
    Takes back what is added to this thread's OpenSSL error queue while the object lives. Parsing
    failures are no errors to this library's callers, but a socket on the same thread would take
    what they leave behind for a failure of its own. Entries from before stay. Do not nest.
*/
class OpenSslErrorMark
{
public:
    OpenSslErrorMark()
        : m_errors(setOpenSslErrorsAside())
    {
    }
    ~OpenSslErrorMark() { putOpenSslErrorsBack(m_errors); }

private:
    Q_DISABLE_COPY(OpenSslErrorMark)

    OpenSslErrors m_errors;
};

} // namespace vela

#endif

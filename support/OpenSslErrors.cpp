// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslErrors.h"

#include <openssl/err.h>

namespace vela {

void clearOpenSslErrors()
{
    // Looking first is cheaper: the queue has many places to clear, and is nearly always empty.
    if (ERR_peek_error() != 0)
        ERR_clear_error();
}

QString takeOpenSslError()
{
    return describeOpenSslError(ERR_get_error());
}

QString describeOpenSslError(unsigned long error)
{
    // The form with a buffer: ERR_error_string() itself writes into one that all threads share.
    char text[256];
    ERR_error_string_n(error, text, sizeof text);
    return QString::fromLatin1(text);
}

} // namespace vela

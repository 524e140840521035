// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_NAMEONELINE_H
#define FERRULE_NAMEONELINE_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <openssl/x509.h>

namespace vela {

/*!
    Returns \a name as one line ("/C=DE/O=Example/CN=host"), the text that the reference engine's
    `X509_NAME_oneline()` gives, whichever engine runs; empty on failure.
*/
QString nameOneline(const X509_NAME* name);

//! Returns what stands behind the sign of equality in that text for one \a value.
QByteArray nameOnelineValue(const ASN1_STRING* value);

} // namespace vela

#endif

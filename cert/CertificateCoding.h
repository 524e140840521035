// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATECODING_H
#define FERRULE_CERTIFICATECODING_H

#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>

namespace vela {

/*!
    \file
    The engine's readers and writers of single certificates, each called in this one place. What the
    engine says about a failure stays in its error queue; callers who do not want it there hold an
    OpenSslErrorMark.
*/

//! Returns what reads the \a length bytes at \a data, which must stay; null on failure.
BioHandle openMemory(const char* data, int length);

/*!
    Reads on to the next certificate in PEM form. Returns null when there is none, with
    `PEM_R_NO_START_LINE` in the error queue, and when it is damaged or encrypted; reading can go on
    behind it then.
*/
X509Handle readPemCertificate(BIO* bio);

/*!
    Reads the certificate in DER form at \a cursor, which has \a length bytes, and moves the cursor
    behind it; null on failure.
*/
X509Handle readDerCertificate(const unsigned char** cursor, long length);

//! Returns \a certificate in PEM form; empty on failure, and for null.
QByteArray pemOf(X509* certificate);

//! Returns \a certificate in DER form; empty on failure, and for null.
QByteArray derOf(X509* certificate);

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SIGNATUREALGORITHM_H
#define FERRULE_SIGNATUREALGORITHM_H

#include <openssl/x509.h>

#include <QtCore/qglobal.h>

namespace vela {

/*!
    Returns the engine's number of the digest in the signature of \a x509, `NID_undef` if there is
    none or it is not known. Where the algorithm takes its digest from parameters, those say it.
*/
int signatureDigest(X509* x509);

//! Whether \a digest is one for which collisions are made at will, or older. SHA-1 is not.
bool isWeakDigest(int digest);

//! Whether \a key is an RSA key so short that it can be factored.
bool isWeakKey(EVP_PKEY* key);

//! Returns what it costs to verify one signature by \a key, in nanoseconds; nothing for null and
//! for a key that is not complete.
qint64 costOfSignature(EVP_PKEY* key);

} // namespace vela

#endif

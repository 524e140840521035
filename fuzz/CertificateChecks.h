// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FUZZ_CERTIFICATECHECKS_H
#define FERRULE_FUZZ_CERTIFICATECHECKS_H

typedef struct x509_st X509;

namespace fuzz {

/*!
    Checks what holds for every certificate that was parsed: it can be written and read back without
    a change, its fingerprints are digests of what is written, and all that is asked of it agrees
    with what OpenSSL says of the handle.
*/
void checkCertificate(X509* x509);

} // namespace fuzz

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_GROUPLIMIT_H
#define FERRULE_GROUPLIMIT_H

#include <openssl/ssl.h>

namespace vela {

/*!
    Has \a ssl refuse servers that would hold a client's thread: with a Diffie-Hellman group larger
    than 10,000 bits, as newer engines do by themselves, or with a certificate whose key is on a
    curve of its own making. With the former the reference engine computes for ten seconds, with the
    latter it can do so for ever.
*/
void limitGroups(SSL* ssl);

} // namespace vela

#endif

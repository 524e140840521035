// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_GROUPLIMIT_H
#define FERRULE_GROUPLIMIT_H

#include <openssl/ssl.h>

namespace vela {

/*!
    Has \a ssl refuse servers whose Diffie-Hellman group is larger than 10,000 bits, as newer
   engines do by themselves. Computing with 32,760 bits would hold a client's thread for ten
   seconds.
*/
void limitGroups(SSL* ssl);

} // namespace vela

#endif

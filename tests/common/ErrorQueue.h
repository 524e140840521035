// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_ERRORQUEUE_H
#define FERRULE_TESTS_ERRORQUEUE_H

#include <openssl/x509.h>

namespace test {

//! Puts entries into OpenSSL's error queue as another user of the thread may leave them.
inline void leaveOpenSslErrors()
{
    const unsigned char garbage[] = {0x30, 0x01};
    const unsigned char* position = garbage;
    X509_free(d2i_X509(nullptr, &position, sizeof garbage));
}

} // namespace test

#endif

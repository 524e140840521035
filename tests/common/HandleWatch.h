// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HANDLEWATCH_H
#define FERRULE_TESTS_HANDLEWATCH_H

#include <QtCore/qglobal.h>

#include <openssl/x509.h>

namespace test {

//! How many of the handles that were passed to watched() have been freed.
inline int freedHandles = 0;

inline void countFreedHandle(void*, void* data, CRYPTO_EX_DATA*, int, long, void*)
{
    if (data == &freedHandles)
        ++freedHandles;
}

//! Counts the end of \a handle in #freedHandles, and returns it.
inline X509* watched(X509* handle)
{
    static const int index = X509_get_ex_new_index(0, nullptr, nullptr, nullptr, countFreedHandle);
    if (index < 0 || !handle || !X509_set_ex_data(handle, index, &freedHandles))
        qFatal("cannot watch a certificate");
    return handle;
}

} // namespace test

#endif

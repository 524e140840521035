// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_WINDOWSNAMES_H
#define FERRULE_TESTS_WINDOWSNAMES_H

/*
    Comes before everything else in a test. OpenSSL's headers include those of Windows, which take
    short names away with macros from the times of segmented memory. A test that cannot have those
    headers first defines FERRULE_WITHOUT_WINDOWS_NAMES.
*/

#if !defined(FERRULE_WITHOUT_WINDOWS_NAMES)
#    include <winsock2.h>
#    include <windows.h>
#    undef far
#    undef near
#endif

#endif

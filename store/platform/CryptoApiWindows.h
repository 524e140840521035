// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CRYPTOAPIWINDOWS_H
#define FERRULE_CRYPTOAPIWINDOWS_H

#if !defined(NOMINMAX)
#    define NOMINMAX
#endif
#if !defined(WIN32_LEAN_AND_MEAN)
#    define WIN32_LEAN_AND_MEAN
#endif

// The engine configuration has all its fields from Windows 8 on.
#if !defined(_WIN32_WINNT) || _WIN32_WINNT < 0x0602
#    undef _WIN32_WINNT
#    define _WIN32_WINNT 0x0602
#endif
#if !defined(NTDDI_VERSION) || NTDDI_VERSION < 0x06020000
#    undef NTDDI_VERSION
#    define NTDDI_VERSION 0x06020000
#endif

#include <windows.h>
#include <wincrypt.h>

// Macros that would take these names away from OpenSSL's types.
#undef X509_NAME
#undef X509_CERT_PAIR
#undef X509_EXTENSIONS
#undef OCSP_REQUEST
#undef OCSP_RESPONSE
#undef PKCS7_SIGNER_INFO
#undef PKCS7_ISSUER_AND_SERIAL

#endif

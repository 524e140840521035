// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CRYPTOHANDLES_H
#define FERRULE_CRYPTOHANDLES_H

/*
    The handles of CryptoAPI, as far as a public header needs them: the same types that the Windows
    headers declare, without including any.
*/

// NOLINTBEGIN(bugprone-reserved-identifier): the tags are those of the Windows headers.
struct _CERT_CONTEXT;
struct _CERT_CHAIN_CONTEXT;
// NOLINTEND(bugprone-reserved-identifier)

namespace vela {

using BOOLEAN = unsigned char;
using HANDLE = void*;
using HCERTSTORE = void*;
using HCERTCHAINENGINE = void*;
using PCCERT_CONTEXT = const _CERT_CONTEXT*;
using PCCERT_CHAIN_CONTEXT = const _CERT_CHAIN_CONTEXT*;

} // namespace vela

#endif

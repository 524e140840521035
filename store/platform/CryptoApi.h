// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CRYPTOAPI_H
#define FERRULE_CRYPTOAPI_H

/*
    The types and constants of CryptoAPI that the trust platform speaks: the real ones on Windows,
    elsewhere the project's own declarations of the same names, layouts and values.
*/

#if defined(_WIN32)
#    include "store/platform/CryptoApiWindows.h"
#else
#    include "store/platform/CryptoApiDeclarations.h"
#endif

#include <Ferrule/CryptoHandles.h>

#include <type_traits>

// A system takes the size for the version of a structure.
static_assert(sizeof(void*) != 8 || sizeof(CERT_CHAIN_ENGINE_CONFIG) == 88,
              "the engine configuration has the exclusive-root fields");
static_assert(sizeof(void*) != 8 || sizeof(CERT_CHAIN_PARA) == 32,
              "the chain parameters end with the requested usage");
static_assert(sizeof(void*) != 8 || sizeof(CERT_CONTEXT) == 40, "layout of CERT_CONTEXT");
static_assert(sizeof(void*) != 8 || sizeof(CERT_CHAIN_ELEMENT) == 56,
              "layout of CERT_CHAIN_ELEMENT");
static_assert(sizeof(void*) != 8 || sizeof(CERT_SIMPLE_CHAIN) == 40, "layout of CERT_SIMPLE_CHAIN");
static_assert(sizeof(void*) != 8 || sizeof(CERT_CHAIN_CONTEXT) == 72,
              "layout of CERT_CHAIN_CONTEXT");

static_assert(
    std::is_same_v<
        vela::BOOLEAN,
        BOOLEAN> && std::is_same_v<vela::HANDLE, HANDLE> && std::is_same_v<vela::HCERTSTORE, HCERTSTORE> && std::is_same_v<vela::HCERTCHAINENGINE, HCERTCHAINENGINE> && std::is_same_v<vela::PCCERT_CONTEXT, PCCERT_CONTEXT> && std::is_same_v<vela::PCCERT_CHAIN_CONTEXT, PCCERT_CHAIN_CONTEXT>,
    "the public handles are those of CryptoAPI");

#endif

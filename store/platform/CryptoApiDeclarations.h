// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CRYPTOAPIDECLARATIONS_H
#define FERRULE_CRYPTOAPIDECLARATIONS_H

#include <cstdint>

/*
    The names, and the forms of types and constants, are those of the Windows headers, so that one
    source reads the same on every system. Linters would have them otherwise.
    Wide characters are the system's own wchar_t.
*/

// NOLINTBEGIN(bugprone-reserved-identifier, modernize-use-using, performance-no-int-to-ptr)

using BYTE = unsigned char;
using BOOLEAN = BYTE;
using BOOL = int;
using DWORD = std::uint32_t;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using HANDLE = void*;
using HCERTSTORE = void*;
using HCERTCHAINENGINE = void*;
using HCRYPTPROV_LEGACY = std::uintptr_t;

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_WRITE_FAULT = 29;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
constexpr DWORD ERROR_NO_SYSTEM_RESOURCES = 1450;

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

constexpr std::int32_t E_INVALIDARG = static_cast<std::int32_t>(0x80070057);
constexpr std::int32_t CRYPT_E_NOT_FOUND = static_cast<std::int32_t>(0x80092004);
constexpr std::int32_t CRYPT_E_EXISTS = static_cast<std::int32_t>(0x80092005);
constexpr std::int32_t CRYPT_E_ASN1_ERROR = static_cast<std::int32_t>(0x80093100);

using WAITORTIMERCALLBACK = void (*)(void* context, BOOLEAN timedOut);

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

constexpr DWORD X509_ASN_ENCODING = 0x00000001;
constexpr DWORD PKCS_7_ASN_ENCODING = 0x00010000;

//! Like every predefined provider not a text but a small number in a pointer.
inline const LPCSTR CERT_STORE_PROV_MEMORY = reinterpret_cast<LPCSTR>(std::uintptr_t(2));

constexpr DWORD CERT_STORE_CREATE_NEW_FLAG = 0x00002000;

constexpr DWORD CERT_STORE_CTRL_RESYNC = 1;
constexpr DWORD CERT_STORE_CTRL_NOTIFY_CHANGE = 2;
constexpr DWORD CERT_STORE_CTRL_CANCEL_NOTIFY = 5;

constexpr DWORD CERT_STORE_ADD_NEW = 1;
constexpr DWORD CERT_STORE_ADD_USE_EXISTING = 2;
constexpr DWORD CERT_STORE_ADD_REPLACE_EXISTING = 3;
constexpr DWORD CERT_STORE_ADD_ALWAYS = 4;

constexpr DWORD CERT_CLOSE_STORE_FORCE_FLAG = 0x00000001;

typedef struct _CERT_INFO* PCERT_INFO;
typedef struct _CERT_REVOCATION_INFO* PCERT_REVOCATION_INFO;
typedef struct _CERT_TRUST_LIST_INFO* PCERT_TRUST_LIST_INFO;

typedef struct _CERT_CONTEXT
{
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    PCERT_INFO pCertInfo;
    HCERTSTORE hCertStore;
} CERT_CONTEXT;
using PCCERT_CONTEXT = const CERT_CONTEXT*;

typedef struct _CTL_USAGE
{
    DWORD cUsageIdentifier;
    LPSTR* rgpszUsageIdentifier;
} CTL_USAGE, CERT_ENHKEY_USAGE, *PCERT_ENHKEY_USAGE;

constexpr DWORD USAGE_MATCH_TYPE_AND = 0;
constexpr DWORD USAGE_MATCH_TYPE_OR = 1;

typedef struct _CERT_USAGE_MATCH
{
    DWORD dwType;
    CERT_ENHKEY_USAGE Usage;
} CERT_USAGE_MATCH;

typedef struct _CERT_CHAIN_PARA
{
    DWORD cbSize;
    CERT_USAGE_MATCH RequestedUsage;
} CERT_CHAIN_PARA, *PCERT_CHAIN_PARA;

typedef struct _CERT_CHAIN_ENGINE_CONFIG
{
    DWORD cbSize;
    HCERTSTORE hRestrictedRoot;
    HCERTSTORE hRestrictedTrust;
    HCERTSTORE hRestrictedOther;
    DWORD cAdditionalStore;
    HCERTSTORE* rghAdditionalStore;
    DWORD dwFlags;
    DWORD dwUrlRetrievalTimeout;
    DWORD MaximumCachedCertificates;
    DWORD CycleDetectionModulus;
    HCERTSTORE hExclusiveRoot;
    HCERTSTORE hExclusiveTrustedPeople;
    DWORD dwExclusiveFlags;
} CERT_CHAIN_ENGINE_CONFIG, *PCERT_CHAIN_ENGINE_CONFIG;

typedef struct _CERT_TRUST_STATUS
{
    DWORD dwErrorStatus;
    DWORD dwInfoStatus;
} CERT_TRUST_STATUS;

constexpr DWORD CERT_TRUST_NO_ERROR = 0x00000000;
constexpr DWORD CERT_TRUST_IS_NOT_TIME_VALID = 0x00000001;
constexpr DWORD CERT_TRUST_IS_NOT_TIME_NESTED = 0x00000002;
constexpr DWORD CERT_TRUST_IS_REVOKED = 0x00000004;
constexpr DWORD CERT_TRUST_IS_NOT_SIGNATURE_VALID = 0x00000008;
constexpr DWORD CERT_TRUST_IS_NOT_VALID_FOR_USAGE = 0x00000010;
constexpr DWORD CERT_TRUST_IS_UNTRUSTED_ROOT = 0x00000020;
constexpr DWORD CERT_TRUST_REVOCATION_STATUS_UNKNOWN = 0x00000040;
constexpr DWORD CERT_TRUST_IS_CYCLIC = 0x00000080;
constexpr DWORD CERT_TRUST_INVALID_EXTENSION = 0x00000100;
constexpr DWORD CERT_TRUST_INVALID_POLICY_CONSTRAINTS = 0x00000200;
constexpr DWORD CERT_TRUST_INVALID_BASIC_CONSTRAINTS = 0x00000400;
constexpr DWORD CERT_TRUST_INVALID_NAME_CONSTRAINTS = 0x00000800;
constexpr DWORD CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT = 0x00001000;
constexpr DWORD CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT = 0x00004000;
constexpr DWORD CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT = 0x00008000;
constexpr DWORD CERT_TRUST_IS_PARTIAL_CHAIN = 0x00010000;
constexpr DWORD CERT_TRUST_HAS_WEAK_SIGNATURE = 0x00100000;
constexpr DWORD CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT = 0x08000000;

constexpr DWORD CERT_TRUST_HAS_EXACT_MATCH_ISSUER = 0x00000001;
constexpr DWORD CERT_TRUST_HAS_KEY_MATCH_ISSUER = 0x00000002;
constexpr DWORD CERT_TRUST_HAS_NAME_MATCH_ISSUER = 0x00000004;
constexpr DWORD CERT_TRUST_IS_SELF_SIGNED = 0x00000008;

typedef struct _CERT_CHAIN_ELEMENT
{
    DWORD cbSize;
    PCCERT_CONTEXT pCertContext;
    CERT_TRUST_STATUS TrustStatus;
    PCERT_REVOCATION_INFO pRevocationInfo;
    PCERT_ENHKEY_USAGE pIssuanceUsage;
    PCERT_ENHKEY_USAGE pApplicationUsage;
    LPCWSTR pwszExtendedErrorInfo;
} CERT_CHAIN_ELEMENT, *PCERT_CHAIN_ELEMENT;

typedef struct _CERT_SIMPLE_CHAIN
{
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cElement;
    PCERT_CHAIN_ELEMENT* rgpElement;
    PCERT_TRUST_LIST_INFO pTrustListInfo;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
} CERT_SIMPLE_CHAIN, *PCERT_SIMPLE_CHAIN;

struct GUID
{
    DWORD Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    BYTE Data4[8];
};

typedef struct _CERT_CHAIN_CONTEXT
{
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cChain;
    PCERT_SIMPLE_CHAIN* rgpChain;
    DWORD cLowerQualityChainContext;
    const _CERT_CHAIN_CONTEXT** rgpLowerQualityChainContext;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
    DWORD dwCreateFlags;
    GUID ChainId;
} CERT_CHAIN_CONTEXT;
using PCCERT_CHAIN_CONTEXT = const CERT_CHAIN_CONTEXT*;

// NOLINTEND(bugprone-reserved-identifier, modernize-use-using, performance-no-int-to-ptr)

#endif

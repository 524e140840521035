// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_LINUXTRUSTPLATFORM_H
#define FERRULE_LINUXTRUSTPLATFORM_H

#include "store/platform/TrustPlatform.h"

namespace vela {

/*!
    CryptoAPI's operations for Linux, which has no trust engine of its own.

    The store "ROOT" consists of the system's bundle of authorities and a directory of the user's
    own. Chains are built and judged with OpenSSL's help; revocation is not checked, and nothing is
    fetched from the network.
*/
class LinuxTrustPlatform : public TrustPlatform
{
public:
    HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) override;
    HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType, HCRYPTPROV_LEGACY provider,
                         DWORD flags, const void* parameter) override;
    BOOL controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) override;
    BOOL closeStore(HCERTSTORE store, DWORD flags) override;

    HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) override;
    /*!
        Only waits without end are offered. Unlike Windows, closeHandle() ends the wait for good:
        the callback does not run any more when it returns.
    */
    BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback, void* context,
                      DWORD milliseconds, DWORD flags) override;
    //! Also looks, once in a while, for changes of the roots that nobody has announced.
    DWORD pollEvent(HANDLE event) override;
    BOOL closeHandle(HANDLE handle) override;

    /*!
        Of the configuration the additional stores count; handles in it that are null are passed
        over. What restricts or replaces the roots is refused.
    */
    BOOL createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine) override;
    void freeChainEngine(HCERTCHAINENGINE engine) override;

    PCCERT_CONTEXT createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD length) override;
    BOOL freeCertificateContext(PCCERT_CONTEXT context) override;
    BOOL addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context, DWORD disposition,
                                      PCCERT_CONTEXT* added) override;

    BOOL getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context, FILETIME* time,
                             HCERTSTORE additionalStore, CERT_CHAIN_PARA* para, DWORD flags,
                             void* reserved, PCCERT_CHAIN_CONTEXT* chainContext) override;
    void freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext) override;

    BOOL addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                            DWORD length) override;

    DWORD lastError() override;
    //! There are no message texts here: the text is empty.
    DWORD formatMessage(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                        LPWSTR buffer, DWORD size) override;
};

} // namespace vela

#endif

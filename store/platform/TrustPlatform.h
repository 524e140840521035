// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TRUSTPLATFORM_H
#define FERRULE_TRUSTPLATFORM_H

#include "store/platform/CryptoApi.h"

#include <QtCore/qglobal.h>

namespace vela {

/*!
    What a system store needs of the operating system.

    Each operation stands for the CryptoAPI or kernel function named beside it, with that function's
    parameters, results and error codes; parameters that no caller has a use for are left out. After
    a failure lastError() tells the reason to the thread that met it.

    Every operation may be called from any thread. Handles passed in must be open, or null where
    that stands for something: for a store, context or chain that is closed or freed already, and as
    said below. A null handle is otherwise refused with `ERROR_INVALID_HANDLE`.
*/
class TrustPlatform
{
public:
    TrustPlatform() = default;
    virtual ~TrustPlatform() = default;

    /*!
        Returns the platform that stores work with: the operating system's own unless a test has
        replaced it.
    */
    static TrustPlatform& current();

    /*!
        Makes \a platform the current one, or the operating system's own again when it is null, and
        returns what was set before (null for the system's own). Not owned. A store made with one
        platform must be gone before another takes its place.
    */
    static TrustPlatform* setForTesting(TrustPlatform* platform);

    //! `CertOpenSystemStoreW`
    virtual HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) = 0;
    //! `CertOpenStore`
    virtual HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType,
                                 HCRYPTPROV_LEGACY provider, DWORD flags,
                                 const void* parameter) = 0;
    //! `CertControlStore`; \a parameter points to the event's handle.
    virtual BOOL controlStore(HCERTSTORE store, DWORD flags, DWORD control,
                              const void* parameter) = 0;
    //! `CertCloseStore`
    virtual BOOL closeStore(HCERTSTORE store, DWORD flags) = 0;

    //! `CreateEventW` without security attributes and name.
    virtual HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) = 0;
    //! `RegisterWaitForSingleObject`
    virtual BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback,
                              void* context, DWORD milliseconds, DWORD flags) = 0;
    //! `WaitForSingleObject` with time-out 0.
    virtual DWORD pollEvent(HANDLE event) = 0;
    //! `CloseHandle`, for events and registered waits; for the latter, Windows stops a debugger.
    virtual BOOL closeHandle(HANDLE handle) = 0;

    //! `CertCreateCertificateChainEngine`
    virtual BOOL createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine) = 0;
    //! `CertFreeCertificateChainEngine`; null is the default engine, which stays.
    virtual void freeChainEngine(HCERTCHAINENGINE engine) = 0;

    //! `CertCreateCertificateContext`
    virtual PCCERT_CONTEXT createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                                    DWORD length) = 0;
    //! `CertFreeCertificateContext`
    virtual BOOL freeCertificateContext(PCCERT_CONTEXT context) = 0;
    //! `CertAddCertificateContextToStore`
    virtual BOOL addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context,
                                              DWORD disposition, PCCERT_CONTEXT* added) = 0;

    //! `CertGetCertificateChain`; a null \a engine is the default engine, a null \a time now.
    //! Windows may fetch missing issuers over the network meanwhile, for seconds.
    virtual BOOL getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context,
                                     FILETIME* time, HCERTSTORE additionalStore,
                                     CERT_CHAIN_PARA* para, DWORD flags, void* reserved,
                                     PCCERT_CHAIN_CONTEXT* chainContext) = 0;
    //! `CertFreeCertificateChain`
    virtual void freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext) = 0;

    //! `CertAddEncodedCertificateToSystemStoreW`
    virtual BOOL addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                                    DWORD length) = 0;

    //! `GetLastError`
    virtual DWORD lastError() = 0;
    /*!
        `FormatMessageW` without inserts. May write to \a buffer although \a size is 0, as the
        function itself is at liberty to do: hand in a buffer that has room.
    */
    virtual DWORD formatMessage(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                                LPWSTR buffer, DWORD size) = 0;

private:
    Q_DISABLE_COPY(TrustPlatform)
};

/*!
    Returns the operating system's platform. Each system has one source that defines this; which one
    is built decides.
*/
TrustPlatform& systemTrustPlatform();

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/TrustPlatform.h"

#include <cstddef>

namespace vela {

namespace {

//! The sizes of the engine configuration before Windows 8 and before Windows 7, newest first.
constexpr DWORD OLDER_CONFIG_SIZES[] = {offsetof(CERT_CHAIN_ENGINE_CONFIG, dwExclusiveFlags),
                                        offsetof(CERT_CHAIN_ENGINE_CONFIG, hExclusiveRoot)};

//! Whether nothing is asked for that only a newer system knows.
bool usesNoExclusiveFields(const CERT_CHAIN_ENGINE_CONFIG& config)
{
    return !config.hExclusiveRoot && !config.hExclusiveTrustedPeople
           && config.dwExclusiveFlags == 0;
}

/*!
    Whether \a handle is null, with the reason for the caller's lastError(). What the functions make
    of null themselves differs: some end the process, and adding to no store makes a copy.
*/
bool isRefused(const void* handle)
{
    if (!handle)
        SetLastError(ERROR_INVALID_HANDLE);
    return !handle;
}

class WindowsTrustPlatform : public TrustPlatform
{
public:
    HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) override
    {
        return CertOpenSystemStoreW(provider, name);
    }

    HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType, HCRYPTPROV_LEGACY provider,
                         DWORD flags, const void* parameter) override
    {
        return CertOpenStore(storeProvider, encodingType, provider, flags, parameter);
    }

    BOOL controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) override
    {
        return !isRefused(store) && CertControlStore(store, flags, control, parameter);
    }

    //! A null handle stands for a store that is closed.
    BOOL closeStore(HCERTSTORE store, DWORD flags) override
    {
        return !store || CertCloseStore(store, flags);
    }

    HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) override
    {
        return CreateEventW(nullptr, manualReset, initiallySignalled, nullptr);
    }

    BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback, void* context,
                      DWORD milliseconds, DWORD flags) override
    {
        return !isRefused(event)
               && RegisterWaitForSingleObject(waitHandle, event, callback, context, milliseconds,
                                              flags);
    }

    DWORD pollEvent(HANDLE event) override
    {
        return isRefused(event) ? WAIT_FAILED : WaitForSingleObject(event, 0);
    }

    /*!
        A registered wait is closed with this call, too, and not unregistered. To the system, its
        handle is none of the kernel's: the call fails, and stops the process in a debugger.
    */
    BOOL closeHandle(HANDLE handle) override { return !isRefused(handle) && CloseHandle(handle); }

    /*!
        Systems before Windows 8 refuse the size of the current configuration. They would be left
        with the default engine, which knows nothing of the additional store, so they are asked
        again with a size that they know. A current system never sees the second call.
    */
    BOOL createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine) override
    {
        BOOL created = CertCreateCertificateChainEngine(config, engine);
        for (const DWORD size : OLDER_CONFIG_SIZES) {
            if (created || GetLastError() != static_cast<DWORD>(E_INVALIDARG)
                || !usesNoExclusiveFields(*config)) {
                break;
            }
            CERT_CHAIN_ENGINE_CONFIG older = *config;
            older.cbSize = size;
            created = CertCreateCertificateChainEngine(&older, engine);
        }
        return created;
    }

    void freeChainEngine(HCERTCHAINENGINE engine) override
    {
        if (engine)
            CertFreeCertificateChainEngine(engine);
    }

    PCCERT_CONTEXT createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD length) override
    {
        return CertCreateCertificateContext(encodingType, encoded, length);
    }

    BOOL freeCertificateContext(PCCERT_CONTEXT context) override
    {
        return !context || CertFreeCertificateContext(context);
    }

    BOOL addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context, DWORD disposition,
                                      PCCERT_CONTEXT* added) override
    {
        return !isRefused(store)
               && CertAddCertificateContextToStore(store, context, disposition, added);
    }

    //! May fetch missing issuers over the network, which takes seconds where that does not answer.
    BOOL getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context, FILETIME* time,
                             HCERTSTORE additionalStore, CERT_CHAIN_PARA* para, DWORD flags,
                             void* reserved, PCCERT_CHAIN_CONTEXT* chainContext) override
    {
        return CertGetCertificateChain(engine, context, time, additionalStore, para, flags,
                                       reserved, chainContext);
    }

    void freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext) override
    {
        if (chainContext)
            CertFreeCertificateChain(chainContext);
    }

    BOOL addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                            DWORD length) override
    {
        return CertAddEncodedCertificateToSystemStoreW(storeName, encoded, length);
    }

    DWORD lastError() override { return GetLastError(); }

    DWORD formatMessage(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                        LPWSTR buffer, DWORD size) override
    {
        return FormatMessageW(flags, source, messageId, languageId, buffer, size, nullptr);
    }
};

// At namespace scope, so that it is there before, and until after, every store of the host.
WindowsTrustPlatform platform;

} // namespace

TrustPlatform& systemTrustPlatform()
{
    return platform;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/LinuxTrustPlatform.h"

#include "store/platform/linux/ChainContext.h"
#include "store/platform/linux/ChainEngine.h"
#include "store/platform/linux/KernelObjects.h"
#include "store/platform/linux/MemoryStore.h"
#include "store/platform/linux/SystemRootStore.h"
#include "store/platform/linux/roots/ChangeWatcher.h"
#include "store/platform/linux/roots/UserRoots.h"

#include <cwchar>
#include <ctime>
#include <limits>
#include <optional>
#include <system_error>

namespace vela {

namespace {

constexpr LPCWSTR ROOT_STORE = L"ROOT";

thread_local DWORD lastErrorOfThread = ERROR_SUCCESS;

DWORD errorCode(std::int32_t result)
{
    return static_cast<DWORD>(result);
}

//! Keeps the reason for the caller's lastError() and returns whether there is none.
BOOL finish(DWORD error)
{
    if (error == ERROR_SUCCESS)
        return TRUE;
    lastErrorOfThread = error;
    return FALSE;
}

std::nullptr_t fail(DWORD error)
{
    lastErrorOfThread = error;
    return nullptr;
}

// An HCERTSTORE is a reference to the store, which its engines may outlive.
PlatformStorePtr storeOf(HCERTSTORE handle)
{
    return handle ? *static_cast<PlatformStorePtr*>(handle) : nullptr;
}

HCERTSTORE newStoreHandle(const PlatformStorePtr& store)
{
    return new PlatformStorePtr(store);
}

const CertificateContext* ownContext(PCCERT_CONTEXT context)
{
    return static_cast<const CertificateContext*>(context);
}

bool isEncoding(const BYTE* encoded, DWORD length)
{
    return encoded && length <= DWORD(std::numeric_limits<int>::max());
}

QByteArray bytesOf(const BYTE* encoded, DWORD length)
{
    return QByteArray(reinterpret_cast<const char*>(encoded), static_cast<int>(length));
}

bool restrictsRoots(const CERT_CHAIN_ENGINE_CONFIG& config)
{
    return config.hRestrictedRoot || config.hRestrictedTrust || config.hRestrictedOther
           || config.hExclusiveRoot || config.hExclusiveTrustedPeople;
}

//! A FILETIME counts tenths of microseconds since 1601.
qint64 secondsSinceEpoch(const FILETIME& time)
{
    constexpr qint64 TICKS_PER_SECOND = 10000000;
    constexpr qint64 SECONDS_FROM_1601_TO_1970 = 11644473600;
    const quint64 ticks = quint64(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return qint64(ticks / TICKS_PER_SECOND) - SECONDS_FROM_1601_TO_1970;
}

PathQuestion questionOf(const FILETIME* time, const CERT_CHAIN_PARA& para)
{
    PathQuestion question;
    question.time = time ? secondsSinceEpoch(*time) : qint64(std::time(nullptr));
    const CERT_ENHKEY_USAGE& usage = para.RequestedUsage.Usage;
    for (DWORD i = 0; i < usage.cUsageIdentifier; ++i)
        question.usages.emplace_back(usage.rgpszUsageIdentifier[i]);
    question.needsAllUsages = para.RequestedUsage.dwType == USAGE_MATCH_TYPE_AND;
    return question;
}

// At namespace scope, so that it is there before, and until after, every store of the host.
LinuxTrustPlatform platform;

} // namespace

HCERTSTORE LinuxTrustPlatform::openSystemStore(HCRYPTPROV_LEGACY, LPCWSTR name)
{
    if (!name || std::wcscmp(name, ROOT_STORE) != 0)
        return fail(ERROR_FILE_NOT_FOUND);
    return newStoreHandle(std::make_shared<SystemRootStore>());
}

HCERTSTORE LinuxTrustPlatform::openStore(LPCSTR storeProvider, DWORD, HCRYPTPROV_LEGACY, DWORD,
                                         const void*)
{
    if (storeProvider != CERT_STORE_PROV_MEMORY)
        return fail(ERROR_FILE_NOT_FOUND);
    return newStoreHandle(std::make_shared<MemoryStore>());
}

BOOL LinuxTrustPlatform::controlStore(HCERTSTORE store, DWORD, DWORD control, const void* parameter)
{
    const PlatformStorePtr target = storeOf(store);
    if (!target)
        return finish(ERROR_INVALID_HANDLE);
    const HANDLE event = parameter ? *static_cast<const HANDLE*>(parameter) : nullptr;
    return finish(target->control(control, eventOf(event)));
}

BOOL LinuxTrustPlatform::closeStore(HCERTSTORE store, DWORD)
{
    // Like CryptoAPI, which takes a null handle for a store that is closed.
    const std::unique_ptr<PlatformStorePtr> handle(static_cast<PlatformStorePtr*>(store));
    if (handle)
        (*handle)->close();
    return TRUE;
}

HANDLE LinuxTrustPlatform::createEvent(BOOL manualReset, BOOL initiallySignalled)
{
    return newEventHandle(
        std::make_shared<Event>(manualReset != FALSE, initiallySignalled != FALSE));
}

BOOL LinuxTrustPlatform::registerWait(HANDLE* waitHandle, HANDLE event,
                                      WAITORTIMERCALLBACK callback, void* context,
                                      DWORD milliseconds, DWORD flags)
{
    if (!waitHandle || !callback)
        return finish(ERROR_INVALID_PARAMETER);
    const EventPtr target = eventOf(event);
    if (!target)
        return finish(ERROR_INVALID_HANDLE);
    if (milliseconds != INFINITE || flags != 0)
        return finish(ERROR_CALL_NOT_IMPLEMENTED);
    try {
        *waitHandle = newWaitHandle(target, callback, context);
    } catch (const std::system_error&) {
        return finish(ERROR_NO_SYSTEM_RESOURCES);
    }
    return TRUE;
}

DWORD LinuxTrustPlatform::pollEvent(HANDLE event)
{
    const EventPtr target = eventOf(event);
    if (!target) {
        lastErrorOfThread = ERROR_INVALID_HANDLE;
        return WAIT_FAILED;
    }
    changeWatcher().lookFor(target);
    return target->take() ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL LinuxTrustPlatform::closeHandle(HANDLE handle)
{
    if (!handle)
        return finish(ERROR_INVALID_HANDLE);
    deleteKernelObject(handle);
    return TRUE;
}

BOOL LinuxTrustPlatform::createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config,
                                           HCERTCHAINENGINE* engine)
{
    if (!config || !engine || config->cbSize != sizeof *config || restrictsRoots(*config))
        return finish(errorCode(E_INVALIDARG));
    std::vector<PlatformStorePtr> stores;
    for (DWORD i = 0; i < config->cAdditionalStore; ++i) {
        if (const PlatformStorePtr store = storeOf(config->rghAdditionalStore[i]))
            stores.push_back(store);
    }
    *engine = new ChainEngine(rootCache().current(), stores);
    return TRUE;
}

void LinuxTrustPlatform::freeChainEngine(HCERTCHAINENGINE engine)
{
    delete static_cast<ChainEngine*>(engine);
}

PCCERT_CONTEXT LinuxTrustPlatform::createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                                            DWORD length)
{
    if (!(encodingType & X509_ASN_ENCODING) || !isEncoding(encoded, length))
        return fail(errorCode(E_INVALIDARG));
    const QByteArray der = bytesOf(encoded, length);
    const std::optional<CertificateOutline> outline = CertificateOutline::of(der);
    if (!outline || !outline->isDecodable())
        return fail(errorCode(CRYPT_E_ASN1_ERROR));
    return new CertificateContext(der, *outline);
}

BOOL LinuxTrustPlatform::freeCertificateContext(PCCERT_CONTEXT context)
{
    delete ownContext(context);
    return TRUE;
}

BOOL LinuxTrustPlatform::addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context,
                                                      DWORD disposition, PCCERT_CONTEXT* added)
{
    const PlatformStorePtr target = storeOf(store);
    if (!target)
        return finish(ERROR_INVALID_HANDLE);
    if (!context || disposition < CERT_STORE_ADD_NEW || disposition > CERT_STORE_ADD_ALWAYS)
        return finish(errorCode(E_INVALIDARG));
    const DWORD error = target->add(*ownContext(context), disposition);
    if (error == ERROR_SUCCESS && added)
        *added = new CertificateContext(ownContext(context)->der(), ownContext(context)->outline());
    return finish(error);
}

BOOL LinuxTrustPlatform::getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context,
                                             FILETIME* time, HCERTSTORE additionalStore,
                                             CERT_CHAIN_PARA* para, DWORD flags, void* reserved,
                                             PCCERT_CHAIN_CONTEXT* chainContext)
{
    if (!context || !para || para->cbSize < sizeof *para || reserved || !chainContext)
        return finish(errorCode(E_INVALIDARG));
    if (flags != 0)
        return finish(ERROR_CALL_NOT_IMPLEMENTED);
    const PlatformStorePtr store = storeOf(additionalStore);
    const ChainEngine source = engine ? ChainEngine(*static_cast<ChainEngine*>(engine), store)
                                      : ChainEngine(ChainEngine(rootCache().current(), {}), store);
    const std::optional<JudgedPath> path =
        source.judge(*ownContext(context), questionOf(time, *para));
    if (!path)
        return finish(errorCode(CRYPT_E_ASN1_ERROR));
    *chainContext = new ChainContext(*path);
    return TRUE;
}

void LinuxTrustPlatform::freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext)
{
    delete static_cast<const ChainContext*>(chainContext);
}

BOOL LinuxTrustPlatform::addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                                            DWORD length)
{
    if (!storeName || std::wcscmp(storeName, ROOT_STORE) != 0)
        return finish(ERROR_FILE_NOT_FOUND);
    if (!isEncoding(encoded, length))
        return finish(errorCode(E_INVALIDARG));
    return finish(addUserRoot(bytesOf(encoded, length)));
}

DWORD LinuxTrustPlatform::lastError()
{
    return lastErrorOfThread;
}

DWORD LinuxTrustPlatform::formatMessage(DWORD, const void*, DWORD, DWORD, LPWSTR buffer, DWORD)
{
    if (buffer)
        *buffer = L'\0';
    return 0;
}

TrustPlatform& systemTrustPlatform()
{
    return platform;
}

} // namespace vela

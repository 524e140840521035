// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedTrustPlatform.h"

#include <algorithm>
#include <thread>

namespace test {

namespace {

QString number(quintptr value)
{
    return QString::number(value);
}

QString wide(LPCWSTR text)
{
    return QString::fromWCharArray(text);
}

QString pointer(const void* value)
{
    return value ? QStringLiteral("set") : QStringLiteral("null");
}

//! Whether what lets an engine trust or fetch differently is left as the system has it.
QString restrictions(const CERT_CHAIN_ENGINE_CONFIG& config)
{
    const bool none = !config.hRestrictedRoot && !config.hRestrictedTrust
                      && !config.hRestrictedOther && !config.dwFlags
                      && !config.dwUrlRetrievalTimeout && !config.MaximumCachedCertificates
                      && !config.CycleDetectionModulus && !config.hExclusiveRoot
                      && !config.hExclusiveTrustedPeople && !config.dwExclusiveFlags;
    return none ? QStringLiteral("unrestricted") : QStringLiteral("restricted");
}

QString description(const CERT_CHAIN_PARA& para)
{
    const CERT_USAGE_MATCH& usage = para.RequestedUsage;
    return QStringLiteral("para(%1,%2,%3,%4)")
        .arg(para.cbSize)
        .arg(usage.dwType)
        .arg(usage.Usage.cUsageIdentifier)
        .arg(pointer(usage.Usage.rgpszUsageIdentifier));
}

} // namespace

ScriptedTrustPlatform::ScriptedTrustPlatform()
    : m_replaced(setForTesting(this))
{
}

ScriptedTrustPlatform::~ScriptedTrustPlatform()
{
    setForTesting(m_replaced);
}

QStringList ScriptedTrustPlatform::takeCalls()
{
    QStringList calls;
    calls.swap(m_calls);
    return calls;
}

QStringList ScriptedTrustPlatform::openHandles() const
{
    QStringList names;
    for (const auto& entry : m_open)
        names += entry.second.name;
    names.sort();
    return names;
}

void ScriptedTrustPlatform::nameCertificate(const QByteArray& der, const QString& name)
{
    m_certificates.insert(der, name);
}

void ScriptedTrustPlatform::fail(const QString& operation, DWORD code)
{
    m_failures.insert(operation, code);
}

void ScriptedTrustPlatform::repair(const QString& operation)
{
    m_failures.remove(operation);
}

void ScriptedTrustPlatform::setReport(const ChainReport& report)
{
    m_report = report;
}

void ScriptedTrustPlatform::setMessage(const std::wstring& message)
{
    m_message = message;
}

void ScriptedTrustPlatform::signalEvent()
{
    m_signalled = true;
}

void ScriptedTrustPlatform::fireWait(bool timedOut)
{
    std::thread poolThread(m_callback, m_waitContext, BOOLEAN(timedOut ? TRUE : FALSE));
    poolThread.join();
}

void* ScriptedTrustPlatform::waitContext() const
{
    return m_waitContext;
}

HCERTSTORE ScriptedTrustPlatform::openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name)
{
    note(QStringLiteral("openSystemStore"), {number(provider), wide(name)});
    return addOpaque(QStringLiteral("openSystemStore"), QStringLiteral("root"));
}

HCERTSTORE ScriptedTrustPlatform::openStore(LPCSTR storeProvider, DWORD encodingType,
                                            HCRYPTPROV_LEGACY provider, DWORD flags,
                                            const void* parameter)
{
    note(QStringLiteral("openStore"),
         {number(reinterpret_cast<quintptr>(storeProvider)), number(encodingType), number(provider),
          number(flags), pointer(parameter)});
    return addOpaque(QStringLiteral("openStore"), QStringLiteral("extra"));
}

BOOL ScriptedTrustPlatform::controlStore(HCERTSTORE store, DWORD flags, DWORD control,
                                         const void* parameter)
{
    note(QStringLiteral("controlStore"),
         {nameOf(store), number(flags), number(control), nameAt(parameter)});
    return noteOutcome(QStringLiteral("controlStore"), isOpen(store));
}

BOOL ScriptedTrustPlatform::closeStore(HCERTSTORE store, DWORD flags)
{
    note(QStringLiteral("closeStore"), {nameOf(store), number(flags)});
    return close(store);
}

HANDLE ScriptedTrustPlatform::createEvent(BOOL manualReset, BOOL initiallySignalled)
{
    note(QStringLiteral("createEvent"), {number(manualReset), number(initiallySignalled)});
    return addOpaque(QStringLiteral("createEvent"), QStringLiteral("event"));
}

BOOL ScriptedTrustPlatform::registerWait(HANDLE* waitHandle, HANDLE event,
                                         WAITORTIMERCALLBACK callback, void* context,
                                         DWORD milliseconds, DWORD flags)
{
    note(QStringLiteral("registerWait"),
         {nameAt(waitHandle), nameOf(event), number(milliseconds), number(flags)});
    if (!isOpen(event))
        return noteOutcome(QStringLiteral("registerWait"), false);
    m_callback = callback;
    m_waitContext = context;
    *waitHandle = addOpaque(QStringLiteral("registerWait"), QStringLiteral("wait"));
    return *waitHandle ? TRUE : FALSE;
}

DWORD ScriptedTrustPlatform::pollEvent(HANDLE event)
{
    note(QStringLiteral("pollEvent"), {nameOf(event)});
    if (!noteOutcome(QStringLiteral("pollEvent"), isOpen(event)))
        return WAIT_FAILED;
    const bool signalled = m_signalled;
    m_signalled = false;
    return signalled ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL ScriptedTrustPlatform::closeHandle(HANDLE handle)
{
    note(QStringLiteral("closeHandle"), {nameOf(handle)});
    return close(handle);
}

BOOL ScriptedTrustPlatform::createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config,
                                              HCERTCHAINENGINE* engine)
{
    note(QStringLiteral("createChainEngine"),
         {number(config->cbSize), number(config->cAdditionalStore),
          nameAt(config->rghAdditionalStore), restrictions(*config)});
    *engine = addOpaque(QStringLiteral("createChainEngine"),
                        QStringLiteral("engine %1").arg(++m_engines));
    return *engine ? TRUE : FALSE;
}

void ScriptedTrustPlatform::freeChainEngine(HCERTCHAINENGINE engine)
{
    note(QStringLiteral("freeChainEngine"), {nameOf(engine)});
    close(engine);
}

PCCERT_CONTEXT ScriptedTrustPlatform::createCertificateContext(DWORD encodingType,
                                                               const BYTE* encoded, DWORD length)
{
    const QString operation = QStringLiteral("createCertificateContext");
    const QString certificate = certificateName(encoded, length);
    note(operation, {number(encodingType), certificate});
    const QString own = operation + QLatin1Char(' ') + certificate;
    if (!noteOutcome(m_failures.contains(own) ? own : operation))
        return nullptr;
    return add(QStringLiteral("context of ") + certificate, std::make_shared<CERT_CONTEXT>());
}

BOOL ScriptedTrustPlatform::freeCertificateContext(PCCERT_CONTEXT context)
{
    note(QStringLiteral("freeCertificateContext"), {nameOf(context)});
    return close(context);
}

BOOL ScriptedTrustPlatform::addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context,
                                                         DWORD disposition, PCCERT_CONTEXT* added)
{
    const QString operation = QStringLiteral("addCertificateContextToStore");
    note(operation, {nameOf(store), nameOf(context), number(disposition), pointer(added)});
    return noteOutcome(operation, isOpen(store) && isOpen(context));
}

BOOL ScriptedTrustPlatform::getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context,
                                                FILETIME* time, HCERTSTORE additionalStore,
                                                CERT_CHAIN_PARA* para, DWORD flags, void* reserved,
                                                PCCERT_CHAIN_CONTEXT* chainContext)
{
    const QString operation = QStringLiteral("getCertificateChain");
    note(operation, {nameOf(engine), nameOf(context), pointer(time), nameOf(additionalStore),
                     description(*para), number(flags), pointer(reserved)});
    const bool engineIsUsable = !engine || isOpen(engine);
    if (!noteOutcome(operation, engineIsUsable && isOpen(context)))
        return FALSE;
    const QString name = nameOf(context).replace(QLatin1String("context"), QLatin1String("chain"));
    const auto chain = std::make_shared<ScriptedChain>(m_report);
    *chainContext = chain->get();
    m_open[chain->get()] = Handle{name, chain};
    return TRUE;
}

void ScriptedTrustPlatform::freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext)
{
    note(QStringLiteral("freeCertificateChain"), {nameOf(chainContext)});
    close(chainContext);
}

BOOL ScriptedTrustPlatform::addEncodedCertificateToSystemStore(LPCWSTR storeName,
                                                               const BYTE* encoded, DWORD length)
{
    const QString operation = QStringLiteral("addEncodedCertificateToSystemStore");
    note(operation, {wide(storeName), certificateName(encoded, length)});
    return noteOutcome(operation);
}

DWORD ScriptedTrustPlatform::lastError()
{
    note(QStringLiteral("lastError"), {});
    noteResult(number(m_lastError));
    return m_lastError;
}

DWORD ScriptedTrustPlatform::formatMessage(DWORD flags, const void* source, DWORD messageId,
                                           DWORD languageId, LPWSTR buffer, DWORD size)
{
    note(QStringLiteral("formatMessage"), {number(flags), pointer(source), number(messageId),
                                           number(languageId), pointer(buffer), number(size)});
    noteResult(number(0));
    std::copy(m_message.begin(), m_message.end(), buffer);
    return 0;
}

void ScriptedTrustPlatform::note(const QString& operation, const QStringList& arguments)
{
    m_calls += (QStringList(operation) + arguments).join(QLatin1Char(' '));
}

void ScriptedTrustPlatform::noteResult(const QString& result)
{
    m_calls.last() += QStringLiteral(" -> ") + result;
}

BOOL ScriptedTrustPlatform::noteOutcome(const QString& operation, bool handlesAreOpen)
{
    const auto failure = m_failures.constFind(operation);
    const bool worked = failure == m_failures.constEnd() && handlesAreOpen;
    if (!worked)
        m_lastError = handlesAreOpen ? failure.value() : ERROR_INVALID_HANDLE;
    noteResult(worked ? QStringLiteral("done") : QStringLiteral("failed"));
    return worked ? TRUE : FALSE;
}

template <typename T>
T* ScriptedTrustPlatform::add(const QString& name, std::shared_ptr<T> object)
{
    T* const handle = object.get();
    m_open[handle] = Handle{name, std::move(object)};
    return handle;
}

void* ScriptedTrustPlatform::addOpaque(const QString& operation, const QString& name)
{
    return noteOutcome(operation) ? add(name, std::make_shared<int>()) : nullptr;
}

bool ScriptedTrustPlatform::isOpen(const void* handle) const
{
    return m_open.count(handle) > 0;
}

BOOL ScriptedTrustPlatform::close(const void* handle)
{
    const auto entry = m_open.find(handle);
    if (entry == m_open.end())
        return FALSE;
    m_closed.push_back(entry->second);
    m_open.erase(entry);
    return TRUE;
}

QString ScriptedTrustPlatform::nameOf(const void* handle) const
{
    if (!handle)
        return QStringLiteral("null");
    const auto entry = m_open.find(handle);
    return entry == m_open.end() ? QStringLiteral("dangling") : entry->second.name;
}

QString ScriptedTrustPlatform::nameAt(const void* handlePointer) const
{
    return QLatin1Char('&') + nameOf(*static_cast<void* const*>(handlePointer));
}

QString ScriptedTrustPlatform::certificateName(const BYTE* encoded, DWORD length) const
{
    const QByteArray der(reinterpret_cast<const char*>(encoded), static_cast<int>(length));
    return m_certificates.value(der, QStringLiteral("unknown"));
}

} // namespace test

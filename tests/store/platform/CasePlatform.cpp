// SPDX-License-Identifier: BSD-3-Clause
#include "CasePlatform.h"

#include <QtCore/QVector>

namespace test {

CasePlatform::CasePlatform()
    : m_system(vela::systemTrustPlatform())
{
    vela::TrustPlatform::setForTesting(this);
}

CasePlatform::~CasePlatform()
{
    vela::TrustPlatform::setForTesting(nullptr);
}

void CasePlatform::ask(qint64 time, const QList<QByteArray>& usages)
{
    m_time = toFileTime(time);
    m_usages = usages;
    m_answer.reset();
}

BOOL CasePlatform::getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context, FILETIME*,
                                       HCERTSTORE additionalStore, CERT_CHAIN_PARA* para,
                                       DWORD flags, void* reserved,
                                       PCCERT_CHAIN_CONTEXT* chainContext)
{
    QVector<char*> usages;
    for (const QByteArray& usage : qAsConst(m_usages))
        usages.append(const_cast<char*>(usage.constData()));
    CERT_CHAIN_PARA withUsages = *para;
    withUsages.RequestedUsage.Usage = {DWORD(usages.size()), usages.data()};
    const BOOL success = m_system.getCertificateChain(engine, context, &m_time, additionalStore,
                                                      &withUsages, flags, reserved, chainContext);
    if (success)
        m_answer = answerOf(*chainContext);
    return success;
}

HCERTSTORE CasePlatform::openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name)
{
    return m_system.openSystemStore(provider, name);
}

HCERTSTORE CasePlatform::openStore(LPCSTR storeProvider, DWORD encodingType,
                                   HCRYPTPROV_LEGACY provider, DWORD flags, const void* parameter)
{
    return m_system.openStore(storeProvider, encodingType, provider, flags, parameter);
}

BOOL CasePlatform::controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter)
{
    return m_system.controlStore(store, flags, control, parameter);
}

BOOL CasePlatform::closeStore(HCERTSTORE store, DWORD flags)
{
    return m_system.closeStore(store, flags);
}

HANDLE CasePlatform::createEvent(BOOL manualReset, BOOL initiallySignalled)
{
    return m_system.createEvent(manualReset, initiallySignalled);
}

BOOL CasePlatform::registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback,
                                void* context, DWORD milliseconds, DWORD flags)
{
    return m_system.registerWait(waitHandle, event, callback, context, milliseconds, flags);
}

DWORD CasePlatform::pollEvent(HANDLE event)
{
    return m_system.pollEvent(event);
}

BOOL CasePlatform::closeHandle(HANDLE handle)
{
    return m_system.closeHandle(handle);
}

BOOL CasePlatform::createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine)
{
    return m_system.createChainEngine(config, engine);
}

void CasePlatform::freeChainEngine(HCERTCHAINENGINE engine)
{
    m_system.freeChainEngine(engine);
}

PCCERT_CONTEXT CasePlatform::createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                                      DWORD length)
{
    return m_system.createCertificateContext(encodingType, encoded, length);
}

BOOL CasePlatform::freeCertificateContext(PCCERT_CONTEXT context)
{
    return m_system.freeCertificateContext(context);
}

BOOL CasePlatform::addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context,
                                                DWORD disposition, PCCERT_CONTEXT* added)
{
    return m_system.addCertificateContextToStore(store, context, disposition, added);
}

void CasePlatform::freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext)
{
    m_system.freeCertificateChain(chainContext);
}

BOOL CasePlatform::addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                                      DWORD length)
{
    return m_system.addEncodedCertificateToSystemStore(storeName, encoded, length);
}

DWORD CasePlatform::lastError()
{
    return m_system.lastError();
}

DWORD CasePlatform::formatMessage(DWORD flags, const void* source, DWORD messageId,
                                  DWORD languageId, LPWSTR buffer, DWORD size)
{
    return m_system.formatMessage(flags, source, messageId, languageId, buffer, size);
}

} // namespace test

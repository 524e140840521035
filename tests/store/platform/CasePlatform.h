// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_CASEPLATFORM_H
#define FERRULE_TESTS_CASEPLATFORM_H

#include "ChainClient.h"

#include <optional>

namespace test {

/*!
    The system's trust platform, to which it adds what a store leaves out when it asks for a chain:
    the time and the usages of a case. Takes the system's place while it lives, and keeps the last
    answer, of which a store gives no more than a verdict.
*/
class CasePlatform : public vela::TrustPlatform
{
public:
    CasePlatform();
    ~CasePlatform() override;

    void ask(qint64 time, const QList<QByteArray>& usages);
    //! Of the last question; none if it got no chain.
    const std::optional<ChainAnswer>& answer() const { return m_answer; }

    HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) override;
    HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType, HCRYPTPROV_LEGACY provider,
                         DWORD flags, const void* parameter) override;
    BOOL controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) override;
    BOOL closeStore(HCERTSTORE store, DWORD flags) override;
    HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) override;
    BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback, void* context,
                      DWORD milliseconds, DWORD flags) override;
    DWORD pollEvent(HANDLE event) override;
    BOOL closeHandle(HANDLE handle) override;
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
    DWORD formatMessage(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                        LPWSTR buffer, DWORD size) override;

private:
    vela::TrustPlatform& m_system;
    FILETIME m_time = {};
    QList<QByteArray> m_usages;
    std::optional<ChainAnswer> m_answer;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/WinCertStore.h>

#include "store/platform/TrustPlatform.h"
#include "support/Connect.h"
#include "support/LogFailure.h"

#include <QtCore/QPointer>

#include <algorithm>

namespace vela {

namespace {

//! CertControlStore() knows no such flag; it is what this store has always passed.
constexpr DWORD WATCH_FLAGS = 2;

constexpr int MESSAGE_LENGTH = 4096;

TrustPlatform& platform()
{
    return TrustPlatform::current();
}

const BYTE* bytes(const QByteArray& der)
{
    return reinterpret_cast<const BYTE*>(der.constData());
}

QByteArray derOf(const SslCertificatePtr& cert)
{
    return cert ? SslCertificate::encodeDer(cert->x509()) : QByteArray();
}

bool isSelfSigned(const CERT_TRUST_STATUS& status)
{
    return status.dwInfoStatus & CERT_TRUST_IS_SELF_SIGNED;
}

/*!
    Whether the system calls the whole chain, its first simple chain or its end self-signed; or the
    last certificate, where that is a root that is not trusted: Windows says it of no more than
   that.
*/
bool isSelfSigned(const CERT_CHAIN_CONTEXT& context)
{
    if (isSelfSigned(context.TrustStatus))
        return true;
    if (context.cChain == 0)
        return false;
    const CERT_SIMPLE_CHAIN& first = *context.rgpChain[0];
    if (isSelfSigned(first.TrustStatus))
        return true;
    if (first.cElement == 0)
        return false;
    const bool isRootUntrusted = context.TrustStatus.dwErrorStatus & CERT_TRUST_IS_UNTRUSTED_ROOT;
    return isSelfSigned(first.rgpElement[0]->TrustStatus)
           || (isRootUntrusted && isSelfSigned(first.rgpElement[first.cElement - 1]->TrustStatus));
}

CertVerify verdictOn(const CERT_CHAIN_CONTEXT& context)
{
    const DWORD error = context.TrustStatus.dwErrorStatus;
    if (error == CERT_TRUST_NO_ERROR)
        return VerifyOk;
    if (isSelfSigned(context))
        return VerifySelfSigned;
    if (error & (CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_IS_NOT_TIME_NESTED))
        return VerifyExpired;
    return VerifyFailed;
}

/*
    Returns the system's text for an error code, as far as it gives one for these arguments: they
    are settled, although a size of 0 leaves the text to the system's discretion.
*/
std::wstring messageText(DWORD code)
{
    wchar_t text[MESSAGE_LENGTH];
    text[0] = L'\0'; // The system may leave the buffer as it is.
    platform().formatMessage(0, nullptr, code, 0, text, 0);
    return std::wstring(text, std::find(text, text + MESSAGE_LENGTH, L'\0'));
}

} // namespace

WinCertStore::WinCertStore(QObject* parent)
    : CertificateStore(parent)
{
    m_rootStore = platform().openSystemStore(0, L"ROOT");
    m_changeEvent = platform().createEvent(FALSE, FALSE);
    platform().controlStore(m_rootStore, WATCH_FLAGS, CERT_STORE_CTRL_NOTIFY_CHANGE,
                            &m_changeEvent);
    platform().registerWait(&m_waitHandle, m_changeEvent, storeModifiedCallback, this, INFINITE, 0);
    m_extraStore = platform().openStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING, 0,
                                        CERT_STORE_CREATE_NEW_FLAG, nullptr);
    m_chainEngine = createChainEngine(&m_extraStore);
}

WinCertStore::~WinCertStore()
{
    if (m_chainEngine)
        platform().freeChainEngine(m_chainEngine);
    if (m_extraStore)
        platform().closeStore(m_extraStore, CERT_CLOSE_STORE_FORCE_FLAG);
    if (m_rootStore) {
        platform().controlStore(m_rootStore, WATCH_FLAGS, CERT_STORE_CTRL_CANCEL_NOTIFY,
                                &m_changeEvent);
        platform().closeStore(m_rootStore, CERT_CLOSE_STORE_FORCE_FLAG);
    }
    if (m_changeEvent)
        platform().closeHandle(m_changeEvent);
    if (m_waitHandle)
        platform().closeHandle(m_waitHandle);
}

CertVerify WinCertStore::verify(const SslCertificateChain& chain)
{
    const PCCERT_CHAIN_CONTEXT context = createWinCryptChain(chain);
    if (!context)
        return VerifyFailed;
    const CertVerify verdict = verdictOn(*context);
    platform().freeCertificateChain(context);
    return verdict;
}

bool WinCertStore::importSystemRootCert(SslCertificatePtr cert)
{
    const QByteArray der = derOf(cert);
    if (der.isEmpty())
        return false;
    if (platform().addEncodedCertificateToSystemStore(L"ROOT", bytes(der), DWORD(der.size())))
        return true;
    const DWORD code = platform().lastError();
    logFailure("vela::WinCertStore::importSystemRootCert",
               std::to_wstring(code) + L": " + messageText(code));
    return false;
}

HCERTCHAINENGINE WinCertStore::createChainEngine(HCERTSTORE* additionalStore)
{
    CERT_CHAIN_ENGINE_CONFIG config = {};
    config.cbSize = sizeof config;
    config.cAdditionalStore = 1;
    config.rghAdditionalStore = additionalStore;
    HCERTCHAINENGINE engine = nullptr;
    if (platform().createChainEngine(&config, &engine))
        return engine;
    logFailure("vela::WinCertStore::createChainEngine",
               L"Initialisation of Certificiate Chain Engine failed: ", platform().lastError());
    return nullptr;
}

PCCERT_CONTEXT WinCertStore::createWinCryptCert(SslCertificatePtr cert)
{
    const QByteArray der = derOf(cert);
    if (der.isEmpty())
        return nullptr;
    return platform().createCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, bytes(der),
                                               DWORD(der.size()));
}

PCCERT_CHAIN_CONTEXT WinCertStore::createWinCryptChain(const SslCertificateChain& chain)
{
    static const char* const function = "vela::WinCertStore::createWinCryptChain";
    if (platform().pollEvent(m_changeEvent) == WAIT_OBJECT_0) {
        const QPointer<WinCertStore> alive(this);
        resetChainEngine();
        if (!alive)
            return nullptr; // Destroyed by a slot of the host.
    }

    const PCCERT_CONTEXT endContext = createWinCryptCert(chain.endCert());
    if (!endContext) {
        logFailure(function, L"Could not encode end certificate ", platform().lastError());
        return nullptr;
    }
    offerIntermediates(chain);

    CERT_CHAIN_PARA para = {};
    para.cbSize = sizeof para;
    para.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    PCCERT_CHAIN_CONTEXT chainContext = nullptr;
    if (!platform().getCertificateChain(m_chainEngine, endContext, nullptr, nullptr, &para, 0,
                                        nullptr, &chainContext)) {
        logFailure(function, L"Certificate Chain failed ", platform().lastError());
        chainContext = nullptr;
    }
    platform().freeCertificateContext(endContext);
    return chainContext;
}

void WinCertStore::offerIntermediates(const SslCertificateChain& chain)
{
    for (int i = 1; i < chain.size(); ++i) {
        const PCCERT_CONTEXT context = createWinCryptCert(chain.at(i));
        if (!context)
            continue;
        platform().addCertificateContextToStore(m_extraStore, context,
                                                CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
        // The store has made a copy.
        platform().freeCertificateContext(context);
    }
}

SslCertificateChain WinCertStore::toCertChain(PCCERT_CHAIN_CONTEXT chainContext)
{
    SslCertificateChain certificates;
    if (!chainContext)
        return certificates;
    for (DWORD i = 0; i < chainContext->cChain; ++i) {
        const CERT_SIMPLE_CHAIN& simpleChain = *chainContext->rgpChain[i];
        for (DWORD j = 0; j < simpleChain.cElement; ++j) {
            const CERT_CONTEXT& context = *simpleChain.rgpElement[j]->pCertContext;
            x509_st* const x509 = SslCertificate::readDer(context.pbCertEncoded,
                                                          static_cast<int>(context.cbCertEncoded));
            certificates << SslCertificatePtr(new SslCertificate(x509, true));
        }
    }
    return certificates;
}

void WinCertStore::resetChainEngine()
{
    // Also asks for the next notification.
    platform().controlStore(m_rootStore, WATCH_FLAGS, CERT_STORE_CTRL_RESYNC, &m_changeEvent);
    platform().controlStore(m_extraStore, WATCH_FLAGS, CERT_STORE_CTRL_RESYNC, &m_changeEvent);
    if (m_chainEngine)
        platform().freeChainEngine(m_chainEngine);
    m_chainEngine = createChainEngine(&m_extraStore);
    Q_EMIT systemUpdated();
}

void WinCertStore::storeModifiedCallback(void* context, BOOLEAN timedOut)
{
    if (!timedOut)
        invokeSlotQueued(static_cast<WinCertStore*>(context), "1resetChainEngine()");
}

} // namespace vela

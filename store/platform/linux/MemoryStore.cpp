// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/MemoryStore.h"

#include "store/platform/linux/ChainContext.h"

namespace vela {

CertificateContext::CertificateContext(const TrustCertificatePtr& certificate)
    : CERT_CONTEXT(certificateContext(*certificate))
    , m_certificate(certificate)
{
}

CertificateContext::~CertificateContext()
{
    for (const std::weak_ptr<MemoryStore>& entry : m_stores) {
        if (const std::shared_ptr<MemoryStore> store = entry.lock())
            store->forget(this);
    }
}

void CertificateContext::noteStore(const std::shared_ptr<MemoryStore>& store)
{
    m_stores.push_back(store);
}

std::vector<TrustCertificatePtr> MemoryStore::issuersOf(const TrustCertificate& certificate) const
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return m_certificates.issuersOf(certificate);
}

DWORD MemoryStore::add(CertificateContext* context, DWORD disposition)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    // Equal certificates are one object, so that there is nothing to replace.
    const bool isNew = m_certificates.add(context->certificate());
    if (!isNew && disposition == CERT_STORE_ADD_NEW)
        return static_cast<DWORD>(CRYPT_E_EXISTS);
    if (m_contexts.insert(context).second)
        context->noteStore(shared_from_this());
    return ERROR_SUCCESS;
}

//! There is nothing outside the memory to keep step with.
DWORD MemoryStore::control(DWORD, const EventPtr&)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

void MemoryStore::close(DWORD flags)
{
    if (!(flags & CERT_CLOSE_STORE_FORCE_FLAG))
        return;
    std::unordered_set<CertificateContext*> contexts;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        contexts.swap(m_contexts);
    }
    for (CertificateContext* context : contexts)
        delete context;
}

void MemoryStore::forget(CertificateContext* context)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    m_contexts.erase(context);
}

} // namespace vela

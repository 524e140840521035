// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_MEMORYSTORE_H
#define FERRULE_MEMORYSTORE_H

#include "store/platform/linux/PlatformStore.h"

#include <mutex>
#include <unordered_set>

namespace vela {

class MemoryStore;

/*! What a `PCCERT_CONTEXT` made by the platform points to. */
class CertificateContext : public CERT_CONTEXT
{
public:
    explicit CertificateContext(const TrustCertificatePtr& certificate);
    ~CertificateContext();

    const TrustCertificatePtr& certificate() const { return m_certificate; }
    void noteStore(const std::shared_ptr<MemoryStore>& store);

private:
    Q_DISABLE_COPY(CertificateContext)

    const TrustCertificatePtr m_certificate;
    std::vector<std::weak_ptr<MemoryStore>> m_stores;
};

/*!
    A store that lives in memory and only grows. Closing it by force frees the contexts that were
    added to it and have not been freed since, which is how users that leave that to the store get
    by without leaks.
*/
class MemoryStore : public PlatformStore, public std::enable_shared_from_this<MemoryStore>
{
public:
    std::vector<TrustCertificatePtr> issuersOf(const TrustCertificate& certificate) const override;
    DWORD add(CertificateContext* context, DWORD disposition) override;
    DWORD control(DWORD control, const EventPtr& event) override;
    void close(DWORD flags) override;

    void forget(CertificateContext* context);

private:
    mutable std::mutex m_mutex;
    CertificateIndex m_certificates;
    std::unordered_set<CertificateContext*> m_contexts;
};

} // namespace vela

#endif

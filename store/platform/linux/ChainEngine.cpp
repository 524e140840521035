// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/ChainEngine.h"

#include <unordered_set>

namespace vela {

namespace {

std::vector<PlatformStorePtr> withStore(std::vector<PlatformStorePtr> stores,
                                        const PlatformStorePtr& store)
{
    if (store)
        stores.push_back(store);
    return stores;
}

} // namespace

ChainEngine::ChainEngine(const RootSetPtr& roots, const std::vector<PlatformStorePtr>& stores)
    : m_roots(roots)
    , m_stores(stores)
{
}

ChainEngine::ChainEngine(const ChainEngine& other, const PlatformStorePtr& store)
    : m_roots(other.m_roots)
    , m_stores(withStore(other.m_stores, store))
{
}

bool ChainEngine::isTrusted(const TrustCertificatePtr& certificate) const
{
    return m_roots->certificates.contains(certificate);
}

std::vector<TrustCertificatePtr> ChainEngine::issuersOf(const TrustCertificate& certificate) const
{
    std::vector<TrustCertificatePtr> issuers = m_roots->certificates.issuersOf(certificate);
    std::unordered_set<TrustCertificatePtr> known(issuers.begin(), issuers.end());
    for (const PlatformStorePtr& store : m_stores) {
        for (const TrustCertificatePtr& issuer : store->issuersOf(certificate)) {
            if (known.insert(issuer).second)
                issuers.push_back(issuer);
        }
    }
    return issuers;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/ChainEngine.h"

#include "store/validation/PathBuilder.h"

#include <algorithm>
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

std::optional<JudgedPath> ChainEngine::judge(const CertificateContext& context,
                                             PathQuestion question) const
{
    WorkBudget decoding(question.limits.decoding);
    decoding.spend(context.outline().cost());
    question.certificate = DecodedCertificate::fromDer(context.der());
    if (!question.certificate)
        return std::nullopt;
    for (const PlatformStorePtr& store : m_stores)
        store->prepare(&decoding);
    JudgedPath best = PathBuilder(*this, question).build().best;
    if (best.errors == NoPathError)
        noteProven(best.path);
    return best;
}

//! The end certificate has not proven that it may issue any.
void ChainEngine::noteProven(const CertificatePath& path) const
{
    for (std::size_t i = 1; i < path.elements.size(); ++i) {
        for (const PlatformStorePtr& store : m_stores)
            store->noteProven(path.elements[i].certificate);
    }
}

bool ChainEngine::isProven(const DecodedCertificatePtr& certificate) const
{
    return std::any_of(m_stores.begin(), m_stores.end(),
                       [&certificate](const auto& store) { return store->isProven(certificate); });
}

bool ChainEngine::isTrusted(const DecodedCertificatePtr& certificate) const
{
    return m_roots->certificates.contains(certificate);
}

std::vector<DecodedCertificatePtr>
ChainEngine::issuersOf(const DecodedCertificate& certificate) const
{
    std::vector<DecodedCertificatePtr> issuers = m_roots->certificates.issuersOf(certificate);
    std::unordered_set<DecodedCertificatePtr> known(issuers.begin(), issuers.end());
    for (const PlatformStorePtr& store : m_stores) {
        for (const DecodedCertificatePtr& issuer : store->issuersOf(certificate)) {
            if (known.insert(issuer).second)
                issuers.push_back(issuer);
        }
    }
    return issuers;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHAINENGINE_H
#define FERRULE_CHAINENGINE_H

#include "store/platform/linux/ChainBuilder.h"
#include "store/platform/linux/PlatformStore.h"
#include "store/platform/linux/RootCache.h"

namespace vela {

/*!
    What an `HCERTCHAINENGINE` stands for: the roots as they were when it was made, and the stores
    that add issuers to them.
*/
class ChainEngine : public CertificateSource
{
public:
    ChainEngine(const RootSetPtr& roots, const std::vector<PlatformStorePtr>& stores);
    //! An engine like \a other that also takes issuers from \a store, which may be null.
    ChainEngine(const ChainEngine& other, const PlatformStorePtr& store);

    bool isTrusted(const TrustCertificatePtr& certificate) const override;
    std::vector<TrustCertificatePtr> issuersOf(const TrustCertificate& certificate) const override;

private:
    const RootSetPtr m_roots;
    const std::vector<PlatformStorePtr> m_stores;
};

} // namespace vela

#endif

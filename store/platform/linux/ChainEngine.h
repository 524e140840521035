// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHAINENGINE_H
#define FERRULE_CHAINENGINE_H

#include "store/platform/linux/CertificateContext.h"
#include "store/platform/linux/PlatformStore.h"
#include "store/platform/linux/roots/RootCache.h"
#include "store/validation/CertificatePath.h"

#include <optional>

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

    /*!
        Returns the best path for \a question, whose certificate has the encoding of \a context;
        nothing when that is no certificate.
    */
    std::optional<JudgedPath> judge(const CertificateContext& context, PathQuestion question) const;

    bool isTrusted(const DecodedCertificatePtr& certificate) const override;
    bool isProven(const DecodedCertificatePtr& certificate) const override;
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override;

private:
    void noteProven(const CertificatePath& path) const;

    const RootSetPtr m_roots;
    const std::vector<PlatformStorePtr> m_stores;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PLATFORMSTORE_H
#define FERRULE_PLATFORMSTORE_H

#include "store/platform/CryptoApi.h"
#include "store/platform/linux/Event.h"
#include "store/validation/DecodedCertificate.h"
#include "store/validation/WorkBudget.h"

#include <memory>
#include <vector>

namespace vela {

class CertificateContext;

/*! What an `HCERTSTORE` stands for. Operations return `ERROR_SUCCESS` or the reason for failing. */
class PlatformStore
{
public:
    PlatformStore() = default;
    virtual ~PlatformStore() = default;

    //! Decodes what was added since the last time, as far as \a budget goes.
    virtual void prepare(WorkBudget* budget) = 0;
    virtual std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const = 0;
    virtual bool isProven(const DecodedCertificatePtr& certificate) const = 0;
    //! Takes note that \a certificate has stood above another in a path that was in order.
    virtual void noteProven(const DecodedCertificatePtr& certificate) = 0;

    virtual DWORD add(const CertificateContext& context, DWORD disposition) = 0;
    virtual DWORD control(DWORD control, const EventPtr& event) = 0;
    //! Ends what goes on for the handle; engines may still use the certificates.
    virtual void close() = 0;

private:
    Q_DISABLE_COPY(PlatformStore)
};

using PlatformStorePtr = std::shared_ptr<PlatformStore>;

} // namespace vela

#endif

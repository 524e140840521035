// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PLATFORMSTORE_H
#define FERRULE_PLATFORMSTORE_H

#include "store/platform/CryptoApi.h"
#include "store/platform/linux/CertificateIndex.h"
#include "store/platform/linux/Event.h"

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

    virtual std::vector<TrustCertificatePtr>
    issuersOf(const TrustCertificate& certificate) const = 0;
    virtual DWORD add(CertificateContext* context, DWORD disposition) = 0;
    virtual DWORD control(DWORD control, const EventPtr& event) = 0;
    //! Ends what goes on for the handle; engines may still use the certificates.
    virtual void close(DWORD flags) = 0;

private:
    Q_DISABLE_COPY(PlatformStore)
};

using PlatformStorePtr = std::shared_ptr<PlatformStore>;

} // namespace vela

#endif

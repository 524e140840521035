// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SYSTEMROOTSTORE_H
#define FERRULE_SYSTEMROOTSTORE_H

#include "store/platform/linux/PlatformStore.h"

namespace vela {

/*! The trusted roots as a store: says when they change, and is written to only by importing. */
class SystemRootStore : public PlatformStore
{
public:
    SystemRootStore() = default;
    ~SystemRootStore() override;

    void prepare(WorkBudget* budget) override;
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override;
    bool isProven(const DecodedCertificatePtr& certificate) const override;
    void noteProven(const DecodedCertificatePtr& certificate) override;
    DWORD add(const CertificateContext& context, DWORD disposition) override;
    DWORD control(DWORD control, const EventPtr& event) override;
    void close() override;

private:
    DWORD notifyChange(const EventPtr& event);
    DWORD resynchronise(const EventPtr& event);
    DWORD cancelNotify(const EventPtr& event);
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_MEMORYSTORE_H
#define FERRULE_MEMORYSTORE_H

#include "store/platform/linux/PlatformStore.h"
#include "store/validation/IntermediateMemory.h"

#include <mutex>

namespace vela {

/*!
    A store that lives in memory. It has its own copy of what is added; contexts stay their makers'.
    What it remembers is bounded as IntermediateMemory says.
*/
class MemoryStore : public PlatformStore
{
public:
    void prepare(WorkBudget* budget) override;
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override;
    bool isProven(const DecodedCertificatePtr& certificate) const override;
    void noteProven(const DecodedCertificatePtr& certificate) override;
    DWORD add(const CertificateContext& context, DWORD disposition) override;
    DWORD control(DWORD control, const EventPtr& event) override;
    void close() override;

private:
    mutable std::mutex m_mutex;
    IntermediateMemory m_certificates;
};

} // namespace vela

#endif

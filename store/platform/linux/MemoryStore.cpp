// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/MemoryStore.h"

#include "store/platform/linux/CertificateContext.h"

namespace vela {

void MemoryStore::prepare(WorkBudget* budget)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    m_certificates.prepare(budget);
}

std::vector<DecodedCertificatePtr>
MemoryStore::issuersOf(const DecodedCertificate& certificate) const
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return m_certificates.issuersOf(certificate);
}

bool MemoryStore::isProven(const DecodedCertificatePtr& certificate) const
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return m_certificates.isProven(certificate);
}

void MemoryStore::noteProven(const DecodedCertificatePtr& certificate)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    m_certificates.noteProven(certificate);
}

DWORD MemoryStore::add(const CertificateContext& context, DWORD disposition)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    // Equal certificates are one object, so that there is nothing to replace.
    const bool isNew = m_certificates.add(context.der(), context.outline());
    if (!isNew && disposition == CERT_STORE_ADD_NEW)
        return static_cast<DWORD>(CRYPT_E_EXISTS);
    return ERROR_SUCCESS;
}

//! There is nothing outside the memory to keep step with.
DWORD MemoryStore::control(DWORD, const EventPtr&)
{
    return ERROR_CALL_NOT_IMPLEMENTED;
}

void MemoryStore::close()
{
}

} // namespace vela

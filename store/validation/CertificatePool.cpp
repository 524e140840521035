// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/CertificatePool.h"

#include <iterator>

namespace vela {

namespace {

// At namespace scope, so that it is there before, and until after, every store of the host.
CertificatePool pool;

} // namespace

DecodedCertificatePtr CertificatePool::find(const QByteArray& der)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    return m_certificates.value(der).lock();
}

DecodedCertificatePtr CertificatePool::insert(const DecodedCertificatePtr& certificate)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    std::weak_ptr<const DecodedCertificate>& entry = m_certificates[certificate->der()];
    if (DecodedCertificatePtr other = entry.lock())
        return other;
    entry = certificate;
    keep(certificate);
    m_bytesSinceSweep += certificate->der().size();
    if (m_certificates.size() > m_sweepAt || m_bytesSinceSweep > MAX_SWEPT_BYTES)
        sweep();
    return certificate;
}

void CertificatePool::keep(const DecodedCertificatePtr& certificate)
{
    if (certificate->der().size() > MAX_KEPT_SIZE
        || certificate->outline().footprint() > MAX_KEPT_FOOTPRINT)
        return;
    m_kept[m_nextKept] = certificate;
    m_nextKept = (m_nextKept + 1) % m_kept.size();
}

void CertificatePool::sweep()
{
    for (auto entry = m_certificates.begin(); entry != m_certificates.end();)
        entry = entry->expired() ? m_certificates.erase(entry) : std::next(entry);
    m_sweepAt = qMax(FIRST_SWEEP, 2 * m_certificates.size());
    m_bytesSinceSweep = 0;
}

CertificatePool& certificatePool()
{
    return pool;
}

} // namespace vela

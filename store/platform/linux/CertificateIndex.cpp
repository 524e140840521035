// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/CertificateIndex.h"

namespace vela {

bool CertificateIndex::add(const TrustCertificatePtr& certificate)
{
    if (!m_certificates.insert(certificate).second)
        return false;
    m_bySubject.emplace(certificate->subjectHash(), certificate);
    return true;
}

bool CertificateIndex::contains(const TrustCertificatePtr& certificate) const
{
    return m_certificates.count(certificate) != 0;
}

std::vector<TrustCertificatePtr>
CertificateIndex::issuersOf(const TrustCertificate& certificate) const
{
    std::vector<TrustCertificatePtr> issuers;
    const auto range = m_bySubject.equal_range(certificate.issuerHash());
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (certificate.namesIssuer(*entry->second))
            issuers.push_back(entry->second);
    }
    return issuers;
}

} // namespace vela

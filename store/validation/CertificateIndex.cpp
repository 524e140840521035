// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/CertificateIndex.h"

#include <algorithm>

namespace vela {

bool CertificateIndex::add(const DecodedCertificatePtr& certificate)
{
    const bool isNew = m_certificates.count(certificate) == 0;
    m_certificates[certificate] = ++m_additions;
    if (isNew)
        m_bySubject.emplace(certificate->subjectHash(), certificate);
    return isNew;
}

bool CertificateIndex::contains(const DecodedCertificatePtr& certificate) const
{
    return m_certificates.count(certificate) != 0;
}

std::vector<DecodedCertificatePtr>
CertificateIndex::issuersOf(const DecodedCertificate& certificate) const
{
    std::vector<DecodedCertificatePtr> issuers;
    const auto range = m_bySubject.equal_range(certificate.issuerHash());
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (certificate.namesIssuer(*entry->second))
            issuers.push_back(entry->second);
    }
    std::sort(issuers.begin(), issuers.end(), [this](const auto& left, const auto& right) {
        return m_certificates.at(left) > m_certificates.at(right);
    });
    return issuers;
}

} // namespace vela

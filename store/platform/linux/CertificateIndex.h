// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEINDEX_H
#define FERRULE_CERTIFICATEINDEX_H

#include "store/platform/linux/TrustCertificate.h"

#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vela {

/*! A set of certificates that finds issuers by name. */
class CertificateIndex
{
public:
    //! Returns false when \a certificate is there already.
    bool add(const TrustCertificatePtr& certificate);
    bool contains(const TrustCertificatePtr& certificate) const;
    std::vector<TrustCertificatePtr> issuersOf(const TrustCertificate& certificate) const;
    std::size_t size() const { return m_certificates.size(); }

private:
    std::unordered_set<TrustCertificatePtr> m_certificates;
    std::unordered_multimap<unsigned long, TrustCertificatePtr> m_bySubject;
};

} // namespace vela

#endif

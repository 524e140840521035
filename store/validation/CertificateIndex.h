// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEINDEX_H
#define FERRULE_CERTIFICATEINDEX_H

#include "store/validation/DecodedCertificate.h"

#include <QtCore/qglobal.h>

#include <unordered_map>
#include <vector>

namespace vela {

/*! A set of certificates that finds issuers by name, those added last before the others. */
class CertificateIndex
{
public:
    //! Returns false when \a certificate is there already; it counts as added now all the same.
    bool add(const DecodedCertificatePtr& certificate);
    bool contains(const DecodedCertificatePtr& certificate) const;
    std::vector<DecodedCertificatePtr> issuersOf(const DecodedCertificate& certificate) const;
    std::size_t size() const { return m_certificates.size(); }

private:
    std::unordered_map<DecodedCertificatePtr, quint64> m_certificates; //!< And when each was added.
    quint64 m_additions = 0;
    std::unordered_multimap<unsigned long, DecodedCertificatePtr> m_bySubject;
};

} // namespace vela

#endif

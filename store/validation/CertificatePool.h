// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEPOOL_H
#define FERRULE_CERTIFICATEPOOL_H

#include "store/validation/DecodedCertificate.h"

#include <QtCore/QHash>

#include <array>
#include <memory>
#include <mutex>

namespace vela {

/*!
    The certificates in use, by encoding, and the last that were decoded: hosts meet the same peers
    again, and to decode a certificate can take longer than to judge a chain. Entries of
    certificates that have gone are swept up, at the latest when their encodings take
    `MAX_SWEPT_BYTES`.
*/
class CertificatePool
{
public:
    static constexpr std::size_t KEPT = 128;
    //! Peers that send large ones do not get to fill the memory with them.
    static constexpr int MAX_KEPT_SIZE = 8 * 1024;
    static constexpr std::size_t MAX_KEPT_FOOTPRINT = 48 * 1024;
    static constexpr qint64 MAX_SWEPT_BYTES = 2 * 1024 * 1024;

    CertificatePool() = default;

    DecodedCertificatePtr find(const QByteArray& der);
    //! Returns \a certificate, or the equal one that another thread was faster with.
    DecodedCertificatePtr insert(const DecodedCertificatePtr& certificate);

private:
    Q_DISABLE_COPY(CertificatePool)

    void keep(const DecodedCertificatePtr& certificate);
    void sweep();

    static constexpr int FIRST_SWEEP = 512;

    std::mutex m_mutex;
    QHash<QByteArray, std::weak_ptr<const DecodedCertificate>> m_certificates;
    int m_sweepAt = FIRST_SWEEP;
    qint64 m_bytesSinceSweep = 0;
    std::array<DecodedCertificatePtr, KEPT> m_kept;
    std::size_t m_nextKept = 0;
};

//! The process's own.
CertificatePool& certificatePool();

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_INTERMEDIATEMEMORY_H
#define FERRULE_INTERMEDIATEMEMORY_H

#include "store/validation/DecodedCertificate.h"
#include "store/validation/WorkBudget.h"

#include <QtCore/QHash>

#include <map>
#include <unordered_map>
#include <vector>

namespace vela {

/*!
    Certificates that were shown along with others, which later chains may lack.

    Strangers can show what they like, so that it is bounded what they leave behind: of what has not
    proven itself, the oldest goes first, and it never takes the place of what has. A certificate is
    proven when it has stood above another in a path that was in order.

    New certificates are decoded by prepare(), as far as its budget goes; the rest is forgotten.
*/
class IntermediateMemory
{
public:
    /*! What either kind of certificates may take; in bytes of memory, roughly. */
    struct Limits
    {
        std::size_t count;
        std::size_t footprint;
    };
    static constexpr Limits UNPROVEN = {400, 6 * 1024 * 1024};
    static constexpr Limits PROVEN = {700, 10 * 1024 * 1024};

    IntermediateMemory() = default;

    /*!
        Remembers the certificate with the encoding \a der, as the newest. Returns false when it is
        there already. What is no certificate is forgotten by prepare().
    */
    bool add(const QByteArray& der, const CertificateOutline& outline);
    void prepare(WorkBudget* budget);
    void noteProven(const DecodedCertificatePtr& certificate);

    bool isProven(const DecodedCertificatePtr& certificate) const;
    //! Returns what bears the name of \a certificate's issuer, the newest first.
    std::vector<DecodedCertificatePtr> issuersOf(const DecodedCertificate& certificate) const;

    std::size_t count() const { return m_entries.size(); }
    std::size_t footprint() const { return m_unproven.footprint + m_proven.footprint; }

private:
    Q_DISABLE_COPY(IntermediateMemory)

    struct Entry
    {
        QByteArray der;
        CertificateOutline outline;
        DecodedCertificatePtr certificate; //!< Null until it is decoded.
        quint64 order = 0;
        bool isProven = false;
    };

    //! The entries of one kind, by the order in which they were shown.
    struct Kind
    {
        Limits limits;
        std::map<quint64, Entry*> entries;
        std::size_t footprint = 0;

        bool isOverfull() const;
    };

    Kind& kindOf(const Entry& entry) { return entry.isProven ? m_proven : m_unproven; }
    void enter(Entry* entry);
    void leave(Entry* entry);
    void forget(Entry* entry);
    void makeRoom(Kind* kind);

    struct DerHash
    {
        std::size_t operator()(const QByteArray& der) const { return qHash(der); }
    };

    std::unordered_map<QByteArray, Entry, DerHash> m_entries;
    std::unordered_multimap<unsigned long, Entry*> m_bySubject; //!< Those that are decoded.
    std::vector<Entry*> m_pending;                              //!< Those that are not.
    Kind m_unproven = {UNPROVEN, {}, 0};
    Kind m_proven = {PROVEN, {}, 0};
    quint64 m_additions = 0;
};

} // namespace vela

#endif

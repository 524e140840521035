// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/IntermediateMemory.h"

#include <algorithm>

namespace vela {

bool IntermediateMemory::Kind::isOverfull() const
{
    return entries.size() > limits.count || footprint > limits.footprint;
}

bool IntermediateMemory::add(const QByteArray& der, const CertificateOutline& outline)
{
    const auto known = m_entries.find(der);
    if (known != m_entries.end()) {
        Entry* const entry = &known->second;
        leave(entry);
        entry->order = ++m_additions;
        enter(entry);
        return false;
    }
    // Not decodable, or larger than everything else together may be: not worth a place.
    if (!outline.isDecodable() || outline.footprint() > UNPROVEN.footprint)
        return true;
    Entry* const entry = &m_entries[der];
    *entry = {der, outline, nullptr, ++m_additions, false};
    enter(entry);
    m_pending.push_back(entry);
    makeRoom(&m_unproven);
    return true;
}

void IntermediateMemory::prepare(WorkBudget* budget)
{
    std::vector<Entry*> pending;
    pending.swap(m_pending);
    for (Entry* entry : pending) {
        entry->certificate = DecodedCertificate::known(entry->der);
        if (!entry->certificate && budget->spend(entry->outline.cost()))
            entry->certificate = DecodedCertificate::fromDer(entry->der);
        if (entry->certificate)
            m_bySubject.emplace(entry->certificate->subjectHash(), entry);
        else
            forget(entry);
    }
}

void IntermediateMemory::noteProven(const DecodedCertificatePtr& certificate)
{
    const auto known = m_entries.find(certificate->der());
    if (known == m_entries.end() || known->second.isProven)
        return;
    Entry* const entry = &known->second;
    leave(entry);
    entry->isProven = true;
    enter(entry);
    makeRoom(&m_proven);
}

bool IntermediateMemory::isProven(const DecodedCertificatePtr& certificate) const
{
    const auto known = m_entries.find(certificate->der());
    return known != m_entries.end() && known->second.isProven;
}

std::vector<DecodedCertificatePtr>
IntermediateMemory::issuersOf(const DecodedCertificate& certificate) const
{
    std::vector<const Entry*> entries;
    const auto range = m_bySubject.equal_range(certificate.issuerHash());
    for (auto entry = range.first; entry != range.second; ++entry) {
        if (certificate.namesIssuer(*entry->second->certificate))
            entries.push_back(entry->second);
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry* left, const Entry* right) { return left->order > right->order; });
    std::vector<DecodedCertificatePtr> issuers;
    issuers.reserve(entries.size());
    for (const Entry* entry : entries)
        issuers.push_back(entry->certificate);
    return issuers;
}

void IntermediateMemory::enter(Entry* entry)
{
    Kind& kind = kindOf(*entry);
    kind.entries.emplace(entry->order, entry);
    kind.footprint += entry->outline.footprint();
}

void IntermediateMemory::leave(Entry* entry)
{
    Kind& kind = kindOf(*entry);
    kind.entries.erase(entry->order);
    kind.footprint -= entry->outline.footprint();
}

void IntermediateMemory::forget(Entry* entry)
{
    leave(entry);
    if (entry->certificate) {
        const auto range = m_bySubject.equal_range(entry->certificate->subjectHash());
        const auto found = std::find_if(range.first, range.second,
                                        [entry](const auto& one) { return one.second == entry; });
        m_bySubject.erase(found);
    } else {
        m_pending.erase(std::remove(m_pending.begin(), m_pending.end(), entry), m_pending.end());
    }
    const QByteArray der = entry->der; // The entry's own goes with it.
    m_entries.erase(der);
}

void IntermediateMemory::makeRoom(Kind* kind)
{
    while (kind->isOverfull())
        forget(kind->entries.begin()->second);
}

} // namespace vela

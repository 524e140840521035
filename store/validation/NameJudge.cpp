// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/NameJudge.h"

namespace vela {

NameJudge::NameJudge(std::size_t maxComparisons, WorkBudget* budget)
    : m_remainingComparisons(maxComparisons)
    , m_budget(*budget)
{
}

PathErrors NameJudge::errorsOf(const DecodedCertificate& certificate,
                               const DecodedCertificate& authority)
{
    const Pair pair(&certificate, &authority);
    const auto known = m_known.find(pair);
    if (known != m_known.end())
        return known->second;
    return m_known.emplace(pair, compare(certificate, authority)).first->second;
}

PathErrors NameJudge::errorsOfEnd(const DecodedCertificate& end,
                                  const DecodedCertificate& authority)
{
    const Pair pair(&end, &authority);
    const auto known = m_knownOfEnd.find(pair);
    if (known != m_knownOfEnd.end())
        return known->second;
    const PathErrors errors = compareHostTexts(end, authority.extensions().nameConstraints);
    return m_knownOfEnd.emplace(pair, errors | errorsOf(end, authority)).first->second;
}

PathErrors NameJudge::compare(const DecodedCertificate& certificate,
                              const DecodedCertificate& authority)
{
    const NameConstraints& constraints = authority.extensions().nameConstraints;
    const std::vector<GeneralName>& names = certificate.extensions().names;
    const std::size_t comparisons = constraints.comparisonsFor(names.size());
    if (comparisons > m_remainingComparisons)
        return NameNotComparable;
    m_remainingComparisons -= comparisons;
    return constraints.errorsOf(certificate.x509(), names, &m_budget);
}

PathErrors NameJudge::compareHostTexts(const DecodedCertificate& end,
                                       const NameConstraints& constraints)
{
    constexpr qint64 PER_BYTE = 25;
    if (!constraints.concernHosts())
        return NoPathError;
    if (!m_hostTexts) {
        if (!m_budget.spend(PER_BYTE * end.der().size()))
            return NameNotComparable;
        m_hostTexts = hostTextsOf(end.x509());
    }
    return constraints.errorsOfHostTexts(*m_hostTexts, &m_budget);
}

} // namespace vela

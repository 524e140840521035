// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_NAMEJUDGE_H
#define FERRULE_NAMEJUDGE_H

#include "store/validation/DecodedCertificate.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace vela {

/*!
    Holds the names of certificates against the constraints of authorities, for one search: each
    certificate against each authority once. What there is no budget for, or no comparison left, is
   not judged and therefore in error.
*/
class NameJudge
{
public:
    NameJudge(std::size_t maxComparisons, WorkBudget* budget);

    PathErrors errorsOf(const DecodedCertificate& certificate, const DecodedCertificate& authority);
    //! The same for the path's first certificate, whose common names count as host names, too.
    PathErrors errorsOfEnd(const DecodedCertificate& end, const DecodedCertificate& authority);

private:
    PathErrors compare(const DecodedCertificate& certificate, const DecodedCertificate& authority);
    PathErrors compareHostTexts(const DecodedCertificate& end, const NameConstraints& constraints);

    using Pair = std::pair<const DecodedCertificate*, const DecodedCertificate*>;

    std::size_t m_remainingComparisons;
    WorkBudget& m_budget;
    std::map<Pair, PathErrors> m_known;
    std::map<Pair, PathErrors> m_knownOfEnd;
    std::optional<std::vector<QByteArray>> m_hostTexts; //!< Of the first certificate.
};

} // namespace vela

#endif

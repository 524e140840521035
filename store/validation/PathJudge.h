// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PATHJUDGE_H
#define FERRULE_PATHJUDGE_H

#include "store/validation/CertificatePath.h"
#include "store/validation/NameJudge.h"

namespace vela {

/*! Collects every error of a path. */
class PathJudge
{
public:
    PathJudge(const CertificatePath& path, const PathQuestion& question, NameJudge* names,
              WorkBudget* budget);

    JudgedPath result();

private:
    void judgeItself(std::size_t index);
    void judgeUsage(std::size_t index);
    void judgeAuthority(std::size_t index);
    void judgePathLength(std::size_t index);
    void judgeNames(std::size_t index);
    void judgeEnd();
    void sumUp();
    void judgePolicies();

    const DecodedCertificate& certificate(std::size_t index) const;
    void addError(std::size_t index, PathErrors error);
    bool isTrustedRoot(std::size_t index) const;

    const PathQuestion& m_question;
    NameJudge& m_names;
    WorkBudget& m_budget;
    JudgedPath m_judged;
    const std::size_t m_size;
};

/*!
    Returns how far \a judged is from valid: 0 if it is valid, and less for the better of two. What
    puts the whole chain in doubt counts more than any number of lesser errors.
*/
int defectsOf(const JudgedPath& judged);

} // namespace vela

#endif

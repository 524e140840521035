// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PATHPOLICIES_H
#define FERRULE_PATHPOLICIES_H

#include "store/validation/CertificatePath.h"
#include "store/validation/WorkBudget.h"

namespace vela {

/*!
    Returns `PolicyInvalid` if a certificate of \a path demands a policy and there is none, or no
    telling within the budget. Nobody else asks for one, so policies matter in no other case.
*/
PathErrors policyErrorsOf(const CertificatePath& path, WorkBudget* budget);

} // namespace vela

#endif

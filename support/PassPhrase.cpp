// SPDX-License-Identifier: BSD-3-Clause
#include "support/PassPhrase.h"

namespace vela {

int refusePassPhrase(char*, int, int, void*)
{
    return -1;
}

} // namespace vela

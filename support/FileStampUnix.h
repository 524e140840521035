// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FILESTAMPUNIX_H
#define FERRULE_FILESTAMPUNIX_H

#include "support/FileStamp.h"

struct stat;

namespace vela {

//! Returns the stamp of the file that \a status is of.
FileStamp stampOf(const struct stat& status);

/*!
    Whether the file could change again without another stamp: it has changed since the last tick of
    the clock for such times, which ticks some hundred times a second.
*/
bool isOfThisTick(const FileStamp& stamp);

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_STOREMEMORY_H
#define FERRULE_BENCH_STOREMEMORY_H

#include "common/Options.h"
#include "common/Results.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace bench {

/*!
    Measures, once, what a store keeps: bytes for each of a million verifications of the chain
    \a known, and the memory that it takes after a million chains of strangers.
*/
void measureMemory(const QList<QByteArray>& known, const Options& options, Results& results);

} // namespace bench

#endif

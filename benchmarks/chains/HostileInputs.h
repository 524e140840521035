// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_HOSTILEINPUTS_H
#define FERRULE_BENCH_HOSTILEINPUTS_H

#include "common/Options.h"
#include "common/Results.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <functional>

namespace bench {

//! What no input may cost, in microseconds of processor time.
constexpr double HOSTILE_LIMIT = 100000;

//! Returns the roots, as PEM, that inputs made to be dear need to be trusted.
QByteArray hostileRoots();

//! Appends what measures a verdict on each of these inputs, with a store of its own.
void addHostileTasks(QList<std::function<void(bool)>>& tasks, Results& results);

} // namespace bench

#endif

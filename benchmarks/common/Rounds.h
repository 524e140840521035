// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_ROUNDS_H
#define FERRULE_BENCH_ROUNDS_H

#include <QtCore/QList>
#include <QtCore/QVector>

#include <functional>

namespace bench {

/*!
    Runs each of \a tasks once without counting, which pays for caches and lazy loading, and then
   all of them \a rounds times, each round in another random order: what disturbs the machine for a
    while then meets all sides alike.
*/
void runRounds(int rounds, const QList<std::function<void(bool counts)>>& tasks);

//! Returns the number of the task that is running; 0 outside of runRounds().
int runningTask();

double median(QVector<double> values);

//! Returns what \a share, from 0 to 1, of \a values lies below; between two values, a mean of them.
double percentile(QVector<double> values, double share);

} // namespace bench

#endif

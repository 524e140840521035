// SPDX-License-Identifier: BSD-3-Clause
#include "common/Rounds.h"

#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <cmath>

namespace bench {

namespace {

int running = 0;

} // namespace

int runningTask()
{
    return running;
}

void runRounds(int rounds, const QList<std::function<void(bool counts)>>& tasks)
{
    for (const auto& task : tasks)
        task(false);
    QVector<int> order;
    for (int i = 0; i < tasks.size(); ++i)
        order.append(i);
    for (int round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), *QRandomGenerator::global());
        for (int i : qAsConst(order)) {
            running = i;
            tasks.at(i)(true);
        }
    }
    running = 0;
}

double median(QVector<double> values)
{
    return percentile(values, 0.5);
}

double percentile(QVector<double> values, double share)
{
    Q_ASSERT(!values.isEmpty());
    std::sort(values.begin(), values.end());
    const double place = share * (values.size() - 1);
    const int below = static_cast<int>(std::floor(place));
    const int above = std::min(below + 1, values.size() - 1);
    return values.at(below) + (place - below) * (values.at(above) - values.at(below));
}

} // namespace bench

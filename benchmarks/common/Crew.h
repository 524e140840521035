// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_CREW_H
#define FERRULE_BENCH_CREW_H

#include "Host.h"

#include <functional>
#include <map>

namespace bench {

//! One sample that is to be taken.
struct Job
{
    Setup setup;
    Arrangement arrangement = Arrangement::Threads;
    QJsonObject details; //!< What only the load itself knows of.

    QJsonObject json() const;
    static Job fromJson(const QJsonObject& json);
};

//! The servers of a process that measures, each started when it is first asked for.
class Hosts
{
public:
    quint16 port(const Setup& setup, Arrangement arrangement);

private:
    std::map<int, std::unique_ptr<Host>> m_hosts;
};

/*!
    The processes that measure, one for each protocol, because a process cannot change it. This
    process only says what to measure next.
*/
class Crew
{
public:
    QJsonObject measure(const Job& job);

private:
    std::map<Protocol, std::unique_ptr<Child>> m_children;
};

using Measure = std::function<QJsonObject(const Job& job, Hosts& hosts)>;

/*!
    Does the work of a child process of a Crew, or of a Host, if that is what the arguments of the
    program ask for, and returns whether it was. To be called by main() before it looks at them.
*/
bool workForParent(const QStringList& arguments, const Measure& measure);

} // namespace bench

#endif

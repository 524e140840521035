// SPDX-License-Identifier: BSD-3-Clause
#include "Crew.h"

namespace bench {

namespace {

QString workOption()
{
    return QStringLiteral("--work");
}

} // namespace

QJsonObject Job::json() const
{
    return {{QStringLiteral("setup"), setup.json()},
            {QStringLiteral("arrangement"), static_cast<int>(arrangement)},
            {QStringLiteral("details"), details}};
}

Job Job::fromJson(const QJsonObject& json)
{
    Job job;
    job.setup = Setup::fromJson(json.value(QStringLiteral("setup")).toObject());
    job.arrangement = static_cast<Arrangement>(json.value(QStringLiteral("arrangement")).toInt());
    job.details = json.value(QStringLiteral("details")).toObject();
    return job;
}

quint16 Hosts::port(const Setup& setup, Arrangement arrangement)
{
    // All else is the same throughout a process.
    const int key = static_cast<int>(setup.subject) * 2 + static_cast<int>(arrangement);
    std::unique_ptr<Host>& host = m_hosts[key];
    if (!host)
        host = std::make_unique<Host>(setup, arrangement);
    return host->port();
}

QJsonObject Crew::measure(const Job& job)
{
    std::unique_ptr<Child>& child = m_children[job.setup.protocol];
    if (!child)
        child = std::make_unique<Child>(QStringList{workOption()}, job.setup.protocol);
    return child->ask(job.json());
}

bool workForParent(const QStringList& arguments, const Measure& measure)
{
    if (serveParent(arguments))
        return true;
    if (arguments.value(1) != workOption())
        return false;
    Hosts hosts;
    answerParent(
        [&](const QJsonObject& question) { return measure(Job::fromJson(question), hosts); });
    return true;
}

} // namespace bench

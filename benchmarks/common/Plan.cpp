// SPDX-License-Identifier: BSD-3-Clause
#include "Plan.h"

#include "Rounds.h"

namespace bench {

namespace {

bool hasServer(Subject subject)
{
    return subject != Subject::EngineAlone && subject != Subject::AesGcmAlone;
}

Key keyOf(const QString& what, const Job& job)
{
    return {what, hasServer(job.setup.subject) ? nameOf(job.arrangement) : QString(),
            nameOf(job.setup.protocol), nameOf(job.setup.subject)};
}

} // namespace

Plan::Plan(const QString& load, const Options& options)
    : m_options(options)
    , m_results(load)
{
}

Setup Plan::setup(Subject subject, Protocol protocol) const
{
    return {subject, protocol, m_identity.certificateFile(), m_identity.keyFile()};
}

void Plan::add(const QString& what, const Quantity& quantity, const Job& job)
{
    add(what, QList<Quantity>{quantity}, job);
}

void Plan::add(const QString& what, const QList<Quantity>& quantities, const Job& job)
{
    if (m_options.measures(nameOf(job.setup.subject)))
        m_items.append({what, quantities, job, {}});
}

void Plan::expect(const QString& what, const Job& reference, double limit)
{
    if (!m_options.only.isEmpty())
        return;
    Job own = reference;
    own.setup.subject = Subject::Ferrule;
    m_results.expect(keyOf(what, own), keyOf(what, reference), limit);
}

int Plan::run()
{
    if (m_items.isEmpty())
        fail(QStringLiteral("\"%1\" is no subject of this load").arg(m_options.only));
    QList<std::function<void(bool)>> tasks;
    for (Item& item : m_items) {
        tasks.append([this, &item](bool counts) {
            const QJsonObject sample = m_crew.measure(item.job);
            if (counts)
                item.samples.append(sample);
        });
    }
    runRounds(m_options.rounds, tasks);
    for (const Item& item : qAsConst(m_items)) {
        for (const Quantity& quantity : item.quantities) {
            Key key = keyOf(item.what, item.job);
            if (item.quantities.size() > 1)
                key.what += QStringLiteral(", ") + quantity.name;
            for (const QJsonObject& sample : item.samples) {
                const QJsonValue value = sample.value(quantity.name);
                if (!value.isDouble())
                    fail(QStringLiteral("a sample of \"%1\" has no value").arg(key.what));
                m_results.add(key, value.toDouble(), quantity.unit, quantity.better);
            }
        }
    }
    return m_results.finish(m_options);
}

} // namespace bench

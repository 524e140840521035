// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_PLAN_H
#define FERRULE_BENCH_PLAN_H

#include "Crew.h"
#include "Identity.h"
#include "Options.h"
#include "Results.h"

namespace bench {

//! What of a measurement becomes a row.
struct Quantity
{
    QString name; //!< In the answer of the process that measured, and behind what is measured.
    QString unit;
    Better better;
};

/*!
    The samples that a load takes and the goals that it has. The samples are taken in the processes
    of a Crew, in an order that chance decides; the rows come in the order of the plan.
*/
class Plan
{
public:
    Plan(const QString& load, const Options& options);

    const Options& options() const { return m_options; }

    //! A setup with the certificate that all share.
    Setup setup(Subject subject, Protocol protocol) const;

    //! Plans the samples of \a what. An arrangement is named where there is a server.
    void add(const QString& what, const Quantity& quantity, const Job& job);
    //! The same for several quantities that one sample tells.
    void add(const QString& what, const QList<Quantity>& quantities, const Job& job);

    //! Sets a goal for Ferrule, compared with what \a reference measures.
    void expect(const QString& what, const Job& reference, double limit);

    //! Takes all samples, and tells. Returns the status to exit with.
    int run();

private:
    struct Item
    {
        QString what;
        QList<Quantity> quantities;
        Job job;
        QList<QJsonObject> samples;
    };

    Options m_options;
    Identity m_identity;
    Results m_results;
    Crew m_crew;
    QList<Item> m_items;
};

} // namespace bench

#endif

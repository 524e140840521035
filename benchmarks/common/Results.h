// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_RESULTS_H
#define FERRULE_BENCH_RESULTS_H

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QVector>

class QJsonObject;
class QTextStream;

namespace bench {

struct Options;

//! What a sample is of; the same of another subject is what it is compared with.
struct Key
{
    QString what;        //!< Such as "16 KiB to the client".
    QString arrangement; //!< "threads", "processes", or empty.
    QString protocol;    //!< "TLS 1.2", "TLS 1.3", or empty.
    QString subject;     //!< Such as "Ferrule", "QSslSocket", "engine alone".
};

//! Which of two values is the good one.
enum class Better {
    More,
    Less
};

//! Gathers the samples of one load, compares their medians, and tells.
class Results
{
public:
    explicit Results(QString load);

    //! Notes one sample; rows are told in the order of the tasks of runRounds(). Unit and sense are
    //! those of the first one of the same Key::what.
    void add(const Key& key, double value, const QString& unit, Better better);

    /*!
        Demands that the median of \a subject divided by that of \a reference is at least \a limit
        where more is better, and at most \a limit where less is.
    */
    void expect(const Key& subject, const Key& reference, double limit);

    //! Has the ratio of two things told that are not the same thing done by another.
    void compare(const Key& subject, const Key& reference);

    /*!
        Prints the medians with their quartiles and ratios, and what became of the goals; writes the
        file that \a options name. Returns the status to exit with: 0, for a goal that is missed is
        a result like others.
    */
    int finish(const Options& options) const;

private:
    struct Row
    {
        Key key;
        int task; //!< The rounds come in random order, the rows shall not.
        QString unit;
        Better better;
        QVector<double> values;
    };

    struct Comparison
    {
        Key subject;
        Key reference;
        double limit; //!< Not used without a goal.
    };

    const Row& row(const Key& key) const;
    double ratio(const Comparison& comparison) const;
    bool isMet(const Comparison& goal) const;
    void printRows(QTextStream& out) const;
    QString text(const Comparison& comparison) const;
    void printComparisons(QTextStream& out) const;
    QJsonObject json(const Options& options) const;
    static QJsonObject json(const Row& row);
    QJsonObject json(const Comparison& comparison, bool isGoal) const;

    QString m_load;
    QList<Row> m_rows;
    QList<Comparison> m_comparisons;
    QList<Comparison> m_goals;
};

} // namespace bench

#endif

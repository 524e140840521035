// SPDX-License-Identifier: BSD-3-Clause
#include "common/Results.h"

#include "common/Options.h"
#include "common/Rounds.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTextStream>
#include <QtNetwork/QSslSocket>

#include <openssl/crypto.h>

#include <algorithm>
#include <thread>

namespace bench {

namespace {

bool isSameThing(const Key& a, const Key& b)
{
    return a.what == b.what && a.arrangement == b.arrangement && a.protocol == b.protocol;
}

bool isSame(const Key& a, const Key& b)
{
    return isSameThing(a, b) && a.subject == b.subject;
}

QString text(const Key& key)
{
    QString result = key.what;
    for (const QString& part : {key.arrangement, key.protocol}) {
        if (!part.isEmpty())
            result += QStringLiteral(", ") + part;
    }
    return result;
}

QJsonObject toJson(const Key& key)
{
    return {{QStringLiteral("what"), key.what},
            {QStringLiteral("arrangement"), key.arrangement},
            {QStringLiteral("protocol"), key.protocol},
            {QStringLiteral("subject"), key.subject}};
}

QString engineVersion()
{
    return QString::fromLatin1(SSLeay_version(SSLEAY_VERSION));
}

QString processor()
{
    const auto count = std::thread::hardware_concurrency();
    QString model = QStringLiteral("unknown processor");
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        const auto line = std::find_if(lines.begin(), lines.end(), [](const QByteArray& candidate) {
            return candidate.startsWith("model name");
        });
        if (line != lines.end())
            model = QString::fromLatin1(line->mid(line->indexOf(':') + 1).trimmed());
    }
    return QStringLiteral("%1, %2 logical processors").arg(model).arg(count);
}

} // namespace

Results::Results(QString load)
    : m_load(load)
{
}

void Results::add(const Key& key, double value, const QString& unit, Better better)
{
    for (Row& row : m_rows) {
        if (isSame(row.key, key)) {
            row.values.append(value);
            return;
        }
    }
    Row added{key, runningTask(), unit, better, {value}};
    for (const Row& row : qAsConst(m_rows)) {
        if (row.key.what == key.what) {
            added.unit = row.unit;
            added.better = row.better;
            break;
        }
    }
    const auto place = std::upper_bound(m_rows.begin(), m_rows.end(), added,
                                        [](const Row& a, const Row& b) { return a.task < b.task; });
    m_rows.insert(place, added);
}

void Results::expect(const Key& subject, const Key& reference, double limit)
{
    m_goals.append({subject, reference, limit});
}

void Results::compare(const Key& subject, const Key& reference)
{
    m_comparisons.append({subject, reference, 0});
}

const Results::Row& Results::row(const Key& key) const
{
    const auto found = std::find_if(m_rows.begin(), m_rows.end(),
                                    [&](const Row& row) { return isSame(row.key, key); });
    if (found == m_rows.end())
        fail(QStringLiteral("there is no sample of %1, %2").arg(bench::text(key), key.subject));
    return *found;
}

double Results::ratio(const Comparison& comparison) const
{
    return median(row(comparison.subject).values) / median(row(comparison.reference).values);
}

bool Results::isMet(const Comparison& goal) const
{
    return row(goal.subject).better == Better::More ? ratio(goal) >= goal.limit
                                                    : ratio(goal) <= goal.limit;
}

void Results::printRows(QTextStream& out) const
{
    QList<Key> done;
    for (const Row& first : m_rows) {
        const auto isDone = [&](const Key& key) { return isSameThing(key, first.key); };
        if (std::any_of(done.begin(), done.end(), isDone))
            continue;
        done.append(first.key);
        out << bench::text(first.key) << " (" << first.unit << ", "
            << (first.better == Better::More ? "more" : "less") << " is better)\n";
        double own = 0;
        for (const Row& row : m_rows) {
            if (isSameThing(row.key, first.key) && row.key.subject == QLatin1String("Ferrule"))
                own = median(row.values);
        }
        for (const Row& row : m_rows) {
            if (!isSameThing(row.key, first.key))
                continue;
            const double middle = median(row.values);
            out << QStringLiteral("  %1 %2  (%3 to %4)")
                       .arg(row.key.subject, -24)
                       .arg(middle, 12, 'g', 5)
                       .arg(percentile(row.values, 0.25), 0, 'g', 5)
                       .arg(percentile(row.values, 0.75), 0, 'g', 5);
            if (own > 0 && middle > 0 && row.key.subject != QLatin1String("Ferrule"))
                out << QStringLiteral("  Ferrule's is %1 of it").arg(own / middle, 0, 'f', 3);
            out << '\n';
        }
    }
}

QString Results::text(const Comparison& comparison) const
{
    const Key& reference = comparison.reference;
    const QString other = isSameThing(comparison.subject, reference)
                              ? reference.subject
                              : bench::text(reference) + QStringLiteral(", ") + reference.subject;
    return QStringLiteral("%1: %2 / %3 is %4")
        .arg(bench::text(comparison.subject), comparison.subject.subject, other)
        .arg(ratio(comparison), 0, 'f', 3);
}

void Results::printComparisons(QTextStream& out) const
{
    for (const Comparison& comparison : m_comparisons)
        out << text(comparison) << '\n';
    for (const Comparison& goal : m_goals) {
        const bool atLeast = row(goal.subject).better == Better::More;
        out << "goal " << text(goal) << ", wanted " << (atLeast ? "at least " : "at most ")
            << goal.limit << ": " << (isMet(goal) ? "met" : "MISSED") << '\n';
    }
}

QJsonObject Results::json(const Row& row)
{
    QJsonObject object = toJson(row.key);
    QJsonArray values;
    for (double value : row.values)
        values.append(value);
    object[QStringLiteral("unit")] = row.unit;
    object[QStringLiteral("better")] =
        row.better == Better::More ? QStringLiteral("more") : QStringLiteral("less");
    object[QStringLiteral("values")] = values;
    object[QStringLiteral("median")] = median(row.values);
    object[QStringLiteral("lower")] = percentile(row.values, 0.25);
    object[QStringLiteral("upper")] = percentile(row.values, 0.75);
    return object;
}

QJsonObject Results::json(const Comparison& comparison, bool isGoal) const
{
    QJsonObject object = toJson(comparison.subject);
    object[QStringLiteral("reference")] = toJson(comparison.reference);
    object[QStringLiteral("ratio")] = ratio(comparison);
    if (isGoal) {
        object[QStringLiteral("sense")] = row(comparison.subject).better == Better::More
                                              ? QStringLiteral("at least")
                                              : QStringLiteral("at most");
        object[QStringLiteral("limit")] = comparison.limit;
        object[QStringLiteral("met")] = isMet(comparison);
    }
    return object;
}

QJsonObject Results::json(const Options& options) const
{
    QJsonArray rows;
    for (const Row& row : m_rows)
        rows.append(json(row));
    QJsonArray goals;
    for (const Comparison& goal : m_goals)
        goals.append(json(goal, true));
    QJsonArray comparisons;
    for (const Comparison& comparison : m_comparisons)
        comparisons.append(json(comparison, false));
    return {{QStringLiteral("load"), m_load},
            {QStringLiteral("engine"), engineVersion()},
            {QStringLiteral("qtEngine"), QSslSocket::sslLibraryVersionString()},
            {QStringLiteral("qt"), QString::fromLatin1(qVersion())},
            {QStringLiteral("cpu"), processor()},
            {QStringLiteral("rounds"), options.rounds},
            {QStringLiteral("share"), options.share},
            {QStringLiteral("date"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
            {QStringLiteral("rows"), rows},
            {QStringLiteral("comparisons"), comparisons},
            {QStringLiteral("goals"), goals}};
}

int Results::finish(const Options& options) const
{
    QTextStream out(stdout);
    out << m_load << ", " << engineVersion() << ", median (quartiles) of " << options.rounds
        << " rounds\n";
    printRows(out);
    printComparisons(out);
    if (options.jsonFile.isEmpty())
        return 0;
    QFile file(options.jsonFile);
    const QByteArray document = QJsonDocument(json(options)).toJson();
    if (!file.open(QIODevice::WriteOnly) || file.write(document) != document.size())
        fail(options.jsonFile + QStringLiteral(" could not be written"));
    return 0;
}

} // namespace bench

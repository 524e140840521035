// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_OPTIONS_H
#define FERRULE_BENCH_OPTIONS_H

#include <QtCore/QCoreApplication>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace bench {

//! What every benchmark can be told on its command line.
struct Options
{
    int rounds = 11;
    double share = 1; //!< The part of the work for each sample that is really done.
    QString jsonFile; //!< Where the results go besides the table; nowhere when empty.
    QString only;     //!< The one subject that is measured, for a profiler; all when empty.

    bool measures(const QString& subject) const { return only.isEmpty() || subject == only; }
};

//! Whether a program can measure one subject alone.
enum class OneSubject {
    Impossible,
    Possible
};

/*!
    Reads the options out of \a arguments, answers --help and --version; ends the program with
    status 2 where it cannot make sense of them.
*/
Options parseOptions(const QString& description, OneSubject oneSubject = OneSubject::Impossible,
                     const QStringList& arguments = QCoreApplication::arguments());

//! Returns the part of \a count that is to be done, at least 1.
int scaled(const Options& options, int count);

//! Ends the program: what it could not measure must not look like a result.
[[noreturn]] void fail(const QString& what);

} // namespace bench

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_CHAINSUITE_H
#define FERRULE_TESTS_CHAINSUITE_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QPair>
#include <QtCore/QStringList>

namespace test {

//! When the suites were taken, in seconds since the epoch; stands for "now" in cases without a
//! time.
constexpr qint64 DAY_OF_THE_SUITES = 1795219200; // 2026-11-21

/*! A case of path validation that another project publishes; see tests/data/chains/README.md. */
struct ChainCase
{
    QString id;
    QStringList tags;
    QByteArray leaf;
    QList<QByteArray> untrusted;
    QList<QByteArray> trusted;
    qint64 time = 0;          //!< Seconds since the epoch.
    QList<QByteArray> usages; //!< Object identifiers in digits.
    bool isAccepted = false;
    QStringList reasons;                       //!< Names as of errorNames(), or "this_OR_that".
    QList<QPair<int, QStringList>> atElements; //!< Reasons by certificate, 0 being the leaf.

    bool hasTag(const char* tag) const { return tags.contains(QLatin1String(tag)); }
};

/*! Returns the cases in the file \a path. It is fatal for the test program when there are none. */
QList<ChainCase> readChainSuite(const QString& path);

} // namespace test

#endif

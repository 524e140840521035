// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTILECHAINS_H
#define FERRULE_TESTS_HOSTILECHAINS_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace test {

/*! Certificates made to keep whoever judges them busy, the end certificate first. */
struct HostileChain
{
    const char* name;
    QList<QByteArray> ders;
    //! Whether the last but the first are trusted: only then is everything looked at.
    QByteArray root; //!< To be trusted; none if empty.
};

//! No chain is longer than this.
constexpr int HOSTILE_CHAIN_SIZE = 1024 * 1024;

/*!
    Returns a chain for each thing that can be made dear: names, constraints, policies, keys,
    signatures, issuers of one name, depth, numbers. All are as long as they may be.
*/
QList<HostileChain> hostileChains();

} // namespace test

#endif

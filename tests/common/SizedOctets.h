// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SIZEDOCTETS_H
#define FERRULE_TESTS_SIZEDOCTETS_H

#include <QtCore/QByteArray>

namespace test {

//! Returns \a content behind its length in as many \a octets, as TLS messages have it.
inline QByteArray sized(const QByteArray& content, int octets)
{
    QByteArray size;
    for (int shift = 8 * (octets - 1); shift >= 0; shift -= 8)
        size.append(static_cast<char>(content.size() >> shift));
    return size + content;
}

} // namespace test

#endif

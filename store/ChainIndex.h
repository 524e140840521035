// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHAININDEX_H
#define FERRULE_CHAININDEX_H

#include <Ferrule/SslCertificate.h>

#include <QtCore/QHash>
#include <QtCore/QVector>

namespace vela {

/*!
    Finds positions in a list of chains by what is known of their end certificates, in a time that
    does not grow with the list.

    Chains are only ever appended and removed, so each gets a number that is higher than those
    before it. The tables hold these numbers, which stay when positions move; a position is found
    again by a binary search.
*/
class ChainIndex
{
public:
    void append(const SslCertificate& endCertificate);
    void remove(int position);
    void clear();

    //! Returns the first position with the fingerprints of \a certificate, or -1.
    int find(const SslCertificate& certificate) const;

    //! Returns the first position with this common name, or -1.
    int findName(const QString& commonName) const;

private:
    using Number = qint64;
    using Numbers = QVector<Number>; // in ascending order

    struct Entry
    {
        Number number;
        QByteArray fingerprint;
        QString commonName;
    };

    static QByteArray fingerprintOf(const SslCertificate& certificate);
    int firstPosition(const Numbers& numbers) const;

    Number m_next = 0;
    QVector<Entry> m_entries;
    QHash<QByteArray, Numbers> m_byFingerprint;
    QHash<QString, Numbers> m_byName;
};

} // namespace vela

#endif

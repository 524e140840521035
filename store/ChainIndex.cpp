// SPDX-License-Identifier: BSD-3-Clause
#include "store/ChainIndex.h"

#include <algorithm>

namespace vela {

namespace {

template <typename Table, typename Key, typename Number>
void removeNumber(Table& table, const Key& key, Number number)
{
    const auto found = table.find(key);
    found->removeOne(number);
    if (found->isEmpty())
        table.erase(found);
}

} // namespace

QByteArray ChainIndex::fingerprintOf(const SslCertificate& certificate)
{
    return certificate.sha1Digest() + certificate.md5Digest();
}

void ChainIndex::append(const SslCertificate& endCertificate)
{
    const Entry entry{m_next++, fingerprintOf(endCertificate), endCertificate.subjectCommonName()};
    m_entries.append(entry);
    m_byFingerprint[entry.fingerprint].append(entry.number);
    m_byName[entry.commonName].append(entry.number);
}

void ChainIndex::remove(int position)
{
    const Entry entry = m_entries.takeAt(position);
    removeNumber(m_byFingerprint, entry.fingerprint, entry.number);
    removeNumber(m_byName, entry.commonName, entry.number);
}

void ChainIndex::clear()
{
    m_entries.clear();
    m_byFingerprint.clear();
    m_byName.clear();
}

int ChainIndex::find(const SslCertificate& certificate) const
{
    return firstPosition(m_byFingerprint.value(fingerprintOf(certificate)));
}

int ChainIndex::findName(const QString& commonName) const
{
    return firstPosition(m_byName.value(commonName));
}

int ChainIndex::firstPosition(const Numbers& numbers) const
{
    if (numbers.isEmpty())
        return -1;
    const auto found =
        std::lower_bound(m_entries.begin(), m_entries.end(), numbers.first(),
                         [](const Entry& entry, Number number) { return entry.number < number; });
    return static_cast<int>(found - m_entries.begin());
}

} // namespace vela

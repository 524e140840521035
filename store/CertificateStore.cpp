// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/CertificateStore.h>

#include "store/ChainIndex.h"

#include <Ferrule/RecursiveMutex.h>

#include <algorithm>
#include <mutex>

namespace vela {

namespace {

using Lock = std::lock_guard<RecursiveMutex>;

/*
    Returns the position that the index gave if the chain there still is what was asked for;
    otherwise some certificate was changed behind the store's back, and every chain is looked at.
*/
template <typename Matches>
int confirmed(int position, const QList<SslCertificateChain>& chains, Matches matches)
{
    const auto fits = [matches](const SslCertificateChain& chain) {
        return !chain.isEmpty() && matches(chain.endCert());
    };
    if (position < 0 || fits(chains.at(position)))
        return position;
    const auto found = std::find_if(chains.begin(), chains.end(), fits);
    return found == chains.end() ? -1 : static_cast<int>(found - chains.begin());
}

} // namespace

CertificateStore::CertificateStore(QObject* parent)
    : QObject(parent)
    , m_mutex(std::make_unique<RecursiveMutex>())
    , m_index(std::make_unique<ChainIndex>())
{
}

CertificateStore::~CertificateStore()
{
    for (CertificateStore*& instance : gGlobalInstance) {
        if (instance == this)
            instance = nullptr;
    }
}

CertVerify CertificateStore::verify(SslCertificatePtr cert)
{
    const int index = indexOf(cert);
    if (index < 0)
        return VerifyFailed;
    const SslCertificateChain chain = m_chains.at(index);
    return chain.isEmpty() ? VerifyFailed : verify(chain);
}

int CertificateStore::addCertificateChain(const SslCertificateChain& chain)
{
    if (chain.isEmpty())
        return -1;
    const Lock lock(*m_mutex);
    int index = indexOf(chain.endCert());
    if (index < 0) {
        index = count();
        m_chains.append(chain);
        m_index->append(*chain.endCert());
    } else {
        m_chains.replace(index, chain);
    }
    return index;
}

int CertificateStore::addOneCertificate(SslCertificatePtr cert)
{
    SslCertificateChain chain;
    chain << cert;
    return addCertificateChain(chain);
}

int CertificateStore::removeCertificate(int index)
{
    const Lock lock(*m_mutex);
    if (index < 0 || index >= count())
        return -1;
    // Goes last: a certificate's destroyed() may call back into the store.
    const SslCertificateChain removed = m_chains.takeAt(index);
    m_index->remove(index);
    return index;
}

int CertificateStore::removeCertificate(SslCertificatePtr cert)
{
    return removeCertificate(indexOf(cert));
}

void CertificateStore::clear()
{
    const Lock lock(*m_mutex);
    QList<SslCertificateChain> removed; // Goes last, as above.
    m_chains.swap(removed);
    m_index->clear();
    m_trust = QMap<QByteArray, CertTrust>();
}

int CertificateStore::count() const
{
    return m_chains.size();
}

int CertificateStore::indexOf(SslCertificatePtr cert) const
{
    if (!cert)
        return -1;
    return confirmed(m_index->find(*cert), m_chains, [&cert](const SslCertificatePtr& endCert) {
        return SslCertificate::equals(endCert, cert);
    });
}

SslCertificateChain CertificateStore::operator[](const QString& commonName)
{
    return qAsConst(*this)[commonName];
}

const SslCertificateChain& CertificateStore::operator[](const QString& commonName) const
{
    const int index = confirmed(m_index->findName(commonName), m_chains,
                                [&commonName](const SslCertificatePtr& endCert) {
                                    return endCert->subjectCommonName() == commonName;
                                });
    return index < 0 ? EMPTY_CHAIN : m_chains.at(index);
}

SslCertificateChain CertificateStore::operator[](int index)
{
    return m_chains[index];
}

const SslCertificateChain& CertificateStore::operator[](int index) const
{
    return m_chains.at(index);
}

SslCertificateChain CertificateStore::operator[](SslCertificatePtr cert)
{
    return qAsConst(*this)[cert];
}

const SslCertificateChain& CertificateStore::operator[](SslCertificatePtr cert) const
{
    const int index = indexOf(cert);
    return index < 0 ? EMPTY_CHAIN : m_chains.at(index);
}

CertTrust& CertificateStore::trustInfo(SslCertificatePtr cert)
{
    const auto found = m_trust.find(cert->sha1Digest());
    return found != m_trust.end() ? *found : *m_trust.insert(cert->sha1Digest(), EMPTY_TRUST);
}

CertTrust& CertificateStore::trustInfo(const SslCertificateChain& chain)
{
    return trustInfo(chain.endCert());
}

CertTrust CertificateStore::trustInfo(SslCertificatePtr cert) const
{
    return cert && !cert->isEmpty() ? m_trust.value(cert->sha1Digest(), EMPTY_TRUST) : EMPTY_TRUST;
}

CertTrust CertificateStore::trustInfo(const SslCertificateChain& chain) const
{
    return chain.isEmpty() ? EMPTY_TRUST : trustInfo(chain.endCert());
}

} // namespace vela

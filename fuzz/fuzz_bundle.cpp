// SPDX-License-Identifier: BSD-3-Clause

//! PEM bundles, imported into a store that holds something already.

#include "fuzz/Harness.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>

#include <openssl/pem.h>

#include <algorithm>
#include <string>

using vela::BioHandle;
using vela::CertAccept;
using vela::GenericCertStore;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;
using vela::X509Handle;

namespace {

//! What a bundle holds, found without the library.
struct Bundle
{
    explicit Bundle(const QByteArray& bytes);

    void addPart(const std::string& pem);

    QList<QByteArray> fingerprints; //!< Without those that occur twice.
    int markerCount = 0;
    bool hasUnreadablePart = false;
};

Bundle::Bundle(const QByteArray& bytes)
{
    const std::string marker = "-----BEGIN CERTIFICATE-----";
    const std::string text = QString::fromUtf8(bytes).toLatin1().toStdString();
    std::size_t start = 0;
    for (std::size_t end = text.find(marker); end != std::string::npos;
         end = text.find(marker, start)) {
        addPart(marker + text.substr(start, end - start));
        start = end + marker.size();
        ++markerCount;
    }
    addPart(marker + text.substr(start));
}

void Bundle::addPart(const std::string& pem)
{
    // With its NUL as its end, and OpenSSL 1.0.2 takes the memory without saying const.
    const BioHandle bio(BIO_new_mem_buf(const_cast<char*>(pem.c_str()), -1));
    const X509Handle x509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    unsigned char* der = nullptr;
    const int length = x509 ? i2d_X509(x509.get(), &der) : 0;
    if (length <= 0) {
        hasUnreadablePart = true;
        return;
    }
    const QByteArray bytes(reinterpret_cast<const char*>(der), length);
    OPENSSL_free(der);
    const QByteArray fingerprint = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    if (!fingerprints.contains(fingerprint))
        fingerprints.append(fingerprint);
}

//! The first certificates of the embedded bundle: two chains, the first of them with two elements.
class StoredBefore
{
public:
    StoredBefore();
    void addTo(GenericCertStore& store) const;
    int count() const { return m_chains.size(); }
    QList<QByteArray> fingerprints() const;
    void check(const GenericCertStore& store, const Bundle& bundle) const;

private:
    QList<SslCertificateChain> m_chains;
};

StoredBefore::StoredBefore()
{
    QFile file(QStringLiteral(":/Certificates/RootCerts.pem"));
    FUZZ_CHECK(file.open(QIODevice::ReadOnly));
    const QByteArray pem = file.readAll();
    QList<SslCertificatePtr> certificates;
    const QList<x509_st*> handles = SslCertificateChain::readPem(pem.constData(), pem.size());
    for (x509_st* handle : handles)
        certificates.append(SslCertificatePtr(new SslCertificate(handle, true)));
    FUZZ_CHECK(certificates.size() >= 3);
    m_chains = {certificates.mid(0, 2), certificates.mid(2, 1)};
}

void StoredBefore::addTo(GenericCertStore& store) const
{
    for (const SslCertificateChain& chain : m_chains)
        store.addCertificateChain(chain);
}

QList<QByteArray> StoredBefore::fingerprints() const
{
    QList<QByteArray> fingerprints;
    for (const SslCertificateChain& chain : m_chains)
        fingerprints.append(chain.endCert()->sha1Digest());
    return fingerprints;
}

void StoredBefore::check(const GenericCertStore& store, const Bundle& bundle) const
{
    for (int i = 0; i < m_chains.size(); ++i) {
        const SslCertificateChain& before = m_chains.at(i);
        FUZZ_CHECK(store.indexOf(before.endCert()) == i);
        if (bundle.fingerprints.contains(before.endCert()->sha1Digest())) {
            FUZZ_CHECK(store[i].size() == 1);
            continue;
        }
        FUZZ_CHECK(store[i].size() == before.size());
        FUZZ_CHECK(std::equal(before.begin(), before.end(), store[i].begin()));
        FUZZ_CHECK(store.trustInfo(before.endCert()).accept == vela::AcceptUndecided);
    }
}

void importBundle(GenericCertStore& store, QByteArray bytes, CertAccept accept)
{
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    store.importRootCerts(&device, accept);
    FUZZ_CHECK(device.atEnd());
}

void checkImported(GenericCertStore& store, const StoredBefore& before, const Bundle& bundle,
                   CertAccept accept)
{
    const GenericCertStore& reader = store;
    QList<QByteArray> expected = before.fingerprints();
    for (const QByteArray& fingerprint : bundle.fingerprints) {
        if (!expected.contains(fingerprint))
            expected.append(fingerprint);
    }
    FUZZ_CHECK(reader.count() == expected.size());
    FUZZ_CHECK(reader.count() <= before.count() + bundle.markerCount + 1);
    for (int i = 0; i < expected.size(); ++i) {
        const SslCertificatePtr cert = reader[i].endCert();
        FUZZ_CHECK(cert->sha1Digest() == expected.at(i));
        FUZZ_CHECK(reader.indexOf(cert) == i);
        FUZZ_CHECK(store.verify(cert) == vela::VerifyUnknown);
        if (bundle.fingerprints.contains(expected.at(i)))
            FUZZ_CHECK(reader.trustInfo(cert).accept == accept);
    }
    const SslCertificatePtr empty(new SslCertificate);
    FUZZ_CHECK(store.trustInfo(empty).accept
               == (bundle.hasUnreadablePart ? accept : vela::AcceptUndecided));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const StoredBefore before;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const Bundle bundle(bytes);

    const fuzz::ErrorQueueWatch watch;
    GenericCertStore store(nullptr);
    before.addTo(store);
    // The second import finds everything in its place and changes only what it records.
    for (CertAccept accept : {vela::AcceptAlways, vela::AcceptNever}) {
        importBundle(store, bytes, accept);
        before.check(store, bundle);
        checkImported(store, before, bundle, accept);
    }
    return 0;
}

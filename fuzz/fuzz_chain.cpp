// SPDX-License-Identifier: BSD-3-Clause

//! PEM text of a chain.

#include "fuzz/CertificateChecks.h"
#include "fuzz/Harness.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslCertificateChain.h>

#include <QtCore/QBuffer>

#include <openssl/pem.h>

#include <vector>

using vela::BioHandle;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::X509Handle;

namespace {

using Handles = QList<x509_st*>;

//! Returns how many octets OpenSSL takes from the text until it has read one more certificate.
int firstBlockLength(const char* text, int length)
{
    // OpenSSL 1.0.2 takes the memory without saying const.
    const BioHandle bio(BIO_new_mem_buf(const_cast<char*>(text), length));
    const X509Handle x509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    FUZZ_CHECK(x509);
    return length - static_cast<int>(BIO_ctrl_pending(bio.get()));
}

//! Reads one certificate at a time from what the one before it has left.
std::vector<X509Handle> readOneByOne(const char* text, int length)
{
    std::vector<X509Handle> handles;
    while (X509* x509 = SslCertificate::readPem(text, length)) {
        handles.emplace_back(x509);
        const int taken = firstBlockLength(text, length);
        text += taken;
        length -= taken;
    }
    return handles;
}

void checkElements(const Handles& handles, const std::vector<X509Handle>& expected)
{
    FUZZ_CHECK(static_cast<std::size_t>(handles.size()) == expected.size());
    for (int i = 0; i < handles.size(); ++i) {
        FUZZ_CHECK(handles.at(i));
        FUZZ_CHECK(SslCertificate(handles.at(i), false)
                   == SslCertificate(expected.at(static_cast<std::size_t>(i)).get(), false));
    }
}

void checkEnds(SslCertificateChain chain, const Handles& handles)
{
    FUZZ_CHECK(chain.size() == handles.size());
    FUZZ_CHECK(chain.isEmpty() == handles.isEmpty());
    FUZZ_CHECK(!chain.endCert() == handles.isEmpty());
    FUZZ_CHECK(!chain.rootCert() == handles.isEmpty());
    if (handles.isEmpty())
        return;
    FUZZ_CHECK(chain.endCert()->x509() == handles.first());
    FUZZ_CHECK(qAsConst(chain).endCert()->x509() == handles.first());
    FUZZ_CHECK(chain.rootCert()->x509() == handles.last());
    FUZZ_CHECK(qAsConst(chain).rootCert()->x509() == handles.last());
}

void checkReadBack(const SslCertificateChain& chain, const Handles& handles)
{
    QString blocks;
    for (x509_st* handle : handles)
        blocks += SslCertificate::encodePem(handle);
    FUZZ_CHECK(chain.encodePem() == blocks);
    FUZZ_CHECK(SslCertificateChain::encodePem(handles) == blocks);
    const QByteArray pem = blocks.toLatin1();
    QBuffer device;
    device.open(QIODevice::WriteOnly);
    chain.writePem(&device);
    FUZZ_CHECK(device.data() == pem);

    Handles readBack = SslCertificateChain::readPem(pem.constData(), pem.size());
    FUZZ_CHECK(chain == SslCertificateChain(readBack));
    FUZZ_CHECK(SslCertificateChain(readBack) == chain);
    FUZZ_CHECK(SslCertificateChain::encodePem(readBack) == blocks);
    SslCertificateChain::release(readBack);
    FUZZ_CHECK(readBack.isEmpty());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto* text = reinterpret_cast<const char*>(data);
    const int length = static_cast<int>(size);
    const std::vector<X509Handle> expected = readOneByOne(text, length);
    {
        const fuzz::ErrorQueueWatch watch;
        Handles handles = SslCertificateChain::readPem(text, length);
        checkElements(handles, expected);
        const SslCertificateChain chain(handles);
        checkEnds(chain, handles);
        checkReadBack(chain, handles);
        FUZZ_CHECK(chain == SslCertificateChain(chain));
        SslCertificateChain::release(handles);
        FUZZ_CHECK(handles.isEmpty());
    }
    for (const X509Handle& x509 : expected)
        fuzz::checkCertificate(x509.get());
    return 0;
}

// SPDX-License-Identifier: BSD-3-Clause

//! PEM text of one certificate.

#include "fuzz/CertificateChecks.h"
#include "fuzz/Harness.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslCertificate.h>

#include <QtCore/QByteArray>

using vela::SslCertificate;
using vela::X509Handle;

namespace {

//! Reads the same text in the other ways there are.
void checkOtherReaders(const QByteArray& text, const SslCertificate& expected)
{
    const fuzz::ErrorQueueWatch watch;
    const SslCertificate constructed(text.constData(), text.size());
    FUZZ_CHECK(constructed.isEmpty() == expected.isEmpty());
    FUZZ_CHECK(constructed == expected);

    const QByteArray untilNul(text.constData());
    const X509Handle cut(SslCertificate::readPem(untilNul.constData(), untilNul.size()));
    const SslCertificate unmeasured(text.constData(), -1);
    FUZZ_CHECK(unmeasured == SslCertificate(cut.get(), false));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto* text = reinterpret_cast<const char*>(data);
    const int length = static_cast<int>(size);
    X509Handle x509;
    {
        const fuzz::ErrorQueueWatch watch;
        x509.reset(SslCertificate::readPem(text, length));
    }
    checkOtherReaders(QByteArray(text, length), SslCertificate(x509.get(), false));
    if (x509)
        fuzz::checkCertificate(x509.get());
    return 0;
}

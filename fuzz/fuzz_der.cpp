// SPDX-License-Identifier: BSD-3-Clause

//! DER octets, with or without more behind the certificate.

#include "fuzz/CertificateChecks.h"
#include "fuzz/Harness.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslCertificate.h>

using vela::SslCertificate;
using vela::X509Handle;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    X509Handle x509;
    {
        const fuzz::ErrorQueueWatch watch;
        x509.reset(SslCertificate::readDer(data, static_cast<int>(size)));
    }
    if (x509)
        fuzz::checkCertificate(x509.get());
    return 0;
}

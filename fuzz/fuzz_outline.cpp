// SPDX-License-Identifier: BSD-3-Clause

/*
    DER octets, a certificate or not. What the outline of one promises before it is decoded is held
    against what the engine finds in it: there is never more than that, whatever form it is in.
*/

#include "fuzz/Harness.h"

#include "store/validation/DecodedCertificate.h"

#include <QtCore/QByteArray>

namespace {

using vela::CertificateExtensions;
using vela::CertificateOutline;
using vela::DecodedCertificate;

std::size_t countOf(const CertificateExtensions& extensions)
{
    return extensions.names.size() + extensions.policyCount + extensions.mappingCount
           + (extensions.extendedUsages ? extensions.extendedUsages->size() : 0);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray der(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const fuzz::ErrorQueueWatch watch;
    const auto outline = CertificateOutline::of(der);
    const auto certificate = DecodedCertificate::fromDer(der);
    if (!certificate)
        return 0;
    FUZZ_CHECK(outline && outline->isDecodable());
    FUZZ_CHECK(outline->bytes == size);
    FUZZ_CHECK(countOf(certificate->extensions()) <= outline->elements);
    FUZZ_CHECK(outline->footprint() > size && outline->cost() > 0);
    return 0;
}

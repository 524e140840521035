// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/CertificateContext.h"

namespace vela {

CERT_CONTEXT certificateContext(const QByteArray& der)
{
    CERT_CONTEXT context = {};
    context.dwCertEncodingType = X509_ASN_ENCODING;
    // CryptoAPI's structure is not const; its users never write through it.
    context.pbCertEncoded = reinterpret_cast<BYTE*>(const_cast<char*>(der.constData()));
    context.cbCertEncoded = static_cast<DWORD>(der.size());
    return context;
}

CertificateContext::CertificateContext(const QByteArray& der, const CertificateOutline& outline)
    : CERT_CONTEXT(certificateContext(der))
    , m_der(der)
    , m_outline(outline)
{
}

} // namespace vela

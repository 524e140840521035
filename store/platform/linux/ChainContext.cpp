// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/ChainContext.h"

namespace vela {

CERT_CONTEXT certificateContext(const TrustCertificate& certificate)
{
    CERT_CONTEXT context = {};
    context.dwCertEncodingType = X509_ASN_ENCODING;
    // CryptoAPI's structure is not const; its users never write through it.
    context.pbCertEncoded =
        reinterpret_cast<BYTE*>(const_cast<char*>(certificate.der().constData()));
    context.cbCertEncoded = static_cast<DWORD>(certificate.der().size());
    return context;
}

ChainContext::ChainContext(const JudgedPath& judged)
    : CERT_CHAIN_CONTEXT{}
    , m_certificates(judged.elements.size())
    , m_elements(judged.elements.size())
    , m_elementPointers(judged.elements.size())
    , m_path(judged.path)
{
    for (std::size_t i = 0; i < m_elements.size(); ++i) {
        m_certificates[i] = certificateContext(*m_path.elements[i].certificate);
        m_elements[i].cbSize = sizeof(CERT_CHAIN_ELEMENT);
        m_elements[i].pCertContext = &m_certificates[i];
        m_elements[i].TrustStatus = judged.elements[i];
        m_elementPointers[i] = &m_elements[i];
    }
    m_chain.cbSize = sizeof m_chain;
    m_chain.TrustStatus = judged.chain;
    m_chain.cElement = static_cast<DWORD>(m_elements.size());
    m_chain.rgpElement = m_elementPointers.data();
    cbSize = sizeof(CERT_CHAIN_CONTEXT);
    TrustStatus = judged.chain;
    cChain = 1;
    rgpChain = m_chains;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/ChainContext.h"

#include "store/platform/linux/CertificateContext.h"

#include <utility>

namespace vela {

namespace {

//! What the errors of a path are called in `CERT_TRUST_STATUS`.
constexpr std::pair<PathError, DWORD> ERROR_BITS[] = {
    {NotTimeValid, CERT_TRUST_IS_NOT_TIME_VALID},
    {SignatureInvalid, CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {SignatureWeak, CERT_TRUST_HAS_WEAK_SIGNATURE},
    {ExtensionInvalid, CERT_TRUST_INVALID_EXTENSION},
    {ExtensionNotSupported, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    {UsageInvalid, CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {AuthorityInvalid, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {NameNotPermitted, CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT},
    {NameExcluded, CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT},
    {NameNotComparable, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {NameNotSupported, CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT},
    {RootUntrusted, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {PolicyInvalid, CERT_TRUST_INVALID_POLICY_CONSTRAINTS},
    {PathIncomplete, CERT_TRUST_IS_PARTIAL_CHAIN},
    {PathCyclic, CERT_TRUST_IS_CYCLIC},
};

DWORD errorStatus(PathErrors errors)
{
    DWORD status = CERT_TRUST_NO_ERROR;
    for (const auto& bit : ERROR_BITS) {
        if (errors & bit.first)
            status |= bit.second;
    }
    return status;
}

DWORD issuerInfo(const PathElement& element)
{
    if (!element.hasIssuer)
        return 0;
    switch (element.issuerMatch) {
    case DecodedCertificate::IssuerMatch::ExactId:
        return CERT_TRUST_HAS_EXACT_MATCH_ISSUER;
    case DecodedCertificate::IssuerMatch::KeyId:
        return CERT_TRUST_HAS_KEY_MATCH_ISSUER;
    default:
        return CERT_TRUST_HAS_NAME_MATCH_ISSUER;
    }
}

CERT_TRUST_STATUS elementStatus(const PathElement& element, PathErrors errors)
{
    CERT_TRUST_STATUS status = {};
    status.dwErrorStatus = errorStatus(errors);
    status.dwInfoStatus =
        issuerInfo(element) | (element.isSelfSigned ? CERT_TRUST_IS_SELF_SIGNED : 0);
    return status;
}

/*!
    The whole is called self-signed only when the root is not trusted: with a trusted one at its end
    it would be taken for self-signed as soon as it has any other error, such as having expired.
*/
CERT_TRUST_STATUS chainStatus(const JudgedPath& judged)
{
    CERT_TRUST_STATUS status = {};
    status.dwErrorStatus = errorStatus(judged.errors);
    status.dwInfoStatus = judged.endsSelfSigned() ? CERT_TRUST_IS_SELF_SIGNED : 0;
    return status;
}

} // namespace

ChainContext::ChainContext(const JudgedPath& judged)
    : CERT_CHAIN_CONTEXT{}
    , m_certificates(judged.elementErrors.size())
    , m_elements(judged.elementErrors.size())
    , m_elementPointers(judged.elementErrors.size())
    , m_path(judged.path)
{
    for (std::size_t i = 0; i < m_elements.size(); ++i) {
        m_certificates[i] = certificateContext(m_path.elements[i].certificate->der());
        m_elements[i].cbSize = sizeof(CERT_CHAIN_ELEMENT);
        m_elements[i].pCertContext = &m_certificates[i];
        m_elements[i].TrustStatus = elementStatus(m_path.elements[i], judged.elementErrors[i]);
        m_elementPointers[i] = &m_elements[i];
    }
    m_chain.cbSize = sizeof m_chain;
    m_chain.TrustStatus = chainStatus(judged);
    m_chain.cElement = static_cast<DWORD>(m_elements.size());
    m_chain.rgpElement = m_elementPointers.data();
    cbSize = sizeof(CERT_CHAIN_CONTEXT);
    TrustStatus = m_chain.TrustStatus;
    cChain = 1;
    rgpChain = m_chains;
}

} // namespace vela

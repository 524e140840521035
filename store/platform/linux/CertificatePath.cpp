// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/CertificatePath.h"

#include "cert/OpenSslErrorMark.h"
#include "support/OpenSslCompat.h"

#include <QtCore/qalgorithms.h>

#include <algorithm>

namespace vela {

namespace {

constexpr const char* ANY_USAGE = "2.5.29.37.0";

//! Frees stacks that do not own what they hold.
struct StackDeleter
{
    void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
    void operator()(STACK_OF(ASN1_OBJECT) * stack) const { sk_ASN1_OBJECT_free(stack); }
};
using CertificateStack = std::unique_ptr<STACK_OF(X509), StackDeleter>;
using PolicyStack = std::unique_ptr<STACK_OF(ASN1_OBJECT), StackDeleter>;

/*! Collects every error of one path. */
class PathJudge
{
public:
    PathJudge(const CertificatePath& path, const ChainRequest& request, NameJudge* names);
    JudgedPath result();

private:
    void judgeItself(std::size_t index);
    void judgeUsage(std::size_t index);
    void judgeAuthority(std::size_t index);
    void judgePathLength(std::size_t index);
    void judgeNames(std::size_t index);
    void judgeEnd();
    void sumUp();
    void judgePolicies();

    const TrustCertificate& certificate(std::size_t index) const;
    void addError(std::size_t index, DWORD error);
    bool isTrustedRoot(std::size_t index) const;

    const ChainRequest& m_request;
    NameJudge& m_names;
    JudgedPath m_judged;
    const std::size_t m_size;
};

PathJudge::PathJudge(const CertificatePath& path, const ChainRequest& request, NameJudge* names)
    : m_request(request)
    , m_names(*names)
    , m_judged{path, std::vector<CERT_TRUST_STATUS>(path.elements.size()), {}}
    , m_size(path.elements.size())
{
}

JudgedPath PathJudge::result()
{
    for (std::size_t i = 0; i < m_size; ++i) {
        judgeItself(i);
        judgeUsage(i);
        if (i == 0)
            continue;
        judgeAuthority(i);
        judgePathLength(i);
        judgeNames(i);
    }
    judgeEnd();
    sumUp();
    judgePolicies();
    return m_judged;
}

const TrustCertificate& PathJudge::certificate(std::size_t index) const
{
    return *m_judged.path.elements[index].certificate;
}

void PathJudge::addError(std::size_t index, DWORD error)
{
    m_judged.elements[index].dwErrorStatus |= error;
}

bool PathJudge::isTrustedRoot(std::size_t index) const
{
    return index + 1 == m_size && m_judged.path.end == CertificatePath::End::Trusted;
}

void PathJudge::judgeItself(std::size_t index)
{
    const PathElement& element = m_judged.path.elements[index];
    m_judged.elements[index].dwInfoStatus =
        element.issuerInfo | (element.isSelfSigned ? CERT_TRUST_IS_SELF_SIGNED : 0);
    if (!certificate(index).isValidAt(m_request.time))
        addError(index, CERT_TRUST_IS_NOT_TIME_VALID);
    if (certificate(index).extensions().isMalformed)
        addError(index, CERT_TRUST_INVALID_EXTENSION);
    if (certificate(index).extensions().hasUnsupportedCritical)
        addError(index, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT);
    if (!element.isSignatureValid)
        addError(index, CERT_TRUST_IS_NOT_SIGNATURE_VALID);
    // A self-signature proves nothing, and a trusted certificate's is not what it is trusted for.
    if (certificate(index).hasWeakSignature() && !element.isSelfSigned && !isTrustedRoot(index))
        addError(index, CERT_TRUST_HAS_WEAK_SIGNATURE);
    if (certificate(index).hasWeakKey())
        addError(index, CERT_TRUST_HAS_WEAK_SIGNATURE);
}

void PathJudge::judgeUsage(std::size_t index)
{
    const auto& allowed = certificate(index).extensions().extendedUsages;
    if (!allowed || m_request.usages.empty())
        return;
    const auto isAllowed = [&allowed](const QByteArray& usage) {
        return std::find_if(
                   allowed->begin(), allowed->end(),
                   [&usage](const QByteArray& one) { return one == usage || one == ANY_USAGE; })
               != allowed->end();
    };
    const auto& usages = m_request.usages;
    const bool isValid = m_request.needsAllUsages
                             ? std::all_of(usages.begin(), usages.end(), isAllowed)
                             : std::any_of(usages.begin(), usages.end(), isAllowed);
    if (!isValid)
        addError(index, CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
}

void PathJudge::judgeAuthority(std::size_t index)
{
    const CertificateExtensions& extensions = certificate(index).extensions();
    // A root that does not say whether it is an authority is one because it is trusted.
    const bool isAuthority = extensions.basicConstraints ? extensions.basicConstraints->isAuthority
                                                         : isTrustedRoot(index);
    if (!isAuthority)
        addError(index, CERT_TRUST_INVALID_BASIC_CONSTRAINTS);
    if (!extensions.mayCertSign)
        addError(index, CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
}

//! Marks the authorities that are too many below the one at \a index.
void PathJudge::judgePathLength(std::size_t index)
{
    const auto& constraints = certificate(index).extensions().basicConstraints;
    if (!constraints || !constraints->pathLength)
        return;
    long remaining = *constraints->pathLength;
    for (std::size_t i = index - 1; i > 0; --i) {
        if (!certificate(i).isSelfIssued() && remaining-- <= 0)
            addError(i, CERT_TRUST_INVALID_BASIC_CONSTRAINTS);
    }
}

//! Holds the names below an authority against the constraints of that authority.
void PathJudge::judgeNames(std::size_t index)
{
    if (certificate(index).extensions().nameConstraints.isEmpty())
        return;
    for (std::size_t i = 0; i < index; ++i) {
        const bool isExempt = i > 0 && certificate(i).isSelfIssued();
        if (!isExempt)
            addError(i, m_names.errorsOf(certificate(i), certificate(index)));
    }
}

void PathJudge::judgeEnd()
{
    if (m_judged.path.end == CertificatePath::End::UntrustedRoot) {
        addError(m_size - 1, CERT_TRUST_IS_UNTRUSTED_ROOT);
        // Of the chain only when the root is not trusted: with a trusted one at its end it would
        // be taken for self-signed as soon as it has any other error, such as having expired.
        if (m_judged.path.elements.back().isSelfSigned)
            m_judged.chain.dwInfoStatus |= CERT_TRUST_IS_SELF_SIGNED;
    }
    if (m_judged.path.end == CertificatePath::End::NoIssuer)
        m_judged.chain.dwErrorStatus |= CERT_TRUST_IS_PARTIAL_CHAIN;
    if (m_judged.path.isCyclic)
        m_judged.chain.dwErrorStatus |= CERT_TRUST_IS_CYCLIC;
}

void PathJudge::sumUp()
{
    for (const CERT_TRUST_STATUS& status : m_judged.elements)
        m_judged.chain.dwErrorStatus |= status.dwErrorStatus;
}

//! Whether a certificate below the root of \a path demands a policy of those from it downwards.
bool isPolicyDemanded(const CertificatePath& path)
{
    long later = 0; // Certificates further down, but for those that authorities issue themselves.
    for (std::size_t i = 0; i + 1 < path.elements.size(); ++i) {
        const TrustCertificate& certificate = *path.elements[i].certificate;
        const auto& required = certificate.extensions().requiredPolicy;
        if (required && *required <= later)
            return true;
        later += certificate.isSelfIssued() ? 0 : 1;
    }
    return false;
}

/*!
    Whether \a path can meet a demand, and the engine may find out. It leaks what it has read of
    certificates without policies, or with one twice; and with mappings each certificate can
    multiply the tree of policies, for which the reference engine knows no limit.
*/
bool arePoliciesUsable(const CertificatePath& path)
{
    constexpr std::size_t MAX_NODES = 1000;
    std::size_t nodes = 1;
    for (std::size_t i = 0; i + 1 < path.elements.size(); ++i) {
        const CertificateExtensions& extensions = path.elements[i].certificate->extensions();
        nodes *= extensions.policyCount;
        if (nodes == 0 || nodes > MAX_NODES || extensions.hasRepeatedPolicies)
            return false;
    }
    return true;
}

/*!
    Nobody asks for a policy, so policies matter only where a certificate itself demands one. The
    engine works that out, which can take long and therefore only a chain without errors is worth.
*/
void PathJudge::judgePolicies()
{
    const auto& elements = m_judged.path.elements;
    if (m_judged.chain.dwErrorStatus != CERT_TRUST_NO_ERROR || !isPolicyDemanded(m_judged.path))
        return;
    if (!arePoliciesUsable(m_judged.path)) {
        m_judged.chain.dwErrorStatus |= CERT_TRUST_INVALID_POLICY_CONSTRAINTS;
        return;
    }
    const OpenSslErrorMark mark;
    const CertificateStack certificates(sk_X509_new_null());
    for (const PathElement& element : elements)
        sk_X509_push(certificates.get(), element.certificate->x509());
    const PolicyStack anyPolicy(sk_ASN1_OBJECT_new_null());
    sk_ASN1_OBJECT_push(anyPolicy.get(), OBJ_nid2obj(NID_any_policy));
    X509_POLICY_TREE* tree = nullptr;
    int isExplicit = 0;
    if (X509_policy_check(&tree, &isExplicit, certificates.get(), anyPolicy.get(), 0) != 1)
        m_judged.chain.dwErrorStatus |= CERT_TRUST_INVALID_POLICY_CONSTRAINTS;
    X509_policy_tree_free(tree);
}

} // namespace

DWORD NameJudge::errorsOf(const TrustCertificate& certificate, const TrustCertificate& authority)
{
    const std::pair<const TrustCertificate*, const TrustCertificate*> pair(&certificate,
                                                                           &authority);
    const auto known = m_known.find(pair);
    if (known != m_known.end())
        return known->second;
    const NameConstraints& constraints = authority.extensions().nameConstraints;
    const std::vector<GeneralName>& names = certificate.extensions().names;
    const std::size_t comparisons = constraints.comparisonsFor(names.size());
    if (comparisons > m_remaining)
        return CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    m_remaining -= comparisons;
    return m_known.emplace(pair, constraints.errorsOf(certificate.x509(), names)).first->second;
}

JudgedPath judgePath(const CertificatePath& path, const ChainRequest& request, NameJudge* names)
{
    return PathJudge(path, request, names).result();
}

int defectsOf(const JudgedPath& judged)
{
    constexpr int NOT_SIGNED = 1 << 22;
    constexpr int INCOMPLETE = 1 << 21;
    constexpr int UNTRUSTED = 1 << 20;
    constexpr int LESSER_ERROR = 2;
    constexpr DWORD GRAVE = CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_PARTIAL_CHAIN
                            | CERT_TRUST_IS_UNTRUSTED_ROOT;

    const DWORD errors = judged.chain.dwErrorStatus;
    int defects = 0;
    if (errors & CERT_TRUST_IS_NOT_SIGNATURE_VALID)
        defects += NOT_SIGNED;
    if (errors & CERT_TRUST_IS_PARTIAL_CHAIN)
        defects += INCOMPLETE;
    if (errors & CERT_TRUST_IS_UNTRUSTED_ROOT)
        defects += UNTRUSTED;
    defects += LESSER_ERROR * int(qPopulationCount(errors & ~GRAVE));
    for (const CERT_TRUST_STATUS& status : judged.elements)
        defects += LESSER_ERROR * int(qPopulationCount(status.dwErrorStatus & ~GRAVE));
    return defects;
}

} // namespace vela

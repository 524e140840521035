// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/PathPolicies.h"

#include "support/OpenSslCompat.h"
#include "support/OpenSslErrorMark.h"

#include <openssl/x509v3.h>

namespace vela {

namespace {

//! Frees stacks that do not own what they hold.
struct StackDeleter
{
    void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
    void operator()(STACK_OF(ASN1_OBJECT) * stack) const { sk_ASN1_OBJECT_free(stack); }
};
using CertificateStack = std::unique_ptr<STACK_OF(X509), StackDeleter>;
using PolicyStack = std::unique_ptr<STACK_OF(ASN1_OBJECT), StackDeleter>;

//! Whether a certificate below the root of \a path demands a policy of those from it downwards.
bool isPolicyDemanded(const CertificatePath& path)
{
    long later = 0; // Certificates further down, but for those that authorities issue themselves.
    for (std::size_t i = 0; i + 1 < path.elements.size(); ++i) {
        const DecodedCertificate& certificate = *path.elements[i].certificate;
        const auto& required = certificate.extensions().requiredPolicy;
        if (required && *required <= later)
            return true;
        later += certificate.isSelfIssued() ? 0 : 1;
    }
    return false;
}

/*!
    Whether \a path can meet a demand, and the engine may find out. It leaks what it has read of
    certificates without policies, or with one twice; and each certificate can multiply the tree of
    policies, for which the reference engine knows no limit. Mappings are looked for one by one.
*/
bool arePoliciesUsable(const CertificatePath& path, WorkBudget* budget)
{
    constexpr std::size_t MAX_NODES = 1000;
    constexpr std::size_t MAX_MAPPINGS = 200;
    constexpr std::size_t PER_NODE = 4000;
    constexpr std::size_t PER_MAPPING = 100;
    std::size_t nodes = 1;
    std::size_t mappings = 1;
    for (std::size_t i = 0; i + 1 < path.elements.size(); ++i) {
        const CertificateExtensions& extensions = path.elements[i].certificate->extensions();
        nodes *= extensions.policyCount;
        mappings += extensions.mappingCount;
        if (nodes == 0 || nodes > MAX_NODES || mappings > MAX_MAPPINGS
            || extensions.hasRepeatedPolicies)
            return false;
    }
    const std::size_t cost = path.elements.size() * nodes * (PER_NODE + PER_MAPPING * mappings);
    return budget->spend(static_cast<qint64>(cost));
}

} // namespace

PathErrors policyErrorsOf(const CertificatePath& path, WorkBudget* budget)
{
    if (!isPolicyDemanded(path))
        return NoPathError;
    if (!arePoliciesUsable(path, budget))
        return PolicyInvalid;
    const OpenSslErrorMark mark;
    const CertificateStack certificates(sk_X509_new_null());
    for (const PathElement& element : path.elements)
        sk_X509_push(certificates.get(), element.certificate->x509());
    const PolicyStack anyPolicy(sk_ASN1_OBJECT_new_null());
    sk_ASN1_OBJECT_push(anyPolicy.get(), OBJ_nid2obj(NID_any_policy));
    X509_POLICY_TREE* tree = nullptr;
    int isExplicit = 0;
    const bool isMet =
        X509_policy_check(&tree, &isExplicit, certificates.get(), anyPolicy.get(), 0) == 1;
    X509_policy_tree_free(tree);
    return isMet ? NoPathError : PolicyInvalid;
}

} // namespace vela

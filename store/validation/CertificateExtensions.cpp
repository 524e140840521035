// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/CertificateExtensions.h"

#include "support/OpenSslCompat.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>

namespace vela {

namespace {

using BasicConstraintsHandle =
    std::unique_ptr<BASIC_CONSTRAINTS, OpenSslDeleter<BASIC_CONSTRAINTS_free>>;
using BitStringHandle = std::unique_ptr<ASN1_BIT_STRING, OpenSslDeleter<ASN1_BIT_STRING_free>>;
using ExtendedUsageHandle =
    std::unique_ptr<EXTENDED_KEY_USAGE, OpenSslDeleter<EXTENDED_KEY_USAGE_free>>;
using PoliciesHandle =
    std::unique_ptr<CERTIFICATEPOLICIES, OpenSslDeleter<CERTIFICATEPOLICIES_free>>;
using PolicyConstraintsHandle =
    std::unique_ptr<POLICY_CONSTRAINTS, OpenSslDeleter<POLICY_CONSTRAINTS_free>>;
using GeneralNamesHandle = std::unique_ptr<GENERAL_NAMES, OpenSslDeleter<GENERAL_NAMES_free>>;
using SubjectKeyIdHandle =
    std::unique_ptr<ASN1_OCTET_STRING, OpenSslDeleter<ASN1_OCTET_STRING_free>>;

constexpr int BIT_KEY_CERT_SIGN = 5;

/*
    Not the engine's own list: engines differ in theirs, and count extensions as supported that only
    take effect with flags that nobody sets here, such as proxy certificates.
*/
constexpr std::array SUPPORTED_EXTENSIONS = {
    NID_subject_key_identifier,  NID_key_usage,
    NID_subject_alt_name,        NID_basic_constraints,
    NID_certificate_policies,    NID_authority_key_identifier,
    NID_crl_distribution_points, NID_ext_key_usage,
    NID_policy_constraints,      NID_name_constraints,
    NID_policy_mappings,         NID_inhibit_any_policy};

void freeMappings(POLICY_MAPPINGS* mappings)
{
    sk_POLICY_MAPPING_pop_free(mappings, POLICY_MAPPING_free);
}

using PolicyMappingsHandle = std::unique_ptr<POLICY_MAPPINGS, OpenSslDeleter<freeMappings>>;

bool isSupported(X509_EXTENSION* extension)
{
    const int nid = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
    return std::find(SUPPORTED_EXTENSIONS.begin(), SUPPORTED_EXTENSIONS.end(), nid)
           != SUPPORTED_EXTENSIONS.end();
}

bool findUnsupportedCritical(X509* x509)
{
    for (int i = 0; i < X509_get_ext_count(x509); ++i) {
        X509_EXTENSION* const extension = X509_get_ext(x509, i);
        if (X509_EXTENSION_get_critical(extension) && !isSupported(extension))
            return true;
    }
    return false;
}

} // namespace

QByteArray encodedObject(const ASN1_OBJECT* object)
{
    // OpenSSL 1.0.2 encodes objects without saying const.
    auto* const encodable = const_cast<ASN1_OBJECT*>(object);
    QByteArray encoded(std::max(i2d_ASN1_OBJECT(encodable, nullptr), 0), '\0');
    auto* cursor = reinterpret_cast<unsigned char*>(encoded.data());
    i2d_ASN1_OBJECT(encodable, &cursor);
    return encoded;
}

CertificateExtensions::CertificateExtensions(X509* x509)
    : hasUnsupportedCritical(findUnsupportedCritical(x509))
    , hasSubjectKeyId(read<SubjectKeyIdHandle>(x509, NID_subject_key_identifier) != nullptr)
    , nameConstraints(read<NameConstraintsHandle>(x509, NID_name_constraints))
    , authorityKeyId(read<AuthorityKeyIdHandle>(x509, NID_authority_key_identifier))
{
    readBasicConstraints(x509);
    readKeyUsage(x509);
    readExtendedUsages(x509);
    readNames(x509);
    readPolicies(x509);
    readPolicyMappings(x509);
    readPolicyConstraints(x509);
}

template <typename Handle>
Handle CertificateExtensions::read(X509* x509, int nid)
{
    constexpr int ABSENT = -1;
    int critical = 0;
    Handle handle(
        static_cast<typename Handle::pointer>(X509_get_ext_d2i(x509, nid, &critical, nullptr)));
    if (!handle && critical != ABSENT)
        isMalformed = true;
    return handle;
}

void CertificateExtensions::readBasicConstraints(X509* x509)
{
    const auto constraints = read<BasicConstraintsHandle>(x509, NID_basic_constraints);
    if (!constraints)
        return;
    basicConstraints.emplace();
    basicConstraints->isAuthority = constraints->ca != 0;
    if (!constraints->pathlen)
        return;
    basicConstraints->pathLength = ASN1_INTEGER_get(constraints->pathlen);
    if (*basicConstraints->pathLength < 0)
        isMalformed = true;
}

void CertificateExtensions::readKeyUsage(X509* x509)
{
    const auto usage = read<BitStringHandle>(x509, NID_key_usage);
    mayCertSign = !usage || ASN1_BIT_STRING_get_bit(usage.get(), BIT_KEY_CERT_SIGN) == 1;
}

void CertificateExtensions::readExtendedUsages(X509* x509)
{
    const auto usages = read<ExtendedUsageHandle>(x509, NID_ext_key_usage);
    if (!usages)
        return;
    extendedUsages.emplace();
    for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i)
        extendedUsages->push_back(encodedObject(sk_ASN1_OBJECT_value(usages.get(), i)));
}

void CertificateExtensions::readNames(X509* x509)
{
    const auto alternativeNames = read<GeneralNamesHandle>(x509, NID_subject_alt_name);
    names = namesOf(x509, alternativeNames.get());
}

void CertificateExtensions::readPolicies(X509* x509)
{
    const auto policies = read<PoliciesHandle>(x509, NID_certificate_policies);
    policyCount = std::size_t(std::max(0, sk_POLICYINFO_num(policies.get())));
    std::vector<const ASN1_OBJECT*> ids(policyCount);
    for (std::size_t i = 0; i < policyCount; ++i)
        ids[i] = sk_POLICYINFO_value(policies.get(), int(i))->policyid;
    std::sort(ids.begin(), ids.end(),
              [](const auto* left, const auto* right) { return OBJ_cmp(left, right) < 0; });
    const auto twice =
        std::adjacent_find(ids.begin(), ids.end(), [](const auto* left, const auto* right) {
            return OBJ_cmp(left, right) == 0;
        });
    hasRepeatedPolicies = twice != ids.end();
}

void CertificateExtensions::readPolicyMappings(X509* x509)
{
    const auto mappings = read<PolicyMappingsHandle>(x509, NID_policy_mappings);
    mappingCount = std::size_t(std::max(0, sk_POLICY_MAPPING_num(mappings.get())));
}

void CertificateExtensions::readPolicyConstraints(X509* x509)
{
    const auto constraints = read<PolicyConstraintsHandle>(x509, NID_policy_constraints);
    if (!constraints)
        return;
    const ASN1_INTEGER* const required = constraints->requireExplicitPolicy;
    if (required)
        requiredPolicy = ASN1_INTEGER_get(required);
    if ((!required && !constraints->inhibitPolicyMapping) || requiredPolicy.value_or(0) < 0)
        isMalformed = true;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEEXTENSIONS_H
#define FERRULE_CERTIFICATEEXTENSIONS_H

#include "store/validation/NameConstraints.h"
#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>

#include <openssl/x509v3.h>

#include <memory>
#include <optional>
#include <vector>

namespace vela {

using AuthorityKeyIdHandle = std::unique_ptr<AUTHORITY_KEYID, OpenSslDeleter<AUTHORITY_KEYID_free>>;

//! Returns an object identifier as encoded: to write one in digits takes long if it is long.
QByteArray encodedObject(const ASN1_OBJECT* object);

/*! What basic constraints say. */
struct AuthorityConstraints
{
    bool isAuthority = false;
    std::optional<long> pathLength;
};

/*! What path validation wants to know of a certificate's extensions, read once. */
struct CertificateExtensions
{
    explicit CertificateExtensions(X509* x509);

    bool isMalformed = false; //!< One of those read here occurs twice or cannot be decoded.
    bool hasUnsupportedCritical = false;
    std::size_t policyCount = 0;
    std::size_t mappingCount = 0;
    bool hasRepeatedPolicies = false;
    std::optional<long> requiredPolicy; //!< How many certificates later there must be a policy.
    bool mayCertSign = true;            //!< There is no key usage, or it says so.
    bool hasSubjectKeyId = false;
    std::optional<AuthorityConstraints> basicConstraints;
    std::optional<std::vector<QByteArray>> extendedUsages; //!< Object identifiers as encoded.
    NameConstraints nameConstraints;
    std::vector<GeneralName> names;
    AuthorityKeyIdHandle authorityKeyId;

private:
    template <typename Handle>
    Handle read(X509* x509, int nid);
    void readBasicConstraints(X509* x509);
    void readKeyUsage(X509* x509);
    void readExtendedUsages(X509* x509);
    void readNames(X509* x509);
    void readPolicies(X509* x509);
    void readPolicyMappings(X509* x509);
    void readPolicyConstraints(X509* x509);
};

} // namespace vela

#endif

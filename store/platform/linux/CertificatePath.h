// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEPATH_H
#define FERRULE_CERTIFICATEPATH_H

#include "store/platform/CryptoApi.h"
#include "store/platform/linux/TrustCertificate.h"

#include <QtCore/QByteArray>

#include <map>
#include <utility>
#include <vector>

namespace vela {

/*! One certificate of a path, and how it hangs together with the next one. */
struct PathElement
{
    TrustCertificatePtr certificate;
    bool isSelfSigned = false;
    bool isSignatureValid = true;
    DWORD issuerInfo = 0; //!< The `CERT_TRUST_HAS_…_MATCH_ISSUER` bit.
};

/*! A way from a certificate to where it ends, the end certificate first. */
struct CertificatePath
{
    enum class End {
        Trusted,
        UntrustedRoot, //!< A certificate that names itself as its issuer.
        NoIssuer,
    };

    std::vector<PathElement> elements;
    End end = End::NoIssuer;
    bool isCyclic = false; //!< The only issuers stood in the path already.
};

/*! What a chain is asked for. */
struct ChainRequest
{
    qint64 time = 0;                //!< Seconds since the epoch.
    std::vector<QByteArray> usages; //!< Object identifiers in digits; empty for any usage.
    bool needsAllUsages = true;     //!< One of several is enough otherwise.
};

/*! A path with everything there is to say about it, in the bits of `CERT_TRUST_STATUS`. */
struct JudgedPath
{
    CertificatePath path;
    std::vector<CERT_TRUST_STATUS> elements;
    CERT_TRUST_STATUS chain = {};
};

/*!
    Holds the names of certificates against the constraints of authorities, for one search: each
    certificate against each authority once, and never more than `MAX_COMPARISONS` names. What is
    left then is not judged and therefore invalid.
*/
class NameJudge
{
public:
    static constexpr std::size_t MAX_COMPARISONS = 1 << 19;

    DWORD errorsOf(const TrustCertificate& certificate, const TrustCertificate& authority);

private:
    std::map<std::pair<const TrustCertificate*, const TrustCertificate*>, DWORD> m_known;
    std::size_t m_remaining = MAX_COMPARISONS;
};

JudgedPath judgePath(const CertificatePath& path, const ChainRequest& request, NameJudge* names);

/*!
    Returns how far \a judged is from valid: 0 if it is valid, and less for the better of two. What
    puts the whole chain in doubt counts more than any number of lesser errors.
*/
int defectsOf(const JudgedPath& judged);

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHAINBUILDER_H
#define FERRULE_CHAINBUILDER_H

#include "store/platform/linux/CertificatePath.h"

#include <QtCore/qglobal.h>

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace vela {

/*! Where a chain's certificates come from. */
class CertificateSource
{
public:
    CertificateSource() = default;
    virtual ~CertificateSource() = default;

    virtual bool isTrusted(const TrustCertificatePtr& certificate) const = 0;
    //! Returns every certificate that bears the name of \a certificate's issuer, trusted or not.
    virtual std::vector<TrustCertificatePtr>
    issuersOf(const TrustCertificate& certificate) const = 0;

private:
    Q_DISABLE_COPY(CertificateSource)
};

/*!
    Finds the way from a certificate to a trusted root.

    There can be several: authorities certify each other, and renew their certificates under the
    same name and key. All of them are tried, the likeliest first, until one is valid; otherwise the
    one with the least wrong with it is the answer. An issuer that is trusted ends a path, whether
    it is self-signed or not; the certificate itself only if it is. Which issuer a key identifier
    means is a hint, the signature decides.

    The search ends with the best path so far when it has tried `MAX_PATHS` paths or verified
    `MAX_SIGNATURES` signatures, so that certificates made for the purpose cannot keep it busy. No
    path is longer than `MAX_LENGTH`; NameJudge limits the comparing of names. What remains grows
    with the number of certificates of one name, but no faster.
*/
class ChainBuilder
{
public:
    static constexpr std::size_t MAX_LENGTH = 20;
    static constexpr int MAX_PATHS = 200;
    static constexpr int MAX_SIGNATURES = 200;

    ChainBuilder(const CertificateSource& source, const ChainRequest& request);

    JudgedPath build(const TrustCertificatePtr& certificate);

private:
    void extend();
    void extendBeyond(const TrustCertificatePtr& certificate);
    void tryIssuer(const TrustCertificatePtr& issuer, bool isSignatureValid);
    void endWithoutIssuer(const TrustCertificate& certificate, bool isCyclic);
    void end(CertificatePath::End end);
    bool isExhausted() const;
    bool isFinished() const;

    //! Returns the issuers of \a certificate, the likeliest first.
    const std::vector<TrustCertificatePtr>& issuersOf(const TrustCertificate& certificate);
    std::vector<TrustCertificatePtr> sortedIssuersOf(const TrustCertificate& certificate) const;
    bool isInPath(const TrustCertificate& certificate) const;
    bool isSigned(const TrustCertificate& certificate, const TrustCertificate& issuer);

    const CertificateSource& m_source;
    const ChainRequest& m_request;
    NameJudge m_names;
    CertificatePath m_path;
    std::optional<JudgedPath> m_best;
    int m_leastDefects = 0;
    int m_pathCount = 0;
    std::map<const TrustCertificate*, std::vector<TrustCertificatePtr>> m_issuers;
    std::map<std::pair<const TrustCertificate*, const TrustCertificate*>, bool> m_signatures;
};

} // namespace vela

#endif

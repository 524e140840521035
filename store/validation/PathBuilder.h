// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PATHBUILDER_H
#define FERRULE_PATHBUILDER_H

#include "store/validation/CertificatePath.h"
#include "store/validation/NameJudge.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace vela {

/*!
    Finds the way from a certificate to a trusted root.

    There can be several: authorities certify each other, and renew their certificates under the
    same name and key. All of them are tried, the likeliest first, until one is valid; otherwise the
    one with the least wrong with it is the answer. An issuer that is trusted ends a path, whether
    it is self-signed or not; the certificate itself only if it is. Which issuer a key identifier
    means is a hint, the signature decides.

    Roots come first, then what is proven, so that strangers who fill a store with namesakes of an
    authority do not stand before the authority's own certificate.

    The search ends with the best path so far when it has reached one of the question's limits, so
    that certificates made for the purpose cannot keep it busy.
*/
class PathBuilder
{
public:
    PathBuilder(const CertificateSource& source, const PathQuestion& question);

    PathAnswer build();

private:
    void extend();
    void extendBeyond(const DecodedCertificatePtr& certificate);
    void tryIssuer(const DecodedCertificatePtr& issuer, bool isSignatureValid);
    void noteIssuer(DecodedCertificate::IssuerMatch match);
    void endWithoutIssuer(const DecodedCertificate& certificate, bool isCyclic);
    void end(CertificatePath::End end);
    bool isExhausted() const;
    bool isFinished() const;

    //! Returns the issuers of \a certificate, the likeliest first.
    const std::vector<DecodedCertificatePtr>& issuersOf(const DecodedCertificate& certificate);
    std::vector<DecodedCertificatePtr> sortedIssuersOf(const DecodedCertificate& certificate);
    bool isInPath(const DecodedCertificate& certificate) const;
    bool isSigned(const DecodedCertificate& certificate, const DecodedCertificate& issuer);

    const CertificateSource& m_source;
    const PathQuestion& m_question;
    WorkBudget m_budget;
    NameJudge m_names;
    CertificatePath m_path;
    std::optional<JudgedPath> m_best;
    int m_leastDefects = 0;
    int m_pathCount = 0;
    std::map<const DecodedCertificate*, std::vector<DecodedCertificatePtr>> m_issuers;
    std::map<std::pair<const DecodedCertificate*, const DecodedCertificate*>, bool> m_signatures;
};

} // namespace vela

#endif

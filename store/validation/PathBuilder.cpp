// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/PathBuilder.h"

#include "store/validation/PathJudge.h"

#include <algorithm>
#include <tuple>

namespace vela {

PathBuilder::PathBuilder(const CertificateSource& source, const PathQuestion& question)
    : m_source(source)
    , m_question(question)
    , m_budget(question.limits.work)
    , m_names(question.limits.comparisons, &m_budget)
{
}

PathAnswer PathBuilder::build()
{
    m_path.elements.push_back({m_question.certificate});
    extend();
    return {*m_best, m_pathCount, int(m_signatures.size()), m_budget.spent()};
}

void PathBuilder::extend()
{
    PathElement& element = m_path.elements.back();
    const DecodedCertificatePtr certificate = element.certificate;
    element.isSelfSigned = certificate->isSelfIssued() && isSigned(*certificate, *certificate);
    if (element.isSelfSigned)
        noteIssuer(certificate->matchIssuer(*certificate));

    // An end certificate is not valid by being listed among the roots, unless it is one.
    const bool isRoot = m_path.elements.size() > 1 || element.isSelfSigned;
    if (isRoot && m_source.isTrusted(certificate))
        end(CertificatePath::End::Trusted);
    else if (element.isSelfSigned)
        end(CertificatePath::End::UntrustedRoot);
    else if (m_path.elements.size() == m_question.limits.length)
        end(CertificatePath::End::NoIssuer);
    else
        extendBeyond(certificate);
}

void PathBuilder::extendBeyond(const DecodedCertificatePtr& certificate)
{
    const std::vector<DecodedCertificatePtr>& issuers = issuersOf(*certificate);
    std::vector<DecodedCertificatePtr> others;
    bool hasIssuer = false;
    bool isCyclic = false;
    for (const DecodedCertificatePtr& issuer : issuers) {
        if (isFinished())
            return;
        if (!isSigned(*certificate, *issuer)) {
            others.push_back(issuer);
        } else if (isInPath(*issuer)) {
            isCyclic = true;
        } else {
            hasIssuer = true;
            tryIssuer(issuer, true);
        }
    }
    if (hasIssuer)
        return;
    // Nobody has signed this. The best that can be shown is who should have.
    const auto claimed = std::find_if(others.begin(), others.end(),
                                      [this](const auto& issuer) { return !isInPath(*issuer); });
    if (claimed != others.end() && !isCyclic && !isExhausted())
        tryIssuer(*claimed, false);
    else
        endWithoutIssuer(*certificate, isCyclic);
}

void PathBuilder::tryIssuer(const DecodedCertificatePtr& issuer, bool isSignatureValid)
{
    PathElement& element = m_path.elements.back();
    element.isSignatureValid = isSignatureValid;
    noteIssuer(element.certificate->matchIssuer(*issuer));
    m_path.elements.push_back({issuer});
    extend();
    m_path.elements.pop_back();
    m_path.elements.back().isSignatureValid = true;
    m_path.elements.back().hasIssuer = false;
}

void PathBuilder::noteIssuer(DecodedCertificate::IssuerMatch match)
{
    m_path.elements.back().hasIssuer = true;
    m_path.elements.back().issuerMatch = match;
}

void PathBuilder::endWithoutIssuer(const DecodedCertificate& certificate, bool isCyclic)
{
    const bool claimsItself =
        certificate.isSelfIssued()
        && certificate.matchIssuer(certificate) != DecodedCertificate::IssuerMatch::None;
    m_path.elements.back().isSignatureValid = !claimsItself;
    m_path.isCyclic = isCyclic;
    end(claimsItself ? CertificatePath::End::UntrustedRoot : CertificatePath::End::NoIssuer);
    m_path.isCyclic = false;
    m_path.elements.back().isSignatureValid = true;
}

void PathBuilder::end(CertificatePath::End end)
{
    constexpr qint64 EACH = 2000;
    constexpr qint64 PER_ELEMENT = 200;
    m_path.end = end;
    ++m_pathCount;
    m_budget.spend(EACH + PER_ELEMENT * qint64(m_path.elements.size()));
    JudgedPath judged = PathJudge(m_path, m_question, &m_names, &m_budget).result();
    const int defects = defectsOf(judged);
    if (m_best && defects >= m_leastDefects)
        return;
    m_best = std::move(judged);
    m_leastDefects = defects;
}

bool PathBuilder::isExhausted() const
{
    return m_pathCount >= m_question.limits.paths || m_budget.isExhausted()
           || m_signatures.size() >= std::size_t(m_question.limits.signatures);
}

bool PathBuilder::isFinished() const
{
    return m_best && (m_leastDefects == 0 || isExhausted());
}

const std::vector<DecodedCertificatePtr>&
PathBuilder::issuersOf(const DecodedCertificate& certificate)
{
    const auto known = m_issuers.find(&certificate);
    if (known != m_issuers.end())
        return known->second;
    return m_issuers.emplace(&certificate, sortedIssuersOf(certificate)).first->second;
}

std::vector<DecodedCertificatePtr>
PathBuilder::sortedIssuersOf(const DecodedCertificate& certificate)
{
    constexpr qint64 PER_CANDIDATE = 600;
    using Promise = std::tuple<bool, bool, DecodedCertificate::IssuerMatch, bool>;
    std::vector<std::pair<Promise, DecodedCertificatePtr>> candidates;
    for (const DecodedCertificatePtr& issuer : m_source.issuersOf(certificate)) {
        // Names and key identifiers are compared.
        if (!m_budget.spend(PER_CANDIDATE + certificate.der().size() / 8))
            break;
        candidates.emplace_back(Promise(m_source.isTrusted(issuer), m_source.isProven(issuer),
                                        certificate.matchIssuer(*issuer),
                                        issuer->isValidAt(m_question.time)),
                                issuer);
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::vector<DecodedCertificatePtr> issuers;
    issuers.reserve(candidates.size());
    for (const auto& candidate : candidates)
        issuers.push_back(candidate.second);
    return issuers;
}

//! The same name with the same key is as good as the same certificate: to go on would be to circle.
bool PathBuilder::isInPath(const DecodedCertificate& certificate) const
{
    return std::any_of(m_path.elements.begin(), m_path.elements.end(),
                       [&certificate](const PathElement& element) {
                           return element.certificate->hasSubjectAndKeyOf(certificate);
                       });
}

bool PathBuilder::isSigned(const DecodedCertificate& certificate, const DecodedCertificate& issuer)
{
    const auto known = m_signatures.find({&certificate, &issuer});
    if (known != m_signatures.end())
        return known->second;
    if (m_signatures.size() >= std::size_t(m_question.limits.signatures)
        || !m_budget.spend(certificate.costOfSignatureBy(issuer)))
        return false;
    return m_signatures
        .emplace(std::make_pair(&certificate, &issuer), certificate.isSignedBy(issuer))
        .first->second;
}

} // namespace vela

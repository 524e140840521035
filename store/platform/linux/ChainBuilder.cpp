// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/ChainBuilder.h"

#include <algorithm>
#include <tuple>

namespace vela {

namespace {

DWORD issuerInfo(TrustCertificate::IssuerMatch match)
{
    switch (match) {
    case TrustCertificate::IssuerMatch::ExactId:
        return CERT_TRUST_HAS_EXACT_MATCH_ISSUER;
    case TrustCertificate::IssuerMatch::KeyId:
        return CERT_TRUST_HAS_KEY_MATCH_ISSUER;
    default:
        return CERT_TRUST_HAS_NAME_MATCH_ISSUER;
    }
}

} // namespace

ChainBuilder::ChainBuilder(const CertificateSource& source, const ChainRequest& request)
    : m_source(source)
    , m_request(request)
{
}

JudgedPath ChainBuilder::build(const TrustCertificatePtr& certificate)
{
    m_path.elements.push_back({certificate});
    extend();
    return *m_best;
}

void ChainBuilder::extend()
{
    PathElement& element = m_path.elements.back();
    const TrustCertificatePtr certificate = element.certificate;
    element.isSelfSigned = certificate->isSelfIssued() && isSigned(*certificate, *certificate);
    if (element.isSelfSigned)
        element.issuerInfo = issuerInfo(certificate->matchIssuer(*certificate));

    // An end certificate is not valid by being listed among the roots, unless it is one.
    const bool isRoot = m_path.elements.size() > 1 || element.isSelfSigned;
    if (isRoot && m_source.isTrusted(certificate))
        end(CertificatePath::End::Trusted);
    else if (element.isSelfSigned)
        end(CertificatePath::End::UntrustedRoot);
    else if (m_path.elements.size() == MAX_LENGTH)
        end(CertificatePath::End::NoIssuer);
    else
        extendBeyond(certificate);
}

void ChainBuilder::extendBeyond(const TrustCertificatePtr& certificate)
{
    const std::vector<TrustCertificatePtr>& issuers = issuersOf(*certificate);
    std::vector<TrustCertificatePtr> others;
    bool hasIssuer = false;
    bool isCyclic = false;
    for (const TrustCertificatePtr& issuer : issuers) {
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

void ChainBuilder::tryIssuer(const TrustCertificatePtr& issuer, bool isSignatureValid)
{
    PathElement& element = m_path.elements.back();
    element.isSignatureValid = isSignatureValid;
    element.issuerInfo = issuerInfo(element.certificate->matchIssuer(*issuer));
    m_path.elements.push_back({issuer});
    extend();
    m_path.elements.pop_back();
    m_path.elements.back().isSignatureValid = true;
    m_path.elements.back().issuerInfo = 0;
}

void ChainBuilder::endWithoutIssuer(const TrustCertificate& certificate, bool isCyclic)
{
    const bool claimsItself =
        certificate.isSelfIssued()
        && certificate.matchIssuer(certificate) != TrustCertificate::IssuerMatch::None;
    m_path.elements.back().isSignatureValid = !claimsItself;
    m_path.isCyclic = isCyclic;
    end(claimsItself ? CertificatePath::End::UntrustedRoot : CertificatePath::End::NoIssuer);
    m_path.isCyclic = false;
    m_path.elements.back().isSignatureValid = true;
}

void ChainBuilder::end(CertificatePath::End end)
{
    m_path.end = end;
    ++m_pathCount;
    JudgedPath judged = judgePath(m_path, m_request, &m_names);
    const int defects = defectsOf(judged);
    if (m_best && defects >= m_leastDefects)
        return;
    m_best = std::move(judged);
    m_leastDefects = defects;
}

bool ChainBuilder::isExhausted() const
{
    return m_pathCount >= MAX_PATHS || m_signatures.size() >= MAX_SIGNATURES;
}

bool ChainBuilder::isFinished() const
{
    return m_best && (m_leastDefects == 0 || isExhausted());
}

const std::vector<TrustCertificatePtr>& ChainBuilder::issuersOf(const TrustCertificate& certificate)
{
    const auto known = m_issuers.find(&certificate);
    if (known != m_issuers.end())
        return known->second;
    return m_issuers.emplace(&certificate, sortedIssuersOf(certificate)).first->second;
}

std::vector<TrustCertificatePtr>
ChainBuilder::sortedIssuersOf(const TrustCertificate& certificate) const
{
    using Promise = std::tuple<bool, TrustCertificate::IssuerMatch, bool>;
    std::vector<std::pair<Promise, TrustCertificatePtr>> candidates;
    for (const TrustCertificatePtr& issuer : m_source.issuersOf(certificate)) {
        candidates.emplace_back(Promise(m_source.isTrusted(issuer),
                                        certificate.matchIssuer(*issuer),
                                        issuer->isValidAt(m_request.time)),
                                issuer);
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::vector<TrustCertificatePtr> issuers;
    issuers.reserve(candidates.size());
    for (const auto& candidate : candidates)
        issuers.push_back(candidate.second);
    return issuers;
}

//! The same name with the same key is as good as the same certificate: to go on would be to circle.
bool ChainBuilder::isInPath(const TrustCertificate& certificate) const
{
    return std::any_of(m_path.elements.begin(), m_path.elements.end(),
                       [&certificate](const PathElement& element) {
                           return element.certificate->hasSubjectAndKeyOf(certificate);
                       });
}

bool ChainBuilder::isSigned(const TrustCertificate& certificate, const TrustCertificate& issuer)
{
    const auto known = m_signatures.find({&certificate, &issuer});
    if (known != m_signatures.end())
        return known->second;
    if (m_signatures.size() >= MAX_SIGNATURES)
        return false;
    return m_signatures
        .emplace(std::make_pair(&certificate, &issuer), certificate.isSignedBy(issuer))
        .first->second;
}

} // namespace vela

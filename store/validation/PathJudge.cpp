// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/PathJudge.h"

#include "store/validation/PathPolicies.h"

#include <QtCore/qalgorithms.h>

#include <openssl/objects.h>

#include <algorithm>

namespace vela {

namespace {

constexpr const char* ANY_USAGE = "2.5.29.37.0";

using ObjectHandle = std::unique_ptr<ASN1_OBJECT, OpenSslDeleter<ASN1_OBJECT_free>>;

//! Returns the object identifier that is \a digits as it would be encoded; empty for none.
QByteArray encodedUsage(const QByteArray& digits)
{
    const ObjectHandle object(OBJ_txt2obj(digits.constData(), 1));
    return object ? encodedObject(object.get()) : QByteArray();
}

} // namespace

PathJudge::PathJudge(const CertificatePath& path, const PathQuestion& question, NameJudge* names,
                     WorkBudget* budget)
    : m_question(question)
    , m_names(*names)
    , m_budget(*budget)
    , m_judged{path, std::vector<PathErrors>(path.elements.size(), NoPathError)}
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

const DecodedCertificate& PathJudge::certificate(std::size_t index) const
{
    return *m_judged.path.elements[index].certificate;
}

void PathJudge::addError(std::size_t index, PathErrors error)
{
    m_judged.elementErrors[index] |= error;
}

bool PathJudge::isTrustedRoot(std::size_t index) const
{
    return index + 1 == m_size && m_judged.path.end == CertificatePath::End::Trusted;
}

void PathJudge::judgeItself(std::size_t index)
{
    const PathElement& element = m_judged.path.elements[index];
    if (!certificate(index).isValidAt(m_question.time))
        addError(index, NotTimeValid);
    if (certificate(index).extensions().isMalformed)
        addError(index, ExtensionInvalid);
    if (certificate(index).extensions().hasUnsupportedCritical)
        addError(index, ExtensionNotSupported);
    if (!element.isSignatureValid)
        addError(index, SignatureInvalid);
    // A self-signature proves nothing, and a trusted certificate's is not what it is trusted for.
    if (certificate(index).hasWeakSignature() && !element.isSelfSigned && !isTrustedRoot(index))
        addError(index, SignatureWeak);
    if (certificate(index).hasWeakKey())
        addError(index, SignatureWeak);
}

void PathJudge::judgeUsage(std::size_t index)
{
    constexpr qint64 PER_COMPARISON = 20;
    const auto& allowed = certificate(index).extensions().extendedUsages;
    const auto& usages = m_question.usages;
    if (!allowed || usages.empty())
        return;
    const auto isListed = [&allowed](const QByteArray& digits) {
        return std::find(allowed->begin(), allowed->end(), encodedUsage(digits)) != allowed->end();
    };
    const bool isAffordable =
        m_budget.spend(PER_COMPARISON * qint64(allowed->size() * (usages.size() + 1)));
    const bool isAny = isAffordable && isListed(ANY_USAGE);
    const bool isValid =
        isAny
        || (m_question.needsAllUsages ? std::all_of(usages.begin(), usages.end(), isListed)
                                      : std::any_of(usages.begin(), usages.end(), isListed));
    if (!isAffordable || !isValid)
        addError(index, UsageInvalid);
}

void PathJudge::judgeAuthority(std::size_t index)
{
    const CertificateExtensions& extensions = certificate(index).extensions();
    // A root that does not say whether it is an authority is one because it is trusted.
    const bool isAuthority = extensions.basicConstraints ? extensions.basicConstraints->isAuthority
                                                         : isTrustedRoot(index);
    if (!isAuthority)
        addError(index, AuthorityInvalid);
    if (!extensions.mayCertSign)
        addError(index, UsageInvalid);
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
            addError(i, AuthorityInvalid);
    }
}

//! Holds the names below an authority against the constraints of that authority.
void PathJudge::judgeNames(std::size_t index)
{
    if (certificate(index).extensions().nameConstraints.isEmpty())
        return;
    addError(0, m_names.errorsOfEnd(certificate(0), certificate(index)));
    for (std::size_t i = 1; i < index; ++i) {
        if (!certificate(i).isSelfIssued())
            addError(i, m_names.errorsOf(certificate(i), certificate(index)));
    }
}

void PathJudge::judgeEnd()
{
    if (m_judged.path.end == CertificatePath::End::UntrustedRoot)
        addError(m_size - 1, RootUntrusted);
    if (m_judged.path.end == CertificatePath::End::NoIssuer)
        m_judged.errors |= PathIncomplete;
    if (m_judged.path.isCyclic)
        m_judged.errors |= PathCyclic;
}

void PathJudge::sumUp()
{
    for (const PathErrors errors : m_judged.elementErrors)
        m_judged.errors |= errors;
}

//! Working policies out can take long, which only a chain without errors is worth.
void PathJudge::judgePolicies()
{
    if (m_judged.errors == NoPathError)
        m_judged.errors |= policyErrorsOf(m_judged.path, &m_budget);
}

int defectsOf(const JudgedPath& judged)
{
    constexpr int NOT_SIGNED = 1 << 22;
    constexpr int INCOMPLETE = 1 << 21;
    constexpr int UNTRUSTED = 1 << 20;
    constexpr int LESSER_ERROR = 2;
    constexpr PathErrors GRAVE = SignatureInvalid | PathIncomplete | RootUntrusted;

    int defects = 0;
    if (judged.errors & SignatureInvalid)
        defects += NOT_SIGNED;
    if (judged.errors & PathIncomplete)
        defects += INCOMPLETE;
    if (judged.errors & RootUntrusted)
        defects += UNTRUSTED;
    defects += LESSER_ERROR * int(qPopulationCount(judged.errors & ~GRAVE));
    for (const PathErrors errors : judged.elementErrors)
        defects += LESSER_ERROR * int(qPopulationCount(errors & ~GRAVE));
    return defects;
}

} // namespace vela

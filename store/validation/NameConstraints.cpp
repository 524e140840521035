// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/NameConstraints.h"

#include "support/OpenSslCompat.h"
#include "support/OpenSslErrorMark.h"

#include <algorithm>

namespace vela {

namespace {

enum class Match {
    Yes,
    No,
    BadName,
    NotSupported,
};

enum class Kind {
    Permitted,
    Excluded,
};

constexpr int WILDCARD_LENGTH = 2; // "*."

//! Whether the host \a name is \a tree, or below it.
bool isWithin(const QByteArray& name, const QByteArray& tree)
{
    if (tree.isEmpty())
        return true;
    if (!name.endsWith(tree))
        return false;
    const int outside = name.size() - tree.size();
    return outside == 0 || tree.startsWith('.') || name.at(outside - 1) == '.';
}

bool isSameOrBelow(const QByteArray& host, const QByteArray& base)
{
    return base.startsWith('.') ? isWithin(host, base) : host == base;
}

Match matched(bool isMatch)
{
    return isMatch ? Match::Yes : Match::No;
}

Match matchHost(const GeneralName& name, const GeneralName& base, Kind kind)
{
    if (isWithin(name.value, base.value))
        return Match::Yes;
    // A pattern that also stands for a host that is excluded is excluded.
    return matched(name.isPattern && kind == Kind::Excluded
                   && isWithin(base.value, name.value.mid(WILDCARD_LENGTH)));
}

Match matchMailAddress(const GeneralName& name, const GeneralName& base)
{
    const bool isSameMailbox = base.mailbox.isEmpty() || name.mailbox == base.mailbox;
    return matched(isSameMailbox && isSameOrBelow(name.value, base.value));
}

//! \a base is an address followed by a mask.
Match matchAddress(const QByteArray& name, const QByteArray& base)
{
    if (base.size() != 2 * name.size())
        return Match::No;
    for (int i = 0; i < name.size(); ++i) {
        if ((name.at(i) ^ base.at(i)) & base.at(name.size() + i))
            return Match::No;
    }
    return Match::Yes;
}

Match match(const GeneralName& name, const GeneralName& base, Kind kind)
{
    const bool isReadable = name.isReadable && base.isReadable;
    switch (base.type) {
    case GEN_DNS:
        return isReadable ? matchHost(name, base, kind) : Match::BadName;
    case GEN_EMAIL:
        return isReadable ? matchMailAddress(name, base) : Match::BadName;
    case GEN_URI:
        return isReadable ? matched(isSameOrBelow(name.value, base.value)) : Match::BadName;
    case GEN_IPADD:
        return isReadable ? matchAddress(name.value, base.value) : Match::BadName;
    default:
        return Match::NotSupported;
    }
}

qint64 costOfMatch(const GeneralName& name, const GeneralName& base)
{
    constexpr qint64 EACH = 15;
    constexpr qint64 BYTES_PER_NANOSECOND = 4;
    // A pattern's own part is copied, and a mailbox compared.
    const qint64 bytes = qMin(name.value.size(), base.value.size())
                         + qMin(name.mailbox.size(), base.mailbox.size())
                         + (name.isPattern ? name.value.size() : 0);
    return EACH + bytes / BYTES_PER_NANOSECOND;
}

PathErrors engineError(int error)
{
    switch (error) {
    case X509_V_OK:
        return NoPathError;
    case X509_V_ERR_PERMITTED_VIOLATION:
        return NameNotPermitted;
    case X509_V_ERR_EXCLUDED_VIOLATION:
        return NameExcluded;
    default:
        return NameNotComparable;
    }
}

std::size_t countOf(const STACK_OF(GENERAL_SUBTREE) * subtrees)
{
    return std::size_t(qMax(0, sk_GENERAL_SUBTREE_num(subtrees)));
}

} // namespace

NameConstraints::NameConstraints(NameConstraintsHandle constraints)
    : m_directoryNames(std::move(constraints))
{
    if (!m_directoryNames)
        return;
    NAME_CONSTRAINTS* const all = m_directoryNames.get();
    m_count = countOf(all->permittedSubtrees) + countOf(all->excludedSubtrees);
    const bool isPermittedRange = sortOut(all->permittedSubtrees, &Subtrees::permitted);
    const bool isExcludedRange = sortOut(all->excludedSubtrees, &Subtrees::excluded);
    m_isInvalid = isPermittedRange || isExcludedRange || m_count == 0;
}

/*!
    Moves what is not about directory names from \a subtrees to \a target. Returns whether one of
    the subtrees, of any kind, is limited in depth.
*/
bool NameConstraints::sortOut(STACK_OF(GENERAL_SUBTREE) * subtrees,
                              std::vector<GeneralName> Subtrees::*target)
{
    bool hasRange = false;
    std::vector<GENERAL_SUBTREE*> directoryNames;
    while (GENERAL_SUBTREE* const subtree = sk_GENERAL_SUBTREE_pop(subtrees)) {
        hasRange = hasRange || subtree->minimum || subtree->maximum;
        if (subtree->base->type == GEN_DIRNAME) {
            directoryNames.push_back(subtree);
            continue;
        }
        (m_subtrees[subtree->base->type].*target).push_back(readConstraint(subtree->base));
        GENERAL_SUBTREE_free(subtree);
    }
    for (GENERAL_SUBTREE* subtree : directoryNames) {
        ++m_directoryCount;
        m_directoryBytes += std::size_t(i2d_GENERAL_NAME(subtree->base, nullptr));
        sk_GENERAL_SUBTREE_push(subtrees, subtree);
    }
    return hasRange;
}

bool NameConstraints::isEmpty() const
{
    return !m_directoryNames;
}

bool NameConstraints::concernHosts() const
{
    return !m_subtrees[GEN_DNS].isEmpty() || !m_subtrees[GEN_IPADD].isEmpty();
}

std::size_t NameConstraints::comparisonsFor(std::size_t nameCount) const
{
    return (nameCount + 1) * m_count; // The subject is a name, too.
}

PathErrors NameConstraints::errorsOf(X509* x509, const std::vector<GeneralName>& names,
                                     WorkBudget* budget) const
{
    PathErrors errors = m_isInvalid ? NameNotComparable : NoPathError;
    errors |= errorsOfDirectoryNames(x509, names.size(), budget);
    for (const GeneralName& name : names)
        errors |= errorsOfName(name, budget);
    return errors;
}

PathErrors NameConstraints::errorsOfHostTexts(const std::vector<QByteArray>& texts,
                                              WorkBudget* budget) const
{
    PathErrors errors = NoPathError;
    for (const QByteArray& text : texts)
        errors |= errorsOfHostText(text, budget);
    return errors;
}

PathErrors NameConstraints::errorsOfHostText(const QByteArray& text, WorkBudget* budget) const
{
    constexpr qint64 PER_BYTE = 4;
    if (!concernHosts())
        return NoPathError;
    if (!budget->spend(PER_BYTE * text.size()))
        return NameNotComparable;
    const GeneralName address = addressOfText(text);
    if (!address.isReadable)
        return errorsOfName(hostOfText(text), budget)
               | (hostOfText(text).isReadable ? NoPathError : NameNotComparable);
    // An address is no host that could be below one.
    const bool isElsewhere = !m_subtrees[GEN_DNS].permitted.empty();
    return errorsOfName(address, budget) | (isElsewhere ? NameNotPermitted : NoPathError);
}

PathErrors NameConstraints::errorsOfName(const GeneralName& name, WorkBudget* budget) const
{
    const Subtrees& subtrees = m_subtrees[name.type];
    bool isPermitted = false;
    PathErrors errors = NoPathError;
    const auto compare = [&errors, &name, budget](const GeneralName& base, Kind kind) {
        if (!budget->spend(costOfMatch(name, base))) {
            errors |= NameNotComparable;
            return false;
        }
        const Match result = match(name, base, kind);
        if (result == Match::BadName)
            errors |= NameNotComparable;
        if (result == Match::NotSupported)
            errors |= NameNotSupported;
        return result == Match::Yes;
    };
    for (const GeneralName& base : subtrees.permitted) {
        isPermitted = compare(base, Kind::Permitted) || isPermitted;
        if (budget->isExhausted())
            return errors;
    }
    for (const GeneralName& base : subtrees.excluded) {
        if (compare(base, Kind::Excluded))
            errors |= NameExcluded;
        if (budget->isExhausted())
            return errors;
    }
    // What could not be compared is an error of its own already.
    if (!subtrees.permitted.empty() && !isPermitted && errors == NoPathError)
        errors |= NameNotPermitted;
    return errors;
}

PathErrors NameConstraints::errorsOfDirectoryNames(X509* x509, std::size_t nameCount,
                                                   WorkBudget* budget) const
{
    constexpr std::size_t PER_COMPARISON = 40;
    constexpr std::size_t BYTES_PER_NANOSECOND = 4;
    if (m_directoryCount == 0)
        return NoPathError;
    // The subject is a name, too.
    const std::size_t cost =
        (nameCount + 1)
        * (PER_COMPARISON * m_directoryCount + m_directoryBytes / BYTES_PER_NANOSECOND);
    if (!budget->spend(qint64(cost)))
        return NameNotComparable;
    const OpenSslErrorMark mark;
    return engineError(NAME_CONSTRAINTS_check(x509, m_directoryNames.get()));
}

} // namespace vela

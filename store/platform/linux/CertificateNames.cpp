// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/CertificateNames.h"

#include "cert/OpenSslErrorMark.h"
#include "support/OpenSslCompat.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

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

constexpr char WILDCARD[] = "*.";

QByteArray bytesOf(const ASN1_STRING* text)
{
    return QByteArray(reinterpret_cast<const char*>(text->data), text->length);
}

GeneralName toName(const GENERAL_NAME* name)
{
    switch (name->type) {
    case GEN_EMAIL:
    case GEN_DNS:
    case GEN_URI:
        return {name->type, bytesOf(name->d.ia5)};
    case GEN_IPADD:
        return {name->type, bytesOf(name->d.iPAddress)};
    default:
        return {name->type, {}};
    }
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHostCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '-' || c == '_'
           || c == '.';
}

//! Whether \a host can be a host name: labels of the usual characters, and no address.
bool isHostName(const QByteArray& host)
{
    const QByteArray lastLabel = host.mid(host.lastIndexOf('.') + 1);
    return std::all_of(host.begin(), host.end(), isHostCharacter) && !host.startsWith('.')
           && !host.contains("..") && !std::all_of(lastLabel.begin(), lastLabel.end(), isDigit);
}

//! Whether \a base can be compared with: everything, a host, or with a leading period what is
//! below.
bool isHostConstraint(const QByteArray& base)
{
    return base.isEmpty() || isHostName(base.startsWith('.') ? base.mid(1) : base);
}

//! Whether the host \a inner is \a outer, or below it; letter case aside.
bool isWithin(const QByteArray& inner, const QByteArray& outer)
{
    const QByteArray name = inner.toLower();
    const QByteArray tree = outer.toLower();
    if (tree.isEmpty() || name == tree)
        return true;
    const int outside = name.size() - tree.size();
    return name.endsWith(tree) && (tree.startsWith('.') || name.at(outside - 1) == '.');
}

bool isSameOrBelow(const QByteArray& host, const QByteArray& base)
{
    return base.startsWith('.') ? isWithin(host, base) : host.toLower() == base.toLower();
}

Match matched(bool isMatch)
{
    return isMatch ? Match::Yes : Match::No;
}

Match matchHost(const QByteArray& name, const QByteArray& base, Kind kind)
{
    const bool isPattern = name.startsWith(WILDCARD);
    const QByteArray host = isPattern ? name.mid(int(qstrlen(WILDCARD))) : name;
    if (!isHostName(host) || !isHostConstraint(base))
        return Match::BadName;
    if (isWithin(name, base))
        return Match::Yes;
    // A pattern that also stands for a host that is excluded is excluded.
    return matched(isPattern && kind == Kind::Excluded && isWithin(base, host));
}

Match matchMailAddress(const QByteArray& name, const QByteArray& base)
{
    const int at = name.indexOf('@');
    if (at <= 0 || at != name.lastIndexOf('@') || !isHostName(name.mid(at + 1)))
        return Match::BadName;
    const int baseAt = base.indexOf('@');
    if (baseAt != base.lastIndexOf('@') || !isHostConstraint(base.mid(baseAt + 1)))
        return Match::BadName;
    const bool isSameMailbox = baseAt <= 0 || name.left(at) == base.left(baseAt);
    return matched(isSameMailbox && isSameOrBelow(name.mid(at + 1), base.mid(baseAt + 1)));
}

//! Returns the host of the URI \a uri as it stands there; empty if there is none.
QByteArray hostOf(const QByteArray& uri)
{
    const int scheme = uri.indexOf("://");
    if (scheme <= 0)
        return {};
    QByteArray authority = uri.mid(scheme + 3);
    const auto end = std::find_if(authority.begin(), authority.end(),
                                  [](char c) { return c == '/' || c == '?' || c == '#'; });
    authority.truncate(int(end - authority.begin()));
    const QByteArray hostAndPort = authority.mid(authority.lastIndexOf('@') + 1);
    const int port = hostAndPort.indexOf(':');
    return port < 0 ? hostAndPort : hostAndPort.left(port);
}

Match matchUri(const QByteArray& name, const QByteArray& base)
{
    const QByteArray host = hostOf(name);
    if (!isHostName(host) || !isHostConstraint(base))
        return Match::BadName;
    return matched(isSameOrBelow(host, base));
}

//! \a base is an address followed by a mask.
Match matchAddress(const QByteArray& name, const QByteArray& base)
{
    constexpr int IPV4_SIZE = 4;
    constexpr int IPV6_SIZE = 16;
    const auto isSize = [](int size) { return size == IPV4_SIZE || size == IPV6_SIZE; };
    if (!isSize(name.size()) || base.size() % 2 != 0 || !isSize(base.size() / 2))
        return Match::BadName;
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
    switch (base.type) {
    case GEN_DNS:
        return matchHost(name.value, base.value, kind);
    case GEN_EMAIL:
        return matchMailAddress(name.value, base.value);
    case GEN_URI:
        return matchUri(name.value, base.value);
    case GEN_IPADD:
        return matchAddress(name.value, base.value);
    default:
        return Match::NotSupported;
    }
}

DWORD engineError(int error)
{
    switch (error) {
    case X509_V_OK:
        return CERT_TRUST_NO_ERROR;
    case X509_V_ERR_PERMITTED_VIOLATION:
        return CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT;
    case X509_V_ERR_EXCLUDED_VIOLATION:
        return CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT;
    default:
        return CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    }
}

//! Returns the values of the attributes \a nid in the subject.
std::vector<QByteArray> subjectValues(X509* x509, int nid)
{
    std::vector<QByteArray> values;
    X509_NAME* const subject = X509_get_subject_name(x509);
    for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, nid, i)) >= 0;)
        values.push_back(bytesOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i))));
    return values;
}

/*!
    Moves what is not about directory names from \a subtrees to \a others. Returns whether one of
    the subtrees, of any kind, is limited in depth.
*/
bool sortOut(STACK_OF(GENERAL_SUBTREE) * subtrees, std::vector<GeneralName>* others)
{
    bool hasRange = false;
    for (int i = sk_GENERAL_SUBTREE_num(subtrees) - 1; i >= 0; --i) {
        GENERAL_SUBTREE* const subtree = sk_GENERAL_SUBTREE_value(subtrees, i);
        hasRange = hasRange || subtree->minimum || subtree->maximum;
        if (subtree->base->type == GEN_DIRNAME)
            continue;
        others->push_back(toName(subtree->base));
        GENERAL_SUBTREE_free(sk_GENERAL_SUBTREE_delete(subtrees, i));
    }
    return hasRange;
}

std::size_t countOf(const STACK_OF(GENERAL_SUBTREE) * subtrees)
{
    return std::size_t(qMax(0, sk_GENERAL_SUBTREE_num(subtrees)));
}

} // namespace

std::vector<GeneralName> namesOf(X509* x509, const GENERAL_NAMES* alternativeNames,
                                 bool isAuthority)
{
    const int count = qMax(0, sk_GENERAL_NAME_num(alternativeNames));
    std::vector<GeneralName> names;
    names.reserve(std::size_t(count));
    for (int i = 0; i < count; ++i)
        names.push_back(toName(sk_GENERAL_NAME_value(alternativeNames, i)));
    const bool hasHost = std::any_of(names.begin(), names.end(),
                                     [](const GeneralName& name) { return name.type == GEN_DNS; });
    for (const QByteArray& address : subjectValues(x509, NID_pkcs9_emailAddress))
        names.push_back({GEN_EMAIL, address});
    if (hasHost || isAuthority)
        return names;
    for (const QByteArray& commonName : subjectValues(x509, NID_commonName)) {
        if (isHostName(commonName) && commonName.contains('.'))
            names.push_back({GEN_DNS, commonName});
    }
    return names;
}

NameConstraints::NameConstraints(NameConstraintsHandle constraints)
    : m_directoryNames(std::move(constraints))
{
    if (!m_directoryNames)
        return;
    const bool isPermittedRange = sortOut(m_directoryNames->permittedSubtrees, &m_permitted);
    const bool isExcludedRange = sortOut(m_directoryNames->excludedSubtrees, &m_excluded);
    m_directoryCount =
        countOf(m_directoryNames->permittedSubtrees) + countOf(m_directoryNames->excludedSubtrees);
    m_isInvalid = isPermittedRange || isExcludedRange || comparisonsFor(0) == 0;
}

bool NameConstraints::isEmpty() const
{
    return !m_directoryNames;
}

std::size_t NameConstraints::comparisonsFor(std::size_t nameCount) const
{
    return (nameCount + 1) * (m_permitted.size() + m_excluded.size() + m_directoryCount);
}

DWORD NameConstraints::errorsOf(X509* x509, const std::vector<GeneralName>& names) const
{
    DWORD errors = errorsOfDirectoryNames(x509);
    if (m_isInvalid)
        errors |= CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    for (const GeneralName& name : names)
        errors |= errorsOfName(name);
    return errors;
}

DWORD NameConstraints::errorsOfName(const GeneralName& name) const
{
    bool isLimited = false;
    bool isPermitted = false;
    DWORD errors = CERT_TRUST_NO_ERROR;
    const auto compare = [&errors, &name](const GeneralName& base, Kind kind) {
        const Match result = match(name, base, kind);
        if (result == Match::BadName)
            errors |= CERT_TRUST_INVALID_NAME_CONSTRAINTS;
        if (result == Match::NotSupported)
            errors |= CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT;
        return result == Match::Yes;
    };
    for (const GeneralName& base : m_permitted) {
        if (base.type != name.type)
            continue;
        isLimited = true;
        isPermitted = compare(base, Kind::Permitted) || isPermitted;
    }
    for (const GeneralName& base : m_excluded) {
        if (base.type == name.type && compare(base, Kind::Excluded))
            errors |= CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT;
    }
    // What could not be compared is an error of its own already.
    if (isLimited && !isPermitted && errors == CERT_TRUST_NO_ERROR)
        errors |= CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT;
    return errors;
}

DWORD NameConstraints::errorsOfDirectoryNames(X509* x509) const
{
    if (m_directoryCount == 0)
        return CERT_TRUST_NO_ERROR;
    const OpenSslErrorMark mark;
    return engineError(NAME_CONSTRAINTS_check(x509, m_directoryNames.get()));
}

} // namespace vela

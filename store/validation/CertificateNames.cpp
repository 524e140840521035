// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/CertificateNames.h"

#include "support/NameOneline.h"
#include "support/OpenSslCompat.h"

#include <QtNetwork/QHostAddress>

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <algorithm>

namespace vela {

namespace {

constexpr char WILDCARD[] = "*.";
constexpr int WILDCARD_LENGTH = 2;
constexpr char COMMON_NAME[] = "CN=";
constexpr int IPV4_SIZE = 4;
constexpr int IPV6_SIZE = 16;

QByteArray bytesOf(const ASN1_STRING* text)
{
    return QByteArray(reinterpret_cast<const char*>(text->data), text->length);
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'f');
}

bool isHostCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || isDigit(c) || c == '-' || c == '_' || c == '.';
}

//! Whether a host that ends in \a label is an address in one of the forms that resolvers read.
bool isNumber(const QByteArray& label)
{
    if (label.startsWith("0x"))
        return std::all_of(label.begin() + 2, label.end(), isHexDigit);
    return std::all_of(label.begin(), label.end(), isDigit);
}

//! Whether \a host, in lower case, can be a host name: labels of the usual characters, and no
//! address.
bool isHostName(const QByteArray& host)
{
    return std::all_of(host.begin(), host.end(), isHostCharacter) && !host.startsWith('.')
           && !host.contains("..") && !isNumber(host.mid(host.lastIndexOf('.') + 1));
}

//! Whether \a base can be compared with: everything, a host, or with a leading period what is
//! below.
bool isHostConstraint(const QByteArray& base)
{
    return base.isEmpty() || isHostName(base.startsWith('.') ? base.mid(1) : base);
}

//! Returns the host of the URI \a uri as it stands there; empty if there is none.
QByteArray hostOfUri(const QByteArray& uri)
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

GeneralName mailAddress(const QByteArray& text)
{
    GeneralName name;
    name.type = GEN_EMAIL;
    const int at = text.indexOf('@');
    name.mailbox = text.left(qMax(at, 0));
    name.value = text.mid(at + 1).toLower();
    name.isReadable = at > 0 && at == text.lastIndexOf('@') && isHostName(name.value);
    return name;
}

GeneralName mailConstraint(const QByteArray& text)
{
    GeneralName base = mailAddress(text);
    base.isReadable = text.indexOf('@') == text.lastIndexOf('@') && isHostConstraint(base.value);
    return base;
}

GeneralName address(const QByteArray& octets, int parts)
{
    GeneralName name;
    name.type = GEN_IPADD;
    name.value = octets;
    name.isReadable = octets.size() == parts * IPV4_SIZE || octets.size() == parts * IPV6_SIZE;
    return name;
}

GeneralName unknownName(int type)
{
    GeneralName name;
    name.type = type;
    return name;
}

//! Returns the values of the attributes \a nid in the subject.
std::vector<const ASN1_STRING*> subjectValues(X509* x509, int nid)
{
    std::vector<const ASN1_STRING*> values;
    X509_NAME* const subject = X509_get_subject_name(x509);
    for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, nid, i)) >= 0;)
        values.push_back(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i)));
    return values;
}

std::vector<QByteArray> hostTextsOf(X509_NAME* name)
{
    std::vector<QByteArray> texts;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        X509_NAME_ENTRY* const entry = X509_NAME_get_entry(name, i);
        const bool isCommonName = OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry)) == NID_commonName;
        const QByteArray value = nameOnelineValue(X509_NAME_ENTRY_get_data(entry));
        int start = 0;
        for (bool isFirst = true; start >= 0; isFirst = false) {
            const int slash = value.indexOf('/', start);
            const QByteArray part = value.mid(start, slash < 0 ? -1 : slash - start);
            if (isFirst && isCommonName)
                texts.push_back(part);
            else if (!isFirst && part.startsWith(COMMON_NAME))
                texts.push_back(part.mid(int(qstrlen(COMMON_NAME))));
            start = slash < 0 ? -1 : slash + 1;
        }
    }
    return texts;
}

//! Returns the octets of four numbers as everybody reads them; nothing for any other form.
QByteArray ipv4Octets(const QByteArray& text)
{
    constexpr int MAX_OCTET = 255;
    QByteArray octets;
    for (const QByteArray& part : text.split('.')) {
        const int number = part.toInt();
        if (number > MAX_OCTET || part != QByteArray::number(number) || number < 0)
            return {};
        octets.append(char(number));
    }
    return octets.size() == IPV4_SIZE ? octets : QByteArray();
}

QByteArray ipv6Octets(const QByteArray& text)
{
    const QHostAddress parsed(QString::fromLatin1(text));
    if (parsed.protocol() != QAbstractSocket::IPv6Protocol || !parsed.scopeId().isEmpty())
        return {};
    const Q_IPV6ADDR octets = parsed.toIPv6Address();
    return QByteArray(reinterpret_cast<const char*>(octets.c), IPV6_SIZE);
}

} // namespace

GeneralName hostOfText(const QByteArray& text)
{
    GeneralName name;
    name.type = GEN_DNS;
    name.value = text.toLower();
    name.isPattern = name.value.startsWith(WILDCARD);
    name.isReadable = isHostName(name.isPattern ? name.value.mid(WILDCARD_LENGTH) : name.value);
    return name;
}

GeneralName addressOfText(const QByteArray& text)
{
    constexpr int MAX_TEXT = 45; // Of any address; there may be megabytes of something else.
    if (text.size() > MAX_TEXT)
        return address({}, 1);
    return address(text.contains(':') ? ipv6Octets(text) : ipv4Octets(text), 1);
}

GeneralName readName(const GENERAL_NAME* name)
{
    switch (name->type) {
    case GEN_EMAIL:
        return mailAddress(bytesOf(name->d.ia5));
    case GEN_DNS:
        return hostOfText(bytesOf(name->d.ia5));
    case GEN_URI: {
        GeneralName uri;
        uri.type = GEN_URI;
        uri.value = hostOfUri(bytesOf(name->d.ia5)).toLower();
        uri.isReadable = isHostName(uri.value);
        return uri;
    }
    case GEN_IPADD:
        return address(bytesOf(name->d.iPAddress), 1);
    default:
        return unknownName(name->type);
    }
}

GeneralName readConstraint(const GENERAL_NAME* name)
{
    switch (name->type) {
    case GEN_EMAIL:
        return mailConstraint(bytesOf(name->d.ia5));
    case GEN_DNS:
    case GEN_URI: {
        GeneralName base;
        base.type = name->type;
        base.value = bytesOf(name->d.ia5).toLower();
        base.isReadable = isHostConstraint(base.value);
        return base;
    }
    case GEN_IPADD: // Followed by a mask.
        return address(bytesOf(name->d.iPAddress), 2);
    default:
        return unknownName(name->type);
    }
}

std::vector<GeneralName> namesOf(X509* x509, const GENERAL_NAMES* alternativeNames)
{
    const int count = qMax(0, sk_GENERAL_NAME_num(alternativeNames));
    std::vector<GeneralName> names;
    names.reserve(std::size_t(count));
    for (int i = 0; i < count; ++i)
        names.push_back(readName(sk_GENERAL_NAME_value(alternativeNames, i)));
    for (const ASN1_STRING* text : subjectValues(x509, NID_pkcs9_emailAddress))
        names.push_back(mailAddress(bytesOf(text)));
    return names;
}

std::vector<QByteArray> hostTextsOf(X509* x509)
{
    std::vector<QByteArray> texts = hostTextsOf(X509_get_subject_name(x509));
    return texts.empty() ? hostTextsOf(X509_get_issuer_name(x509)) : texts;
}

} // namespace vela

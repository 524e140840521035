// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslCertificate.h>

#include "cert/AlternativeNames.h"
#include "cert/HostName.h"
#include "support/OpenSslErrorMark.h"

#include <openssl/objects.h>

namespace vela {

namespace {

//! Returns the content of the last common name in the subject, empty when it is no text of octets.
std::string_view commonNameOf(X509* x509)
{
    X509_NAME* const subject = X509_get_subject_name(x509);
    int last = -1;
    for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, NID_commonName, i)) >= 0;)
        last = i;
    if (last < 0)
        return {};
    const ASN1_STRING* const text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, last));
    switch (text->type) {
    case V_ASN1_UTF8STRING:
    case V_ASN1_PRINTABLESTRING:
    case V_ASN1_T61STRING:
    case V_ASN1_IA5STRING:
        return {reinterpret_cast<const char*>(text->data), std::size_t(text->length)};
    default:
        return {}; // Also what has several octets for a character: nobody else looks into it.
    }
}

} // namespace

QVector<AlternativeName> SslCertificate::alternativeNames() const
{
    const OpenSslErrorMark mark;
    return m_x509 ? AlternativeNames(m_x509).values() : QVector<AlternativeName>();
}

bool SslCertificate::matchesHost(const QString& name, HostNameCheck check) const
{
    const HostName host = readHostName(name);
    if (!m_x509 || (host.name.isEmpty() && host.address.isEmpty()))
        return false;
    const OpenSslErrorMark mark;
    const AlternativeNames names(m_x509);
    if (!host.address.isEmpty())
        return names.matchAddress(host.address);
    if (names.matchName(host.name))
        return true;
    return check == AllowCommonName && !names.isMalformed() && !names.nameHosts()
           && matchesPattern(host.name, commonNameOf(m_x509));
}

} // namespace vela

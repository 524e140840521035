// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATENAMES_H
#define FERRULE_CERTIFICATENAMES_H

#include "store/platform/CryptoApi.h"
#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>

#include <openssl/x509v3.h>

#include <memory>
#include <vector>

namespace vela {

using GeneralNamesHandle = std::unique_ptr<GENERAL_NAMES, OpenSslDeleter<GENERAL_NAMES_free>>;
using NameConstraintsHandle =
    std::unique_ptr<NAME_CONSTRAINTS, OpenSslDeleter<NAME_CONSTRAINTS_free>>;

/*! A name, or the part of a name that a constraint asks for. */
struct GeneralName
{
    int type = GEN_OTHERNAME; //!< One of the engine's `GEN_` constants.
    QByteArray value;         //!< Null for a name of a kind that is not looked into.
};

/*!
    Returns the names that a certificate is for: its alternative names and the mail addresses in its
    subject. Of one that is no authority also the common name, as far as it is a host name of
    several labels and there is no other host name: there are clients that would connect by it.
*/
std::vector<GeneralName> namesOf(X509* x509, const GENERAL_NAMES* alternativeNames,
                                 bool isAuthority);

/*!
    What an authority may issue certificates for.

    Directory names are left to the engine. Host names, mail addresses, URIs and IP addresses are
    compared here, as engines differ in which of them they know and in what they make of names that
    are none. Other kinds are not supported: a certificate that has such a name, where there is a
    constraint for it, is in error.
*/
class NameConstraints
{
public:
    //! Without \a constraints everything is allowed.
    explicit NameConstraints(NameConstraintsHandle constraints);

    bool isEmpty() const;
    //! Returns how many comparisons a certificate with \a nameCount names takes at most.
    std::size_t comparisonsFor(std::size_t nameCount) const;
    //! Returns bits of `CERT_TRUST_STATUS` for the certificate \a x509, which has \a names.
    DWORD errorsOf(X509* x509, const std::vector<GeneralName>& names) const;

private:
    DWORD errorsOfName(const GeneralName& name) const;
    DWORD errorsOfDirectoryNames(X509* x509) const;

    std::vector<GeneralName> m_permitted;
    std::vector<GeneralName> m_excluded;
    std::size_t m_directoryCount = 0;
    bool m_isInvalid = false; //!< There are no subtrees, or some that are limited in depth.
    NameConstraintsHandle m_directoryNames; //!< Null without constraints.
};

} // namespace vela

#endif

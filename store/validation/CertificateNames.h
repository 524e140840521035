// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATENAMES_H
#define FERRULE_CERTIFICATENAMES_H

#include <QtCore/QByteArray>

#include <openssl/x509v3.h>

#include <vector>

namespace vela {

/*!
    A name, or the part of a name that a constraint asks for, taken apart once: it may be compared
    with very many others.
*/
struct GeneralName
{
    int type = GEN_OTHERNAME; //!< One of the engine's `GEN_` constants.
    //! Whether it is what its type says; names that are not cannot be compared.
    bool isReadable = false;
    bool isPattern = false; //!< A host name that begins with "*.".
    QByteArray mailbox;     //!< What is before the sign in a mail address.
    QByteArray value;       //!< The host in lower case, or the address; empty for other kinds.
};

//! Returns a name for what a certificate is issued to, or, asked for by a constraint.
GeneralName readName(const GENERAL_NAME* name);
GeneralName readConstraint(const GENERAL_NAME* name);

//! Returns the names that a certificate is for: its alternative names and the mail addresses in
//! its subject.
std::vector<GeneralName> namesOf(X509* x509, const GENERAL_NAMES* alternativeNames);

/*!
    Returns the texts that a client which looks for "CN=" in the one-line names of \a x509 could
   take for the host name: those of the subject, or, where there are none, of the issuer. A value
   counts as often as there is one behind a slash in it.
*/
std::vector<QByteArray> hostTextsOf(X509* x509);

//! Returns \a text as a host name and as an address; of each kind readable only if it is one.
GeneralName hostOfText(const QByteArray& text);
GeneralName addressOfText(const QByteArray& text);

} // namespace vela

#endif

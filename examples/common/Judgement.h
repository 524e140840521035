// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_JUDGEMENT_H
#define FERRULE_EXAMPLES_JUDGEMENT_H

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QStringList>

//! Returns the names of the values of vela::CertAccept, each at the index of its value.
QStringList acceptNames();

//! Returns the name of \a accept, which may be any number that a host keeps there.
QString acceptName(vela::CertAccept accept);

/*!
    Imports the bundle \a fileName into \a store. Returns an error text, null for success; then
    \a summary says what was imported.
*/
QString importBundle(const QString& fileName, vela::CertAccept accept,
                     vela::GenericCertStore& store, QString& summary);

//! Returns true if the issuer that \a certificate names has the name of \a issuer.
bool namesAsIssuer(const vela::SslCertificate& certificate, const vela::SslCertificate& issuer);

/*!
    Decides on \a chain, which must not be empty, by the trust records of the roots in \a store,
    and says it in words. As far as names and fingerprints go: no path is validated.
*/
QString judge(const vela::CertificateStore& store, const vela::SslCertificateChain& chain);

//! Returns the line of a report that says what judge() is not.
QString cautionRow();

#endif

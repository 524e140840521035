// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CERTIFICATEFILE_H
#define FERRULE_EXAMPLES_CERTIFICATEFILE_H

#include <Ferrule/SslCertificateChain.h>

/*! The certificates of a file. They own their handles, so that nothing need be released. */
struct CertificateFile
{
    QString form; //!< "PEM" or "DER".
    vela::SslCertificateChain chain;
    QString damage; //!< What is wrong with the file, null when it is whole.
};

//! Returns the certificates in \a bytes: all PEM blocks up to a damaged one, or one in DER.
CertificateFile parseCertificates(const QByteArray& bytes);

//! Replaces \a fileName by \a chain in PEM. Returns an error text, null for success.
QString writePemFile(const vela::SslCertificateChain& chain, const QString& fileName);

//! Replaces \a fileName by \a certificate in DER. Returns an error text, null for success.
QString writeDerFile(const vela::SslCertificatePtr& certificate, const QString& fileName);

#endif

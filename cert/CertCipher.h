// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTCIPHER_H
#define FERRULE_CERTCIPHER_H

#include <QtCore/QString>

namespace vela {

/*!
    Describes the cipher suite of the connection on which a certificate was seen.

    A plain record: `SslCertificate::setCipher()`, `SslCertificate::setCipherDescription()` and the
    wrapping of a certificate fill it, `SslCertificate::cipher()` hands it out.
*/
struct CertCipher
{
    QString protocol;           //!< Protocol version, for example "TLSv1.2".
    QString name;               //!< Name of the suite, for example "AES256-SHA".
    QString encryption;         //!< Encryption algorithm, for example "AES(256)".
    int bits = 0;               //!< Secret bits; 0 when unknown.
    QString authentication;     //!< Authentication, or the certificate's public-key algorithm.
    int authenticationBits = 0; //!< Size of the RSA modulus in bits; 0 for any other key.
    QString mac;                //!< Message authentication, for example "SHA1".
    QString keyExchange;        //!< Key exchange, for example "RSA".
    bool exportable = false;    //!< An export-grade suite.
};

} // namespace vela

#endif

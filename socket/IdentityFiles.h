// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_IDENTITYFILES_H
#define FERRULE_IDENTITYFILES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <openssl/ssl.h>

namespace vela {

/*!
    Loads certificate and private key into the shared context, whose mutex the caller holds.

    Reading the two files costs a server as much as a good part of a handshake. What the context has
    is therefore left alone as long as it came from the same files and these have not changed.
*/
class IdentityFiles
{
public:
    //! The outcome of each step of load(), as OpenSSL's error text; null where it succeeded.
    struct Errors
    {
        QString certificate;
        QString key;
        QString match;
    };

    /*!
        Makes the context use the PEM files \a certificate and \a key. All steps are taken, whatever
        becomes of those before.
    */
    static Errors load(SSL_CTX* context, const QByteArray& certificate, const QByteArray& key);

    //! Returns the SHA-1 fingerprint of the certificate that was loaded last; empty before.
    static QByteArray fingerprint();
};

} // namespace vela

#endif

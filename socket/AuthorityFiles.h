// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_AUTHORITYFILES_H
#define FERRULE_AUTHORITYFILES_H

#include <QtCore/QByteArray>

#include <openssl/ssl.h>

namespace vela {

/*!
    Loads trusted authorities into the shared context, whose mutex the caller holds.

    The context keeps what it has loaded, so that a file is read again only when it has changed:
    reading a system's bundle takes longer than a handshake. Where a directory is new, the context
    gets another store, so that nothing changes under handshakes that go on.
*/
class AuthorityFiles
{
public:
    //! Makes \a context, which is new, ready for the others.
    static void prepare(SSL_CTX* context);

    //! Loads from the places that OpenSSL itself, or its environment variables, name.
    static void loadDefaults(SSL_CTX* context);

    /*!
        Loads from \a file and \a directory, either of which may be empty. Returns false, with the
        reason in OpenSSL's error queue, when that fails.
    */
    static bool load(SSL_CTX* context, const QByteArray& file, const QByteArray& directory);

    //! Counts how often loading has added authorities: a bad verdict from before may be a good one.
    static quint64 generation();
};

} // namespace vela

#endif

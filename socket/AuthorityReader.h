// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_AUTHORITYREADER_H
#define FERRULE_AUTHORITYREADER_H

#include <openssl/ssl.h>

namespace vela {

/*!
    Reads trusted authorities as OpenSSL's own functions for that do, which take no pass phrase
    callback: those of the reference engine would stop the program until a person has answered.
*/
class AuthorityReader
{
public:
    //! \name The same with both engines
    //! \{
    /*!
        Adds the certificates and revocation lists of a PEM \a file to \a store. Returns false, with
        the reason in OpenSSL's error queue, when one cannot be read or there is none.
    */
    static bool addFile(X509_STORE* store, const char* file);
    //! \}

    //! \name A version for each engine: newer ones have functions that never ask
    //! \{
    /*!
        Adds the ways in which \a store looks for issuers that it does not know, none of which leads
        anywhere yet. To be called before a handshake uses the store: handshakes read the list of
        these ways without a lock. False on failure.
    */
    static bool prepare(X509_STORE* store);

    /*!
        Returns false if handshakes read the list of a store's directories without a lock, so that
        only a store that is not in use yet may be given another one.
    */
    static bool takesDirectoriesInUse();

    /*!
        Makes \a store look for issuers that it does not know in \a directories, separated as in
        OpenSSL's environment variables; false, with the reason in OpenSSL's error queue, on
        failure.
    */
    static bool addDirectories(X509_STORE* store, const char* directories);

    /*!
        Does the same with OpenSSL's default file and directories, which are \a file and
        \a directories; nothing is said about what cannot be read. What newer engines add to these
        two finds nothing more, but reads the whole directory for each issuer that the context does
        not know.
    */
    static void addDefaults(SSL_CTX* context, const char* file, const char* directories);
    //! \}

private:
    //! Adds what the engine itself says of a file that holds neither to its error queue.
    static void reportNothingFound();
};

} // namespace vela

#endif

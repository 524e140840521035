// SPDX-License-Identifier: BSD-3-Clause
// With engines that try an empty pass phrase on authorities that are encrypted, and ask nobody.

#include "socket/AuthorityReader.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

namespace vela {

bool AuthorityReader::prepare(X509_STORE* store)
{
    return X509_STORE_add_lookup(store, X509_LOOKUP_file())
           && X509_STORE_add_lookup(store, X509_LOOKUP_hash_dir());
}

bool AuthorityReader::takesDirectoriesInUse()
{
    return false;
}

bool AuthorityReader::addDirectories(X509_STORE* store, const char* directories)
{
    X509_LOOKUP* lookup = X509_STORE_add_lookup(store, X509_LOOKUP_hash_dir());
    return lookup && X509_LOOKUP_add_dir(lookup, directories, X509_FILETYPE_PEM) == 1;
}

void AuthorityReader::reportNothingFound()
{
    X509err(0, X509_R_NO_CERTIFICATE_OR_CRL_FOUND);
}

void AuthorityReader::addDefaults(SSL_CTX* context, const char*, const char*)
{
    SSL_CTX_set_default_verify_file(context);
    SSL_CTX_set_default_verify_dir(context);
}

} // namespace vela

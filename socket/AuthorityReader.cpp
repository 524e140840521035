// SPDX-License-Identifier: BSD-3-Clause
#include "socket/AuthorityReader.h"

#include "support/OpenSslHandles.h"
#include "support/PassPhrase.h"

#include <openssl/err.h>
#include <openssl/pem.h>

namespace vela {

namespace {

void freeContent(STACK_OF(X509_INFO) * content)
{
    sk_X509_INFO_pop_free(content, X509_INFO_free);
}

using PemContent = std::unique_ptr<STACK_OF(X509_INFO), OpenSslDeleter<freeContent>>;

// The reference engine calls it a failure that the store has the certificate already.
bool isDuplicate(unsigned long error)
{
    return ERR_GET_LIB(error) == ERR_LIB_X509
           && ERR_GET_REASON(error) == X509_R_CERT_ALREADY_IN_HASH_TABLE;
}

bool succeeded(int result)
{
    if (result == 1)
        return true;
    if (!isDuplicate(ERR_peek_last_error()))
        return false;
    ERR_clear_error();
    return true;
}

} // namespace

bool AuthorityReader::addFile(X509_STORE* store, const char* file)
{
    const BioHandle bio(BIO_new_file(file, "r"));
    if (!bio)
        return false;
    const PemContent content(PEM_X509_INFO_read_bio(bio.get(), nullptr, refusePassPhrase, nullptr));
    if (!content)
        return false;
    int count = 0;
    for (int i = 0; i < sk_X509_INFO_num(content.get()); ++i) {
        const X509_INFO* item = sk_X509_INFO_value(content.get(), i);
        if (item->x509 && !succeeded(X509_STORE_add_cert(store, item->x509)))
            return false;
        if (item->crl && !succeeded(X509_STORE_add_crl(store, item->crl)))
            return false;
        count += (item->x509 ? 1 : 0) + (item->crl ? 1 : 0);
    }
    if (count == 0)
        reportNothingFound();
    return count > 0;
}

} // namespace vela

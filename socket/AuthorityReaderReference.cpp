// SPDX-License-Identifier: BSD-3-Clause
// With the reference engine, whose own lookup in directories would ask for pass phrases in the
// middle of a handshake. This one finds what that one finds.

#include "socket/AuthorityReader.h"
#include "support/OpenSslErrorMark.h"
#include "support/OpenSslErrors.h"
#include "support/OpenSslHandles.h"
#include "support/PassPhrase.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QDir>
#include <QtCore/QMutex>

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

namespace vela {

namespace {

//! Verifying threads search it while others add to it.
struct DirectoryList
{
    QByteArrayList directories() const
    {
        const QMutexLocker lock(&mutex);
        return list;
    }

    mutable QMutex mutex;
    QByteArrayList list;
};

DirectoryList* listOf(X509_LOOKUP* lookup)
{
    return reinterpret_cast<DirectoryList*>(lookup->method_data);
}

int makeList(X509_LOOKUP* lookup)
{
    lookup->method_data = reinterpret_cast<char*>(new DirectoryList);
    return 1;
}

void freeList(X509_LOOKUP* lookup)
{
    delete listOf(lookup);
}

int addToList(X509_LOOKUP* lookup, int command, const char* names, long, char**)
{
    if (command != X509_L_ADD_DIR || !names)
        return 0;
    DirectoryList* list = listOf(lookup);
    const QMutexLocker lock(&list->mutex);
    const char separator = QDir::listSeparator().toLatin1();
    const QByteArrayList directories = QByteArray(names).split(separator);
    for (const QByteArray& directory : directories) {
        if (!directory.isEmpty() && !list->list.contains(directory))
            list->list.append(directory);
    }
    return 1;
}

//! False when there is no such file, or something in it is no certificate.
bool readCertificates(X509_STORE* store, const QByteArray& file)
{
    const BioHandle bio(BIO_new_file(file.constData(), "r"));
    if (!bio)
        return false;
    int count = 0;
    for (;;) {
        const X509Handle x509(PEM_read_bio_X509_AUX(bio.get(), nullptr, refusePassPhrase, nullptr));
        if (!x509)
            break;
        X509_STORE_add_cert(store, x509.get());
        ++count;
    }
    return count > 0 && ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
}

//! Puts the certificate into \a found without a reference of its own, as the engine expects it.
bool findInStore(X509_STORE* store, int type, X509_NAME* name, X509_OBJECT* found)
{
    CRYPTO_w_lock(CRYPTO_LOCK_X509_STORE);
    const X509_OBJECT* object = X509_OBJECT_retrieve_by_subject(store->objs, type, name);
    if (object)
        *found = *object;
    CRYPTO_w_unlock(CRYPTO_LOCK_X509_STORE);
    return object != nullptr;
}

int findBySubject(X509_LOOKUP* lookup, int type, X509_NAME* name, X509_OBJECT* found)
{
    if (!name || type != X509_LU_X509)
        return 0; // Revocation lists are never asked for.
    const OpenSslErrorMark mark;
    X509_STORE* store = lookup->store_ctx;
    const QByteArray hash = QByteArray::number(qulonglong(X509_NAME_hash(name)), 16);
    const QByteArray stem = '/' + hash.rightJustified(8, '0') + '.';
    const QByteArrayList directories = listOf(lookup)->directories();
    for (const QByteArray& directory : directories) {
        int number = 0;
        while (readCertificates(store, directory + stem + QByteArray::number(number)))
            ++number;
        if (findInStore(store, type, name, found))
            return 1;
    }
    return 0;
}

X509_LOOKUP_METHOD directoryMethod = {"Directories of authorities",
                                      makeList,
                                      freeList,
                                      nullptr,
                                      nullptr,
                                      addToList,
                                      findBySubject,
                                      nullptr,
                                      nullptr,
                                      nullptr};

} // namespace

bool AuthorityReader::prepare(X509_STORE* store)
{
    return X509_STORE_add_lookup(store, &directoryMethod) != nullptr;
}

bool AuthorityReader::takesDirectoriesInUse()
{
    return true;
}

bool AuthorityReader::addDirectories(X509_STORE* store, const char* directories)
{
    X509_LOOKUP* lookup = X509_STORE_add_lookup(store, &directoryMethod);
    return lookup && X509_LOOKUP_add_dir(lookup, directories, X509_FILETYPE_PEM) == 1;
}

void AuthorityReader::reportNothingFound()
{
}

void AuthorityReader::addDefaults(SSL_CTX* context, const char* file, const char* directories)
{
    X509_STORE* store = SSL_CTX_get_cert_store(context);
    addFile(store, file);
    addDirectories(store, directories);
    clearOpenSslErrors();
}

} // namespace vela

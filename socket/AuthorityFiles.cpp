// SPDX-License-Identifier: BSD-3-Clause
#include "socket/AuthorityFiles.h"

#include "socket/AuthorityReader.h"
#include "socket/ContextLock.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

#include <memory>
#include <vector>

namespace vela {

namespace {

using Certificates = std::vector<X509Handle>;
using StoreHandle = std::unique_ptr<X509_STORE, OpenSslDeleter<X509_STORE_free>>;

//! Returns all that \a store has so far; handshakes of other threads may be adding to it.
Certificates authoritiesIn(X509_STORE* store)
{
    Certificates authorities;
    const AuthoritiesLock lock(store);
    STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store);
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
        if (X509* certificate = certificateOf(sk_X509_OBJECT_value(objects, i))) {
            X509_up_ref(certificate);
            authorities.emplace_back(certificate);
        }
    }
    return authorities;
}

QByteArray environmentOr(const char* variable, const char* otherwise)
{
    return qEnvironmentVariableIsSet(variable) ? qgetenv(variable) : QByteArray(otherwise);
}

} // namespace

/*
    Notes whether what is loaded while the object lives adds authorities. Reading a file once more
    does not: the store has each certificate once.
*/
class AuthorityFiles::Addition
{
public:
    Addition(AuthorityFiles& files, SSL_CTX* context, const QByteArray& directory)
        : m_files(files)
        , m_directory(directory)
        , m_isNewDirectory(!directory.isEmpty() && !files.m_directories.contains(directory))
    {
        if (m_isNewDirectory && !AuthorityReader::takesDirectoriesInUse())
            files.replaceStore(context);
        m_store = SSL_CTX_get_cert_store(context);
        m_before = authoritiesIn(m_store).size();
    }

    ~Addition()
    {
        if (m_isNewDirectory && m_hasSucceeded)
            m_files.m_directories.insert(m_directory);
        if (m_isNewDirectory || authoritiesIn(m_store).size() != m_before)
            ++m_files.m_generation;
    }

    //! Tells that the directory, if any, is among those of the store.
    void succeed() { m_hasSucceeded = true; }

private:
    Q_DISABLE_COPY(Addition)

    AuthorityFiles& m_files;
    QByteArray m_directory;
    bool m_hasSucceeded = false;
    bool m_isNewDirectory;
    X509_STORE* m_store = nullptr;
    std::size_t m_before = 0;
};

void AuthorityFiles::prepare(SSL_CTX* context)
{
    AuthorityReader::prepare(SSL_CTX_get_cert_store(context));
}

/*
    Where handshakes of other threads read a store's list of directories without a lock, a new one
    goes to a new store, with all that the one before had. Connections keep the store that
    they were made with.
*/
void AuthorityFiles::replaceStore(SSL_CTX* context) const
{
    StoreHandle store(X509_STORE_new());
    if (!store || !AuthorityReader::prepare(store.get()))
        return;
    for (const X509Handle& authority : authoritiesIn(SSL_CTX_get_cert_store(context)))
        X509_STORE_add_cert(store.get(), authority.get());
    for (const QByteArray& directory : m_directories)
        AuthorityReader::addDirectories(store.get(), directory.constData());
    SSL_CTX_set_cert_store(context, store.release());
}

bool AuthorityFiles::isLoaded(const QByteArray& file, const QByteArray& directory) const
{
    const auto loaded = m_loaded.constFind({file, directory});
    return loaded != m_loaded.constEnd() && *loaded == FileVersion::of(file);
}

void AuthorityFiles::remember(const QByteArray& file, const QByteArray& directory,
                              const FileVersion& version)
{
    if (version.isSettled())
        m_loaded.insert({file, directory}, version);
}

void AuthorityFiles::loadDefaults(const ContextLock& lock)
{
    const QByteArray file =
        environmentOr(X509_get_default_cert_file_env(), X509_get_default_cert_file());
    const QByteArray directory =
        environmentOr(X509_get_default_cert_dir_env(), X509_get_default_cert_dir());
    if (isLoaded(file, directory))
        return;
    const FileVersion version = FileVersion::of(file);
    Addition addition(*this, lock.context(), directory);
    AuthorityReader::addDefaults(lock.context(), file.constData(), directory.constData());
    addition.succeed();
    remember(file, directory, version);
}

bool AuthorityFiles::load(const ContextLock& lock, const QByteArray& file,
                          const QByteArray& directory)
{
    if (isLoaded(file, directory))
        return true;
    const FileVersion version = FileVersion::of(file);
    Addition addition(*this, lock.context(), directory);
    X509_STORE* store = SSL_CTX_get_cert_store(lock.context());
    if (!file.isEmpty() && !AuthorityReader::addFile(store, file.constData()))
        return false;
    if (!directory.isEmpty() && !AuthorityReader::addDirectories(store, directory.constData()))
        return false;
    addition.succeed();
    remember(file, directory, version);
    return true;
}

} // namespace vela

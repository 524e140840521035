// SPDX-License-Identifier: BSD-3-Clause
#include "socket/AuthorityFiles.h"

#include "socket/FileVersion.h"
#include "support/OpenSslCompat.h"

#include <QtCore/QMap>
#include <QtCore/QSet>

namespace vela {

namespace {

using LoadedFiles = QMap<QPair<QByteArray, QByteArray>, FileVersion>;

// Guarded by the context's mutex, and like the context never destroyed.
LoadedFiles& loadedFiles()
{
    static auto* const files = new LoadedFiles;
    return *files;
}

bool isLoaded(const QByteArray& file, const QByteArray& directory)
{
    const auto loaded = loadedFiles().constFind({file, directory});
    return loaded != loadedFiles().constEnd() && *loaded == FileVersion::of(file);
}

void remember(const QByteArray& file, const QByteArray& directory, const FileVersion& version)
{
    if (version.isSettled())
        loadedFiles().insert({file, directory}, version);
}

// Guarded and kept likewise.
struct Known
{
    quint64 generation = 0;
    QSet<QByteArray> directories;
};

Known& known()
{
    static auto* const state = new Known;
    return *state;
}

int authoritiesIn(X509_STORE* store)
{
    const AuthoritiesLock lock(store);
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

/*
    Notes whether what is loaded while the object lives adds authorities. Reading a file once more
    does not: the store has each certificate once.
*/
class Addition
{
public:
    Addition(SSL_CTX* context, const QByteArray& directory)
        : m_store(SSL_CTX_get_cert_store(context))
        , m_before(authoritiesIn(m_store))
        , m_isNewDirectory(!directory.isEmpty() && !known().directories.contains(directory))
    {
        known().directories.insert(directory);
    }

    ~Addition()
    {
        if (m_isNewDirectory || authoritiesIn(m_store) != m_before)
            ++known().generation;
    }

private:
    Q_DISABLE_COPY(Addition)

    X509_STORE* m_store;
    int m_before;
    bool m_isNewDirectory;
};

QByteArray environmentOr(const char* variable, const char* otherwise)
{
    return qEnvironmentVariableIsSet(variable) ? qgetenv(variable) : QByteArray(otherwise);
}

} // namespace

void AuthorityFiles::loadDefaults(SSL_CTX* context)
{
    const QByteArray file =
        environmentOr(X509_get_default_cert_file_env(), X509_get_default_cert_file());
    const QByteArray directory =
        environmentOr(X509_get_default_cert_dir_env(), X509_get_default_cert_dir());
    if (isLoaded(file, directory))
        return;
    const FileVersion version = FileVersion::of(file);
    const Addition addition(context, directory);
    setDefaultVerifyPaths(context);
    remember(file, directory, version);
}

bool AuthorityFiles::load(SSL_CTX* context, const QByteArray& file, const QByteArray& directory)
{
    if (isLoaded(file, directory))
        return true;
    const FileVersion version = FileVersion::of(file);
    const Addition addition(context, directory);
    if (SSL_CTX_load_verify_locations(context, file.isEmpty() ? nullptr : file.constData(),
                                      directory.isEmpty() ? nullptr : directory.constData())
        != 1) {
        return false;
    }
    remember(file, directory, version);
    return true;
}

quint64 AuthorityFiles::generation()
{
    return known().generation;
}

} // namespace vela

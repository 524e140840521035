// SPDX-License-Identifier: BSD-3-Clause
#include "socket/AuthorityFiles.h"

#include "socket/AuthorityReader.h"
#include "socket/FileVersion.h"

#include <QtCore/QMap>

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
    AuthorityReader::addDefaults(context, file.constData(), directory.constData());
    remember(file, directory, version);
}

bool AuthorityFiles::load(SSL_CTX* context, const QByteArray& file, const QByteArray& directory)
{
    if (isLoaded(file, directory))
        return true;
    const FileVersion version = FileVersion::of(file);
    X509_STORE* store = SSL_CTX_get_cert_store(context);
    if (!file.isEmpty() && !AuthorityReader::addFile(store, file.constData()))
        return false;
    if (!directory.isEmpty() && !AuthorityReader::addDirectories(store, directory.constData()))
        return false;
    remember(file, directory, version);
    return true;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/AuthorityFiles.h"

#include "support/EngineFileName.h"

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QMap>

namespace vela {

namespace {

//! What tells one state of a source of authorities from another.
struct Stamp
{
    qint64 modified = -1;
    qint64 size = -1;

    bool operator==(const Stamp& other) const
    {
        return modified == other.modified && size == other.size;
    }
};

Stamp stampOf(const QByteArray& file)
{
    Stamp stamp;
    const QFileInfo info(fileOfEngineName(file));
    if (info.exists()) {
        stamp.modified = info.lastModified().toMSecsSinceEpoch();
        stamp.size = info.size();
    }
    return stamp;
}

using LoadedFiles = QMap<QPair<QByteArray, QByteArray>, Stamp>;

// Guarded by the context's mutex, and like the context never destroyed.
LoadedFiles& loadedFiles()
{
    static auto* const files = new LoadedFiles;
    return *files;
}

bool isLoaded(const QByteArray& file, const QByteArray& directory)
{
    const auto loaded = loadedFiles().constFind({file, directory});
    return loaded != loadedFiles().constEnd() && *loaded == stampOf(file);
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
    loadedFiles().insert({file, directory}, stampOf(file));
    SSL_CTX_set_default_verify_paths(context);
}

bool AuthorityFiles::load(SSL_CTX* context, const QByteArray& file, const QByteArray& directory)
{
    if (isLoaded(file, directory))
        return true;
    const Stamp stamp = stampOf(file);
    if (SSL_CTX_load_verify_locations(context, file.isEmpty() ? nullptr : file.constData(),
                                      directory.isEmpty() ? nullptr : directory.constData())
        != 1) {
        return false;
    }
    loadedFiles().insert({file, directory}, stamp);
    return true;
}

} // namespace vela

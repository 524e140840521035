// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/UserRoots.h"

#include "store/platform/linux/RootLocations.h"
#include "store/platform/linux/TrustCertificate.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QSaveFile>

#include <openssl/pem.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

namespace vela {

namespace {

namespace fs = std::filesystem;

constexpr mode_t OWNER_ONLY = S_IRWXU;

//! Makes \a directory and what is missing above it, for the user alone.
bool makePrivateDirectory(const fs::path& directory)
{
    if (mkdir(directory.c_str(), OWNER_ONLY) == 0)
        return true;
    if (errno == EEXIST)
        return fs::is_directory(directory);
    return errno == ENOENT && directory.has_relative_path()
           && makePrivateDirectory(directory.parent_path())
           && mkdir(directory.c_str(), OWNER_ONLY) == 0;
}

QByteArray encodePem(const TrustCertificate& certificate)
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), certificate.x509()) != 1)
        return QByteArray();
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(size));
}

bool holds(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.readAll() == content
           && (file.permissions() & (QFileDevice::WriteGroup | QFileDevice::WriteOther)) == 0;
}

bool writeAtomically(const QString& path, const QByteArray& content)
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly)
           && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
           && file.write(content) == content.size() && file.commit();
}

} // namespace

DWORD addUserRoot(const QByteArray& der)
{
    const TrustCertificatePtr certificate = TrustCertificate::fromDer(der);
    if (!certificate)
        return static_cast<DWORD>(CRYPT_E_ASN1_ERROR);
    const std::string directory = RootLocations::fromEnvironment().userDirectory();
    // Roots that others could have written are not trusted, so a directory that was theirs to write
    // is closed to them.
    if (directory.empty() || !makePrivateDirectory(directory)
        || chmod(directory.c_str(), OWNER_ONLY) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    const QByteArray digest = QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex();
    const QString path = QFile::decodeName(directory.c_str()) + QLatin1Char('/')
                         + QLatin1String(digest) + QLatin1String(USER_ROOT_SUFFIX);
    const QByteArray pem = encodePem(*certificate);
    if (holds(path, pem) || writeAtomically(path, pem))
        return ERROR_SUCCESS;
    return ERROR_WRITE_FAULT;
}

} // namespace vela

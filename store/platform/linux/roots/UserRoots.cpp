// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/UserRoots.h"

#include "store/platform/linux/roots/RegularFile.h"
#include "store/platform/linux/roots/RootLocations.h"
#include "store/validation/DecodedCertificate.h"

#include <QtCore/QCryptographicHash>

#include <openssl/pem.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace vela {

namespace {

namespace fs = std::filesystem;

constexpr mode_t OWNER_ONLY = S_IRWXU;
constexpr int MAX_ROOT_SIZE = 1024 * 1024; // More than any certificate has.

//! Makes \a directory and what is missing above it, for the user alone.
bool makePrivateDirectory(const fs::path& directory)
{
    if (mkdir(directory.c_str(), OWNER_ONLY) == 0)
        return true;
    std::error_code error;
    if (errno == EEXIST)
        return fs::is_directory(directory, error);
    return errno == ENOENT && directory.has_relative_path()
           && makePrivateDirectory(directory.parent_path())
           && mkdir(directory.c_str(), OWNER_ONLY) == 0;
}

QByteArray encodePem(const DecodedCertificate& certificate)
{
    const BioHandle bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), certificate.x509()) != 1)
        return QByteArray();
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<int>(size));
}

bool holds(const std::string& path, const QByteArray& content)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
           && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0
           && readRegularFile(path, MAX_ROOT_SIZE).bytes == content;
}

/*!
    A file that takes the place of the one at a path, or of a link, when it is complete. Until then
    it has another name, and it goes with the object.
*/
class ReplacementFile
{
public:
    explicit ReplacementFile(const std::string& path)
        : m_path(path)
        , m_temporaryPath(path + ".XXXXXX")
        , m_descriptor(mkostemp(m_temporaryPath.data(), O_CLOEXEC)) // For the user alone.
    {
    }

    ~ReplacementFile()
    {
        if (m_descriptor < 0)
            return;
        close(m_descriptor);
        if (!m_isInPlace)
            unlink(m_temporaryPath.c_str());
    }

    bool write(const QByteArray& content)
    {
        for (int written = 0; written < content.size();) {
            const ssize_t count =
                ::write(m_descriptor, content.constData() + written, content.size() - written);
            if (count < 0 && errno != EINTR)
                return false;
            written += static_cast<int>(std::max<ssize_t>(count, 0));
        }
        return true;
    }

    bool putInPlace()
    {
        m_isInPlace =
            fsync(m_descriptor) == 0 && rename(m_temporaryPath.c_str(), m_path.c_str()) == 0;
        return m_isInPlace;
    }

private:
    Q_DISABLE_COPY(ReplacementFile)

    const std::string m_path;
    std::string m_temporaryPath;
    const int m_descriptor;
    bool m_isInPlace = false;
};

bool writeAtomically(const std::string& path, const QByteArray& content)
{
    ReplacementFile file(path);
    return file.write(content) && file.putInPlace();
}

} // namespace

DWORD addUserRoot(const QByteArray& der)
{
    const DecodedCertificatePtr certificate = DecodedCertificate::fromDer(der);
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
    const std::string path = directory + '/' + digest.toStdString() + USER_ROOT_SUFFIX;
    const QByteArray pem = encodePem(*certificate);
    if (holds(path, pem) || writeAtomically(path, pem))
        return ERROR_SUCCESS;
    return ERROR_WRITE_FAULT;
}

} // namespace vela

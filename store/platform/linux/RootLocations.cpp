// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/RootLocations.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>

#include <openssl/x509.h>

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <tuple>

namespace vela {

namespace {

namespace fs = std::filesystem;

constexpr const char* SYSTEM_BUNDLES[] = {
    "/etc/ssl/certs/ca-certificates.crt",                // Debian, Arch, Gentoo
    "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora
    "/etc/ssl/ca-bundle.pem",                            // openSUSE
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora without the older names
    "/etc/ssl/cert.pem",                                 // Alpine
};
constexpr const char* SYSTEM_DIRECTORIES[] = {"/etc/ssl/certs", "/etc/pki/tls/certs"};
constexpr const char* USER_SUBDIRECTORY = "/ferrule/roots";
constexpr int MAX_LINKS = 8;
constexpr std::int64_t NANOSECONDS = 1000000000;

std::int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * NANOSECONDS + time.tv_nsec;
}

FileStamp stampOf(const std::string& path, const struct stat& status)
{
    return {path,
            status.st_dev,
            status.st_ino,
            status.st_size,
            nanoseconds(status.st_mtim),
            nanoseconds(status.st_ctim)};
}

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

std::optional<FileStamp> regularFile(const std::string& path)
{
    const auto status = statusOf(path);
    if (!status || !S_ISREG(status->st_mode) || status->st_size == 0)
        return std::nullopt;
    return stampOf(path, *status);
}

std::vector<std::string> sortedEntries(const std::string& directory)
{
    std::vector<std::string> entries;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(entry->path().string());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool isOutOfOthersReach(const struct stat& status)
{
    return (status.st_uid == geteuid() || status.st_uid == 0)
           && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size()
           && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void appendUserFiles(const std::string& directory, RootFiles* files)
{
    const auto status = statusOf(directory);
    if (!status || !isOutOfOthersReach(*status))
        return;
    for (const std::string& path : sortedEntries(directory)) {
        const auto fileStatus = statusOf(path);
        if (endsWith(path, USER_ROOT_SUFFIX) && fileStatus && S_ISREG(fileStatus->st_mode)
            && isOutOfOthersReach(*fileStatus)) {
            files->push_back(stampOf(path, *fileStatus));
        }
    }
}

//! Adds where \a path would appear: its directory, or the nearest that is there.
void addNearestDirectory(const fs::path& path, std::set<std::string>* directories)
{
    std::error_code error;
    fs::path directory = path.parent_path();
    while (!fs::is_directory(directory, error) && directory.has_relative_path())
        directory = directory.parent_path();
    directories->insert(directory.string());
}

//! Adds what has to be watched for \a path: every name on the way to it, and itself if a directory.
void addWatchesFor(fs::path path, std::set<std::string>* directories)
{
    std::error_code error;
    for (int links = 0; links < MAX_LINKS; ++links) {
        addNearestDirectory(path, directories);
        if (!fs::is_symlink(path, error))
            break;
        path = (path.parent_path() / fs::read_symlink(path, error)).lexically_normal();
    }
    if (fs::is_directory(path, error))
        directories->insert(path.string());
}

std::vector<std::string> splitList(const QByteArray& list)
{
    std::vector<std::string> parts;
    for (const QByteArray& part : list.split(':')) {
        if (!part.isEmpty())
            parts.push_back(fs::absolute(part.toStdString()).string());
    }
    return parts;
}

bool isPrivileged()
{
    return getauxval(AT_SECURE) != 0;
}

std::string userDirectoryPath()
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return data.isEmpty() ? std::string()
                          : QFile::encodeName(data).toStdString() + USER_SUBDIRECTORY;
}

} // namespace

bool FileStamp::operator==(const FileStamp& other) const
{
    return std::tie(path, device, inode, size, modified, changed)
           == std::tie(other.path, other.device, other.inode, other.size, other.modified,
                       other.changed);
}

RootLocations RootLocations::fromEnvironment()
{
    RootLocations locations;
    const char* const fileVariable = X509_get_default_cert_file_env();
    const char* const directoryVariable = X509_get_default_cert_dir_env();
    const bool isReplaced = !isPrivileged()
                            && (qEnvironmentVariableIsSet(fileVariable)
                                || qEnvironmentVariableIsSet(directoryVariable));
    if (isReplaced) {
        const std::string file = qgetenv(fileVariable).toStdString();
        if (!file.empty())
            locations.m_bundles.push_back(fs::absolute(file).string());
        locations.m_directories = splitList(qgetenv(directoryVariable));
        locations.m_usesBoth = true;
    } else {
        locations.m_bundles.emplace_back(X509_get_default_cert_file());
        locations.m_bundles.insert(locations.m_bundles.end(), std::begin(SYSTEM_BUNDLES),
                                   std::end(SYSTEM_BUNDLES));
        locations.m_directories = splitList(X509_get_default_cert_dir());
        locations.m_directories.insert(locations.m_directories.end(),
                                       std::begin(SYSTEM_DIRECTORIES),
                                       std::end(SYSTEM_DIRECTORIES));
    }
    if (!isPrivileged())
        locations.m_userDirectory = userDirectoryPath();
    return locations;
}

RootFiles RootLocations::files() const
{
    RootFiles files;
    for (const std::string& path : m_bundles) {
        if (const auto file = regularFile(path)) {
            files.push_back(*file);
            break;
        }
    }
    if (files.empty() || m_usesBoth) {
        for (const std::string& directory : m_directories) {
            for (const std::string& path : sortedEntries(directory)) {
                if (const auto file = regularFile(path))
                    files.push_back(*file);
            }
        }
    }
    if (!m_userDirectory.empty())
        appendUserFiles(m_userDirectory, &files);
    return files;
}

std::set<std::string> RootLocations::watchedDirectories() const
{
    std::set<std::string> directories;
    for (const std::string& path : m_bundles)
        addWatchesFor(path, &directories);
    for (const std::string& path : m_directories)
        addWatchesFor(path, &directories);
    if (!m_userDirectory.empty())
        addWatchesFor(m_userDirectory, &directories);
    for (const FileStamp& file : files())
        addWatchesFor(file.path, &directories);
    return directories;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/RootLocations.h"

#include "store/platform/linux/roots/RootReport.h"
#include "support/FileStampUnix.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>

#include <openssl/x509.h>

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

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
constexpr int MAX_LINKS = 40; // As many as the system follows.
constexpr int MAX_TICK = 20;  // Milliseconds; several times what it is.

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

std::optional<RootFile> regularFile(const std::string& path)
{
    const auto status = statusOf(path);
    if (!status || !S_ISREG(status->st_mode) || status->st_size == 0)
        return std::nullopt;
    return RootFile{path, stampOf(*status)};
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

std::vector<std::string> userFiles(const std::string& directory)
{
    std::vector<std::string> files = sortedEntries(directory);
    const auto isOther = [](const std::string& path) { return !endsWith(path, USER_ROOT_SUFFIX); };
    files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
    return files;
}

void appendUserFiles(const std::string& directory, RootFiles* files)
{
    const auto status = statusOf(directory);
    if (!status || !isOutOfOthersReach(*status))
        return;
    for (const std::string& path : userFiles(directory)) {
        const auto fileStatus = statusOf(path);
        if (fileStatus && S_ISREG(fileStatus->st_mode) && isOutOfOthersReach(*fileStatus))
            files->push_back({path, stampOf(*fileStatus)});
    }
}

//! Returns why there is nothing of \a type to be read at \a path; empty if there is.
std::string obstacle(const std::string& path, mode_t type)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::generic_category().message(errno);
    if ((status.st_mode & S_IFMT) == type)
        return std::string();
    return type == S_IFDIR ? "not a directory" : "not a regular file";
}

//! The same, and no other user could have written it.
std::string userObstacle(const std::string& path, mode_t type)
{
    const std::string reason = obstacle(path, type);
    if (!reason.empty())
        return reason;
    const auto status = statusOf(path);
    return status && isOutOfOthersReach(*status) ? std::string() : "in the reach of other users";
}

void addObstacle(const std::string& path, const std::string& reason, RootReport* report)
{
    if (!reason.empty())
        report->add(path, reason);
}

/*!
    Adds what has to be watched for \a path: each directory with a link on the way to it, the one
    that it is in, or the nearest that is there, and itself if it is a directory.
*/
void addWatchesFor(const fs::path& path, std::set<std::string>* directories)
{
    std::error_code error;
    std::deque<fs::path> names(path.begin(), path.end());
    fs::path directory = "/";
    int links = 0;
    while (!names.empty()) {
        const fs::path name = names.front();
        names.pop_front();
        const fs::path next = (directory / name).lexically_normal();
        const bool isLink = fs::is_symlink(next, error) && ++links <= MAX_LINKS;
        const bool isLast = names.empty() || !fs::is_directory(next, error);
        if (isLink || isLast)
            directories->insert(directory.string());
        if (isLink) {
            const fs::path target = fs::read_symlink(next, error);
            names.insert(names.begin(), target.begin(), target.end());
            continue;
        }
        if (!fs::is_directory(next, error))
            return;
        // Without links behind it, ".." is what its name says.
        directory = next;
    }
    directories->insert(directory.string());
}

//! Stays as it is when there is no current directory.
std::string absolutePath(const std::string& path)
{
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error);
    return error ? path : absolute.string();
}

std::vector<std::string> splitList(const QByteArray& list)
{
    std::vector<std::string> parts;
    for (const QByteArray& part : list.split(':')) {
        if (!part.isEmpty())
            parts.push_back(absolutePath(part.toStdString()));
    }
    return parts;
}

bool isPrivileged()
{
    return getauxval(AT_SECURE) != 0;
}

std::string userDataPath()
{
    return QFile::encodeName(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .toStdString();
}

} // namespace

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
            locations.m_bundles.push_back(absolutePath(file));
        locations.m_directories = splitList(qgetenv(directoryVariable));
        locations.m_isReplaced = true;
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
        locations.m_userDataDirectory = userDataPath();
    if (!locations.m_userDataDirectory.empty()) {
        locations.m_userDirectory = locations.m_userDataDirectory;
        for (const std::string& name : userSubdirectories())
            locations.m_userDirectory += '/' + name;
    }
    return locations;
}

std::vector<std::string> RootLocations::userSubdirectories()
{
    return {"ferrule", "roots"};
}

RootFiles RootLocations::files() const
{
    RootFiles files = list();
    const auto isNew = [](const RootFile& file) { return isOfThisTick(file.stamp); };
    for (int i = 0; i < MAX_TICK && std::any_of(files.begin(), files.end(), isNew); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        files = list();
    }
    return files;
}

RootFiles RootLocations::list() const
{
    RootFiles files = systemFiles();
    if (!m_userDirectory.empty())
        appendUserFiles(m_userDirectory, &files);
    return files;
}

RootFiles RootLocations::systemFiles() const
{
    RootFiles files;
    for (const std::string& path : m_bundles) {
        if (const auto file = regularFile(path)) {
            files.push_back(*file);
            break;
        }
    }
    if (files.empty() || m_isReplaced) {
        for (const std::string& directory : m_directories) {
            for (const std::string& path : sortedEntries(directory)) {
                if (const auto file = regularFile(path))
                    files.push_back(*file);
            }
        }
    }
    return files;
}

void RootLocations::reportMissing(RootReport* report) const
{
    if (m_isReplaced)
        reportNamed(report);
    else if (systemFiles().empty())
        report->add("the system", "no bundle of authorities found");
    reportUserFiles(report);
}

void RootLocations::reportNamed(RootReport* report) const
{
    for (const std::string& path : m_bundles) {
        const std::string reason = obstacle(path, S_IFREG);
        addObstacle(path, reason, report);
        if (reason.empty() && !regularFile(path))
            report->addEmpty(path);
    }
    for (const std::string& path : m_directories)
        addObstacle(path, obstacle(path, S_IFDIR), report);
}

void RootLocations::reportUserFiles(RootReport* report) const
{
    std::error_code error;
    if (m_userDirectory.empty() || (!fs::exists(m_userDirectory, error) && !error))
        return;
    const std::string reason = userObstacle(m_userDirectory, S_IFDIR);
    addObstacle(m_userDirectory, reason, report);
    if (!reason.empty())
        return;
    for (const std::string& path : userFiles(m_userDirectory))
        addObstacle(path, userObstacle(path, S_IFREG), report);
}

bool RootLocations::isExpectedToHoldRoots(const std::string& path) const
{
    return std::find(m_bundles.begin(), m_bundles.end(), path) != m_bundles.end()
           || fs::path(path).parent_path() == m_userDirectory;
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
    for (const RootFile& file : files())
        addWatchesFor(file.path, &directories);
    return directories;
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ROOTLOCATIONS_H
#define FERRULE_ROOTLOCATIONS_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace vela {

/*! What tells one state of a file from another. */
struct FileStamp
{
    std::string path;
    std::uint64_t device;
    std::uint64_t inode;
    std::int64_t size;
    std::int64_t modified; //!< Nanoseconds, like the next.
    std::int64_t changed;

    bool operator==(const FileStamp& other) const;
};

/*! The files that hold the roots, in the order in which they are read. */
using RootFiles = std::vector<FileStamp>;

/*!
    Where this system keeps its trusted roots. A value: it does not follow later changes of the
    environment.
*/
class RootLocations
{
public:
    /*!
        Returns the system's places, or those that `SSL_CERT_FILE` and `SSL_CERT_DIR` name when one
        of them is set, and the user's own directory.

        A program that runs with more rights than its user ignores the environment, like the user's
        directory that hangs on it.
    */
    static RootLocations fromEnvironment();

    /*!
        Returns the files that are there now: of the bundles the first that is not empty; the
        directories' content when the system has no bundle or the environment names them; the user's
        own files, unless other users could have written them.
    */
    RootFiles files() const;

    //! Returns the directories in which a change of files() shows.
    std::set<std::string> watchedDirectories() const;

    //! The directory of the user's own roots, which need not exist; empty if there is none.
    const std::string& userDirectory() const { return m_userDirectory; }

private:
    std::vector<std::string> m_bundles;
    std::vector<std::string> m_directories;
    std::string m_userDirectory;
    bool m_usesBoth = false; //!< Directories count although there is a bundle.
};

//! The ending of the names in the user's directory that count.
constexpr const char* USER_ROOT_SUFFIX = ".pem";

} // namespace vela

#endif

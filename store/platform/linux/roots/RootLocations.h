// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ROOTLOCATIONS_H
#define FERRULE_ROOTLOCATIONS_H

#include "support/FileStamp.h"

#include <set>
#include <string>
#include <vector>

namespace vela {

class RootReport;

/*! A file that holds roots, and its state. */
struct RootFile
{
    std::string path;
    FileStamp stamp;

    friend bool operator==(const RootFile& a, const RootFile& b)
    {
        return a.path == b.path && a.stamp == b.stamp;
    }
};

/*! In the order in which they are read. */
using RootFiles = std::vector<RootFile>;

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

        May wait for some milliseconds when one of them has just been changed, so that whatever
        happens to them afterwards shows in their stamps.
    */
    RootFiles files() const;

    //! Adds to \a report what is named, or the user's, but not among files().
    void reportMissing(RootReport* report) const;

    //! Whether the file at \a path is there to hold roots, rather than one of a directory of many.
    bool isExpectedToHoldRoots(const std::string& path) const;

    //! Returns the directories in which a change of files() shows.
    std::set<std::string> watchedDirectories() const;

    //! The directory of the user's own roots, which need not exist; empty if there is none.
    const std::string& userDirectory() const { return m_userDirectory; }
    //! Where users keep the data of programs, and the names that lead to userDirectory() from
    //! there.
    const std::string& userDataDirectory() const { return m_userDataDirectory; }
    static std::vector<std::string> userSubdirectories();

private:
    RootFiles list() const;
    RootFiles systemFiles() const;
    void reportNamed(RootReport* report) const;
    void reportUserFiles(RootReport* report) const;

    std::vector<std::string> m_bundles;
    std::vector<std::string> m_directories;
    std::string m_userDataDirectory;
    std::string m_userDirectory;
    bool m_isReplaced = false; //!< By the environment: directories count beside a bundle.
};

//! The ending of the names in the user's directory that count.
constexpr const char* USER_ROOT_SUFFIX = ".pem";

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ROOTREPORT_H
#define FERRULE_ROOTREPORT_H

#include <string>
#include <vector>

namespace vela {

/*!
    What one reading of the trusted roots has met that holds none although it should, as one line of
    the host's log.
*/
class RootReport
{
public:
    //! More than so many files are not named, only counted.
    static constexpr std::size_t MAX_NAMED = 5;

    void add(const std::string& path, const std::string& reason);
    //! Adds the system's text for an `errno`.
    void addError(const std::string& path, int error);
    void addEmpty(const std::string& path);
    void addDamage(const std::string& path, int certificates);

    //! Writes nothing when nothing was added.
    void log() const;

private:
    std::vector<std::string> m_entries;
};

} // namespace vela

#endif

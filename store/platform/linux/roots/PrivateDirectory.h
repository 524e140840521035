// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_PRIVATEDIRECTORY_H
#define FERRULE_PRIVATEDIRECTORY_H

#include <QtCore/QByteArray>

#include <string>
#include <vector>

namespace vela {

/*!
    A directory of the user's own, held open: whatever is put in its place meanwhile, files are
    written to the one that was looked at.
*/
class PrivateDirectory
{
public:
    /*!
        Opens the directory that is called by \a names, one below the other, below \a base, and
       makes what is missing, for the user alone. Closes it to others if they could enter it.

        Each of the names must be a directory that belongs to the user, and no link: a link could
       have been planted by somebody who may not do to its target what this process may. Nothing is
        changed otherwise, and isOpen() is false.
    */
    PrivateDirectory(const std::string& base, const std::vector<std::string>& names);
    ~PrivateDirectory();

    bool isOpen() const { return m_descriptor >= 0; }
    //! Whether the file \a name holds \a content and could not have been written by others.
    bool holds(const std::string& name, const QByteArray& content) const;
    //! Puts a file with \a content in the place of the one called \a name, or of a link, when it is
    //! complete. Leaves nothing behind if that fails.
    bool replace(const std::string& name, const QByteArray& content) const;

private:
    Q_DISABLE_COPY(PrivateDirectory)

    void enter(const std::string& name);
    void close();

    int m_descriptor = -1;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_REGULARFILE_H
#define FERRULE_REGULARFILE_H

#include <QtCore/QByteArray>

#include <string>

namespace vela {

/*! What reading a file came to. */
struct FileContent
{
    QByteArray bytes; //!< Empty after an error.
    int error = 0;    //!< An `errno`; 0 for none.
};

/*!
    Reads the file at \a path as a whole. Never waits, as opening a pipe would: what is no regular
    file is an error, and so is one of more than \a maxSize bytes.
*/
FileContent readRegularFile(const std::string& path, int maxSize);
//! The same for a file that is open, from where it stands.
FileContent readRegularFile(int descriptor, int maxSize);

} // namespace vela

#endif

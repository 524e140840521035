// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ENGINEFILENAME_H
#define FERRULE_ENGINEFILENAME_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <filesystem>

namespace vela {

/*!
    Returns the name by which OpenSSL opens the file \a name. That is the name as the system encodes
    it, but on Windows UTF-8, in which there is every name.
*/
QByteArray engineFileName(const QString& name);

//! Returns the file that OpenSSL opens by \a engineName.
std::filesystem::path engineFilePath(const QByteArray& engineName);

} // namespace vela

#endif

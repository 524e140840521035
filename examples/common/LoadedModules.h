// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_LOADEDMODULES_H
#define FERRULE_EXAMPLES_LOADEDMODULES_H

#include <QtCore/QString>

/*!
    What the operating system's loader has put into this process. One source file for each system
    implements it.
*/
namespace modules {

//! Where a function is. Every function pointer may be taken for one, and one for it.
using Address = void (*)();

//! Returns the path of the shared library, or the program, that holds \a address.
QString pathOf(Address address);

/*!
    Returns the function \a name of the OpenSSL that the shared library at \a path is linked to,
    null if there is none. Another OpenSSL may be in the process: Qt loads one for itself.
*/
Address engineFunction(const QString& path, const char* name);

} // namespace modules

#endif

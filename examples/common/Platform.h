// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PLATFORM_H
#define FERRULE_EXAMPLES_PLATFORM_H

#include <QtCore/QString>

/*!
    What the programs need of the operating system and Qt does not offer. One source file for each
    system implements it.
*/
namespace platform {

/*!
    Makes the standard streams carry bytes unchanged, and a closed standard output a failure of
    writeOutput() instead of the end of the process. Call it first in main().
*/
void prepareStandardStreams();

//! Waits for standard input. Returns the bytes read, 0 at its end, -1 on failure (see `errno`).
int readInput(char* data, int size);

/*!
    Writes all \a size bytes to standard output, waiting as long as it takes. Returns false on
    failure (see `errno`).
*/
bool writeOutput(const char* data, qint64 size);

/*!
    Tells the peer of the TCP connection \a descriptor that nothing more will be sent. Receiving
    goes on.
*/
void endSending(qintptr descriptor);

//! Where a function is. Every function pointer may be taken for one, and one for it.
using Address = void (*)();

//! Returns the path of the shared library, or the program, that holds \a address.
QString moduleOf(Address address);

/*!
    Returns the function \a name of the OpenSSL that the shared library at \a path is linked to,
   null if there is none. Another OpenSSL may be in the process: Qt loads one for itself.
*/
Address engineFunction(const QString& path, const char* name);

} // namespace platform

#endif

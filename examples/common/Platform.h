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

//! What receive() and send() return when nothing can be done for the moment, and on failure.
constexpr int WOULD_BLOCK = -1;
constexpr int FAILED = -2;

/*!
    Receive and send over the TCP connection \a descriptor, which must not block. Return the number
    of bytes; receive() returns 0 when the peer has ended its sending.
*/
int receive(qintptr descriptor, char* data, int size);
int send(qintptr descriptor, const char* data, int size);

//! Returns what made receive(), send() or duplicateSocket() fail just now.
QString socketErrorText();

//! Returns another descriptor of the same connection, -1 on failure.
qintptr duplicateSocket(qintptr descriptor);

//! Gives \a descriptor back. The connection ends with its last descriptor.
void closeSocket(qintptr descriptor);

} // namespace platform

#endif

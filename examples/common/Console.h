// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CONSOLE_H
#define FERRULE_EXAMPLES_CONSOLE_H

#include <QtCore/QString>

namespace console {

//! Writes \a text as one line to standard error, after the program's name.
void complain(const QString& text);

//! Writes \a text and a line feed to standard error.
void note(const QString& text);

//! Writes \a text and a line feed to standard output, at once.
void print(const QString& text);

/*!
    Returns \a text on one line: what does not print, stands as "\x0A". For texts that a peer or
    its certificate supplied, so that they cannot forge lines or steer the terminal.
*/
QString printable(const QString& text);

/*!
    Sends Qt's messages to standard error. The library notes the life of its TLS sessions on Qt's
    debug channel; only with \a verbose is that channel shown.
*/
void installMessageHandler(bool verbose);

} // namespace console

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_OPTIONVALUES_H
#define FERRULE_EXAMPLES_OPTIONVALUES_H

#include <QtCore/QString>

class QCommandLineOption;
class QCommandLineParser;
class QHostAddress;

//! Reads a number of seconds, fractions allowed. Returns false when \a text is none.
bool parseSeconds(const QString& text, int& msecs);

/*!
    Reads where a server is to listen from the values of the options \a host and \a port. Returns an
    error text, null for success.
*/
QString readListenAddress(const QCommandLineParser& parser, const QCommandLineOption& host,
                          const QCommandLineOption& port, QHostAddress& address,
                          quint16& portNumber);

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_ABOUT_H
#define FERRULE_EXAMPLES_ABOUT_H

#include <QtCore/QStringList>

/*!
    Returns lines that tell which libraries this process really runs with, and where they lie; the
    first thing to look at when a program behaves differently on two machines.
*/
QStringList aboutLines();

/*!
    Returns what to tell a user about an OpenSSL that calls itself \a found ("OpenSSL 1.0.2h  3 May
    2016", empty if there is none) where the library was built for version \a builtFor; empty if
    they fit.
*/
QString engineCaution(const QString& builtFor, const QString& found);

#endif

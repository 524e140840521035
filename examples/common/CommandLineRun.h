// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_COMMANDLINERUN_H
#define FERRULE_EXAMPLES_COMMANDLINERUN_H

#include "common/About.h"
#include "common/Console.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

/*!
    Reads \a arguments into \a options by means of \a line, which has a `parser`, the options `help`
    and `version`, and a function `read()` that returns what is wrong; the option --about is added.
    Returns false when the program is to end with \a status: after --about, --help and --version,
    and after a mistake, which is complained about and gives \a usageStatus.
*/
template <typename CommandLine, typename Options>
bool runCommandLine(const QStringList& arguments, CommandLine& line, Options& options,
                    int usageStatus, int& status)
{
    const QCommandLineOption about(
        QStringLiteral("about"),
        QStringLiteral("Tell which Qt and which OpenSSL the program runs with, and end."));
    line.parser.addOption(about);
    QString error = line.parser.parse(arguments) ? QString() : line.parser.errorText();
    status = 0;
    if (error.isNull() && line.parser.isSet(line.help)) {
        console::print(line.parser.helpText().trimmed());
        return false;
    }
    if (error.isNull() && line.parser.isSet(line.version)) {
        console::print(QCoreApplication::applicationName() + QLatin1Char(' ')
                       + QCoreApplication::applicationVersion());
        return false;
    }
    if (error.isNull() && line.parser.isSet(about)) {
        for (const QString& text : aboutLines())
            console::print(text);
        return false;
    }
    if (error.isNull())
        error = line.read(options);
    if (error.isNull())
        return true;
    console::complain(error + QStringLiteral(" (--help explains)"));
    status = usageStatus;
    return false;
}

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "common/Options.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>
#include <QtCore/QTextStream>

#include <cmath>
#include <cstdlib>

namespace bench {

namespace {

QString programName()
{
    return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
}

[[noreturn]] void misuse(const QString& what)
{
    QTextStream(stderr) << programName() << ": " << what << "; see --help\n";
    std::exit(2);
}

//! Returns the number that \a option has, which must be one from 1 to \a most.
int number(const QCommandLineParser& parser, const QCommandLineOption& option, int most)
{
    const QString text = parser.value(option);
    bool isNumber = false;
    const int value = text.toInt(&isNumber);
    if (!isNumber || value < 1 || value > most) {
        misuse(QStringLiteral("--%1 takes a number from 1 to %2, not \"%3\"")
                   .arg(option.names().constFirst())
                   .arg(most)
                   .arg(text));
    }
    return value;
}

} // namespace

Options parseOptions(const QString& description, OneSubject oneSubject,
                     const QStringList& arguments)
{
    const QCommandLineOption rounds(QStringLiteral("rounds"),
                                    QStringLiteral("How often each sample is taken."),
                                    QStringLiteral("number"), QStringLiteral("11"));
    const QCommandLineOption share(QStringLiteral("share"),
                                   QStringLiteral("Do that part of the work, for a quick look."),
                                   QStringLiteral("percent"), QStringLiteral("100"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Write the results to that file, too."),
                                  QStringLiteral("file"));
    const QCommandLineOption only(QStringLiteral("only"),
                                  QStringLiteral("Measure that subject alone, as for a profiler."),
                                  QStringLiteral("subject"));
    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    parser.addOptions({rounds, share, json});
    if (oneSubject == OneSubject::Possible)
        parser.addOption(only);
    parser.addHelpOption();
    parser.addVersionOption();
    if (!parser.parse(arguments))
        misuse(parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp();
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    if (!parser.positionalArguments().isEmpty())
        misuse(QStringLiteral("no argument \"%1\" is known")
                   .arg(parser.positionalArguments().constFirst()));

    Options options;
    options.rounds = number(parser, rounds, 1000);
    options.share = number(parser, share, 100) / 100.0;
    options.jsonFile = parser.value(json);
    if (oneSubject == OneSubject::Possible)
        options.only = parser.value(only);
    return options;
}

int scaled(const Options& options, int count)
{
    return std::max(1, static_cast<int>(std::lround(options.share * count)));
}

void fail(const QString& what)
{
    QTextStream(stderr) << programName() << ": " << what << '\n';
    // Neither destructors nor the handlers of exit(): other threads may be in the middle of things.
    std::_Exit(1);
}

} // namespace bench

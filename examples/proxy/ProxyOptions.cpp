// SPDX-License-Identifier: BSD-3-Clause
#include "proxy/ProxyOptions.h"

#include "common/CommandLineRun.h"
#include "common/OptionValues.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

namespace {

const char DESCRIPTION[] =
    "Lets HTTP clients through to the servers that they name with CONNECT, and does nothing\n"
    "else. Prints the line \"listening on ADDRESS:PORT\" and then one line for each client when\n"
    "it has gone: its address, the server, the status that it was answered, the bytes that\n"
    "went up to the server and down to the client, and how it ended.\n"
    "\n"
    "A client may go wherever this machine may: without --user, keep to the loopback\n"
    "interface. User and password come over the network in clear.\n"
    "\n"
    "Ends on SIGTERM and SIGINT, and drops the connections that are open then.\n"
    "\n"
    "Exit status:\n"
    "  0  ended by a signal (or --about, --help, --version)\n"
    "  1  the command line is wrong\n"
    "  2  cannot listen on the address and port";

/*! The parser and the options, in the order in which --help shows them. */
struct CommandLine
{
    QCommandLineParser parser;
    QCommandLineOption host{QStringLiteral("host"),
                            QStringLiteral("Listen on the IP address <address>. (Default: "
                                           "127.0.0.1)"),
                            QStringLiteral("address"), QStringLiteral("127.0.0.1")};
    QCommandLineOption port{QStringLiteral("port"),
                            QStringLiteral("Listen on <port>; 0 for one that is free. (Default: "
                                           "3128)"),
                            QStringLiteral("port"), QStringLiteral("3128")};
    QCommandLineOption user{
        QStringLiteral("user"),
        QStringLiteral("Let only clients through that give the user <user> and the password of "
                       "--password."),
        QStringLiteral("user")};
    QCommandLineOption password{
        QStringLiteral("password"),
        QStringLiteral("The password of --user; none for an empty one. Whoever may list the "
                       "processes of this machine can read it."),
        QStringLiteral("password")};
    QCommandLineOption timeout{
        QStringLiteral("timeout"),
        QStringLiteral("Give up when a client's request, or the connection to its server, takes "
                       "longer than <seconds>; 0 for no limit. (Default: 30)"),
        QStringLiteral("seconds"), QStringLiteral("30")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Print this text and end.")};
    QCommandLineOption version = parser.addVersionOption();

    CommandLine()
    {
        parser.setApplicationDescription(QString::fromLatin1(DESCRIPTION));
        parser.addOptions({host, port, user, password, timeout, help});
    }

    QString read(ProxyOptions& options);
    QString readCredentials(ProxyOptions& options);
};

QString CommandLine::read(ProxyOptions& options)
{
    if (!parser.positionalArguments().isEmpty())
        return QStringLiteral("unexpected \"%1\"").arg(parser.positionalArguments().first());
    if (!parseSeconds(parser.value(timeout), options.timeoutMsecs))
        return QStringLiteral("--timeout needs a number of seconds");
    const QString error = readListenAddress(parser, host, port, options.address, options.port);
    return error.isNull() ? readCredentials(options) : error;
}

QString CommandLine::readCredentials(ProxyOptions& options)
{
    if (!parser.isSet(user))
        return parser.isSet(password) ? QStringLiteral("--password needs --user") : QString();
    if (parser.value(user).isEmpty() || parser.value(user).contains(QLatin1Char(':')))
        return QStringLiteral("--user must not be empty or contain a colon");
    const QString credentials = parser.value(user) + QLatin1Char(':') + parser.value(password);
    options.credentials = credentials.toLatin1();
    if (QString::fromLatin1(options.credentials) != credentials)
        return QStringLiteral("--user and --password must be of characters of Latin-1");
    return QString();
}

} // namespace

bool ProxyOptions::parse(const QStringList& arguments, int& status)
{
    CommandLine line;
    return runCommandLine(arguments, line, *this, ExitUsage, status);
}

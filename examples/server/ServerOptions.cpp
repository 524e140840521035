// SPDX-License-Identifier: BSD-3-Clause
#include "server/ServerOptions.h"

#include "common/CommandLineRun.h"
#include "common/OptionValues.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

namespace {

const char DESCRIPTION[] =
    "Serves TLS: sends back what each client sends, or a file with --file. Prints the line\n"
    "\"listening on ADDRESS:PORT\" and then one line for each connection when it has ended:\n"
    "the client's address, the cipher, whether the session was new or reused, the bytes in\n"
    "and out, and how it ended. The bytes are counted without encryption; those out are the\n"
    "ones handed to the connection, whether or not the client took them.\n"
    "\n"
    "Ends on SIGTERM and SIGINT, and drops the connections that are open then.\n"
    "\n"
    "Exit status:\n"
    "  0  ended by a signal (or --about, --help, --version)\n"
    "  1  the command line is wrong\n"
    "  2  the certificate, key, cipher list or file cannot be used\n"
    "  3  cannot listen on the address and port";

/*! The parser and the options, in the order in which --help shows them. */
struct CommandLine
{
    QCommandLineParser parser;
    QCommandLineOption certificate{QStringLiteral("cert"),
                                   QStringLiteral("The certificate, the first in the PEM file "
                                                  "<file>. Required."),
                                   QStringLiteral("file")};
    QCommandLineOption key{QStringLiteral("key"),
                           QStringLiteral("Its private key, a PEM file. Required."),
                           QStringLiteral("file")};
    QCommandLineOption host{QStringLiteral("host"),
                            QStringLiteral("Listen on the IP address <address>. (Default: "
                                           "127.0.0.1)"),
                            QStringLiteral("address"), QStringLiteral("127.0.0.1")};
    QCommandLineOption port{QStringLiteral("port"),
                            QStringLiteral("Listen on <port>; 0 for one that is free. (Default: "
                                           "4433)"),
                            QStringLiteral("port"), QStringLiteral("4433")};
    QCommandLineOption ciphers{
        QStringLiteral("ciphers"),
        QStringLiteral("Accept only the ciphers of the OpenSSL cipher list <list>. The ciphers of "
                       "TLS 1.3 are not affected."),
        QStringLiteral("list")};
    QCommandLineOption file{
        QStringLiteral("file"),
        QStringLiteral("Send <file> to each client, then end the connection; drop what it sends."),
        QStringLiteral("file")};
    QCommandLineOption timeout{
        QStringLiteral("timeout"),
        QStringLiteral("Drop clients that do not finish the handshake within <seconds>; 0 for no "
                       "limit. (Default: 30)"),
        QStringLiteral("seconds"), QStringLiteral("30")};
    QCommandLineOption backlog{
        QStringLiteral("max-backlog"),
        QStringLiteral(
            "Drop clients that let more than <MiB> wait: an echo is kept in memory until "
            "the client takes it, and nothing stops a client from sending. (Default: "
            "128)"),
        QStringLiteral("MiB"), QStringLiteral("128")};
    QCommandLineOption verbose{QStringLiteral("verbose"),
                               QStringLiteral("Also show the library's notes on its sessions.")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Print this text and end.")};
    QCommandLineOption version = parser.addVersionOption();

    CommandLine()
    {
        parser.setApplicationDescription(QString::fromLatin1(DESCRIPTION));
        parser.addOptions(
            {certificate, key, host, port, ciphers, file, timeout, backlog, verbose, help});
    }

    QString read(ServerOptions& options);
    QString readNumbers(ServerOptions& options);
};

QString CommandLine::read(ServerOptions& options)
{
    if (!parser.positionalArguments().isEmpty())
        return QStringLiteral("unexpected \"%1\"").arg(parser.positionalArguments().first());
    for (const auto& option : {certificate, key, ciphers, file}) {
        if (parser.isSet(option) && parser.value(option).isEmpty())
            return QStringLiteral("--%1 is empty").arg(option.names().first());
    }
    if (!parser.isSet(certificate) || !parser.isSet(key))
        return QStringLiteral("--cert and --key are required");

    options.tls.certificate = parser.value(certificate);
    options.tls.key = parser.value(key);
    options.tls.ciphers = parser.value(ciphers);
    options.file = parser.value(file);
    options.verbose = parser.isSet(verbose);
    return readNumbers(options);
}

QString CommandLine::readNumbers(ServerOptions& options)
{
    const QString error = readListenAddress(parser, host, port, options.address, options.port);
    if (!error.isNull())
        return error;
    if (!parseSeconds(parser.value(timeout), options.timeoutMsecs))
        return QStringLiteral("--timeout needs a number of seconds");
    const int mebibytes = parser.value(backlog).toInt();
    if (mebibytes < 1)
        return QStringLiteral("--max-backlog needs a whole number from 1");
    options.backlogLimit = mebibytes * Q_INT64_C(1024) * 1024;
    return QString();
}

} // namespace

bool ServerOptions::parse(const QStringList& arguments, int& status)
{
    CommandLine line;
    return runCommandLine(arguments, line, *this, ExitUsage, status);
}

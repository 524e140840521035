// SPDX-License-Identifier: BSD-3-Clause
#include "client/ClientOptions.h"

#include "common/CommandLineRun.h"
#include "common/OptionValues.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

namespace {

const char DESCRIPTION[] =
    "Connects to HOST:PORT with TLS (an IPv6 address in brackets: [::1]:443), reports on\n"
    "standard error what it found, then sends standard input to the peer and writes what\n"
    "the peer sends to standard output.\n"
    "\n"
    "The program ends when the peer closes the connection. At the end of its input it goes\n"
    "on receiving, because TLS connections of this library have no half-close: where the\n"
    "peer waits for more, use --close-after-input. Nothing is sent, and standard input is\n"
    "not read, before the handshake is complete.\n"
    "\n"
    "Trusted are the authorities of --ca-file and --ca-dir, and nothing else; with --cert\n"
    "those of OpenSSL's default locations are trusted as well. A bad verdict is reported and\n"
    "changes nothing, unless one of the --require options is given.\n"
    "\n"
    "With --store a certificate store judges the peer's chain, too. The store \"system\" is the\n"
    "trust of the operating system: on Linux its bundle, or what SSL_CERT_FILE and SSL_CERT_DIR\n"
    "name instead, and the user's own roots. \"bundle\" is the bundle of public roots that the\n"
    "library carries: this one does not judge, but it is searched for the chain's root. Neither\n"
    "looks at the host name, or changes the verdict of the connection.\n"
    "\n"
    "With --proxy the connection leads through a tunnel that an HTTP proxy is asked for. The\n"
    "proxy learns HOST and PORT; of an IPv6 address also the brackets, with which it agrees\n"
    "with no certificate.\n"
    "\n"
    "Exit status:\n"
    "  0  the connection ended in order (or --about, --help, --version)\n"
    "  1  the command line is wrong\n"
    "  2  a certificate, key, authority or cipher list cannot be used\n"
    "  3  no connection: unknown host, closed port, unreachable, refused by the proxy\n"
    "  4  the handshake failed: no TLS there, no common cipher, closed by the peer\n"
    "  5  connection and handshake took longer than --timeout\n"
    "  6  --require-ok: the verdict, or with --store system that of the store, is not OK\n"
    "  7  --require-host-name: the certificate is for another host\n"
    "  8  the connection broke, or the peer closed it before all input was sent; with TLS 1.3\n"
    "     also when the server turns down the client's certificate\n"
    "  9  standard input or standard output failed";

QStringList storeNames()
{
    return {QStringLiteral("system"), QStringLiteral("bundle")};
}

/*! The parser and the options, in the order in which --help shows them. */
struct CommandLine
{
    QCommandLineParser parser;
    QCommandLineOption caFile{QStringLiteral("ca-file"),
                              QStringLiteral("Trust the authorities in the PEM file <file>."),
                              QStringLiteral("file")};
    QCommandLineOption caDirectory{
        QStringLiteral("ca-dir"),
        QStringLiteral("Trust the authorities in <directory>, prepared with 'openssl rehash'."),
        QStringLiteral("directory")};
    QCommandLineOption certificate{
        QStringLiteral("cert"),
        QStringLiteral("Offer the first certificate in the PEM file <file> to a server that asks "
                       "for one; needs --key. Also trusts OpenSSL's default authorities."),
        QStringLiteral("file")};
    QCommandLineOption key{QStringLiteral("key"),
                           QStringLiteral("The private key of --cert, a PEM file."),
                           QStringLiteral("file")};
    QCommandLineOption ciphers{
        QStringLiteral("ciphers"),
        QStringLiteral("Offer only the ciphers of the OpenSSL cipher list <list>. The ciphers of "
                       "TLS 1.3 are not affected."),
        QStringLiteral("list")};
    QCommandLineOption serverName{
        QStringLiteral("server-name"),
        QStringLiteral("Ask the server for the host <name> instead of HOST (SNI), as one does who "
                       "connects to a virtual host by its address. Changes nothing else: the "
                       "certificate is still held against HOST."),
        QStringLiteral("name")};
    QCommandLineOption noServerName{QStringLiteral("no-server-name"),
                                    QStringLiteral("Ask the server for no name.")};
    QCommandLineOption store{QStringLiteral("store"),
                             QStringLiteral("Also let the store <store> judge the peer: %1.")
                                 .arg(storeNames().join(QStringLiteral(" or "))),
                             QStringLiteral("store")};
    QCommandLineOption proxy{
        QStringLiteral("proxy"),
        QStringLiteral("Connect through the HTTP proxy <proxy>: [USER[:PASSWORD]@]HOST:PORT, user "
                       "and password percent-encoded as in URLs. They go to the proxy in clear, "
                       "and whoever may list the processes of this machine can read them."),
        QStringLiteral("proxy")};
    QCommandLineOption repeat{
        QStringLiteral("repeat"),
        QStringLiteral("Make <count> connections, one after the other, and report on each: shows "
                       "whether sessions are resumed. All but the last are closed after the "
                       "handshake, and what the peer sends on them is dropped; with TLS 1.3 they "
                       "first wait, one second at most, for the session ticket."),
        QStringLiteral("count"), QStringLiteral("1")};
    QCommandLineOption timeout{
        QStringLiteral("timeout"),
        QStringLiteral("Give up when connection and handshake take longer than <seconds>; 0 for "
                       "no limit. (Default: 30)"),
        QStringLiteral("seconds"), QStringLiteral("30")};
    QCommandLineOption closeAfterInput{
        QStringLiteral("close-after-input"),
        QStringLiteral("When all input has been sent and the peer has then been silent for "
                       "<seconds>, close the connection. Fractions are allowed; 0 does not wait."),
        QStringLiteral("seconds")};
    QCommandLineOption requireOk{
        QStringLiteral("require-ok"),
        QStringLiteral("End before any data is exchanged when the verdict is not OK; with --store "
                       "system both verdicts must be, the connection's and the store's. Does not "
                       "look at the host name; add --require-host-name for that.")};
    QCommandLineOption requireHostName{
        QStringLiteral("require-host-name"),
        QStringLiteral("End before any data is exchanged when the common name in the peer's "
                       "certificate is not HOST. Wildcards and alternative names do not count.")};
    QCommandLineOption quiet{QStringLiteral("quiet"),
                             QStringLiteral("Do not report on the peer; errors are still told.")};
    QCommandLineOption verbose{
        QStringLiteral("verbose"),
        QStringLiteral("Also show the library's notes on its sessions, and the "
                       "failures in its log.")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Print this text and end.")};
    QCommandLineOption version = parser.addVersionOption();

    CommandLine()
    {
        parser.setApplicationDescription(QString::fromLatin1(DESCRIPTION));
        parser.addPositionalArgument(QStringLiteral("HOST:PORT"), QStringLiteral("The peer."),
                                     QStringLiteral("HOST:PORT"));
        parser.addOptions({caFile, caDirectory, certificate, key, ciphers, serverName, noServerName,
                           store, proxy, repeat, timeout, closeAfterInput, requireOk,
                           requireHostName, quiet, verbose, help});
    }

    QString read(ClientOptions& options);
    QString readServerName(ClientOptions& options);
    QString readStore(ClientOptions& options);
    QString readNumbers(ClientOptions& options);
};

QString CommandLine::read(ClientOptions& options)
{
    const QStringList targets = parser.positionalArguments();
    if (targets.size() != 1)
        return QStringLiteral("one HOST:PORT is needed, %1 given").arg(targets.size());
    if (!options.peer.parse(targets.first()))
        return QStringLiteral("\"%1\" is not HOST:PORT").arg(targets.first());

    for (const auto& option : {caFile, caDirectory, certificate, key, ciphers}) {
        if (parser.isSet(option) && parser.value(option).isEmpty())
            return QStringLiteral("--%1 is empty").arg(option.names().first());
    }
    if (parser.isSet(certificate) != parser.isSet(key))
        return QStringLiteral("--cert and --key go together");

    options.tls.caFile = parser.value(caFile);
    options.tls.caDirectory = parser.value(caDirectory);
    options.tls.certificate = parser.value(certificate);
    options.tls.key = parser.value(key);
    options.tls.ciphers = parser.value(ciphers);
    options.quiet = parser.isSet(quiet);
    options.requireOk = parser.isSet(requireOk);
    options.requireHostName = parser.isSet(requireHostName);
    options.verbose = parser.isSet(verbose);
    QString error = readServerName(options);
    if (error.isNull())
        error = readStore(options);
    if (error.isNull() && parser.isSet(proxy))
        error = options.proxy.parse(parser.value(proxy));
    return error.isNull() ? readNumbers(options) : error;
}

QString CommandLine::readServerName(ClientOptions& options)
{
    if (parser.isSet(serverName) && parser.isSet(noServerName))
        return QStringLiteral("--server-name and --no-server-name exclude each other");
    if (parser.isSet(noServerName))
        options.serverName = QString();
    if (!parser.isSet(serverName))
        return QString();
    // The library sends nothing but host names.
    vela::SslSocket socket(vela::SslSocket::Client);
    socket.setServerName(parser.value(serverName));
    if (socket.serverName().isEmpty())
        return QStringLiteral("--server-name \"%1\" is no host name").arg(parser.value(serverName));
    options.serverName = parser.value(serverName);
    return QString();
}

QString CommandLine::readStore(ClientOptions& options)
{
    if (!parser.isSet(store))
        return QString();
    const int index = storeNames().indexOf(parser.value(store));
    if (index < 0)
        return QStringLiteral("--store \"%1\" is not one of %2")
            .arg(parser.value(store), storeNames().join(QStringLiteral(", ")));
    options.store = index == 0 ? StoreChoice::System : StoreChoice::Bundle;
    return QString();
}

QString CommandLine::readNumbers(ClientOptions& options)
{
    options.connections = parser.value(repeat).toInt();
    if (options.connections < 1)
        return QStringLiteral("--repeat needs a whole number from 1");
    if (!parseSeconds(parser.value(timeout), options.timeoutMsecs))
        return QStringLiteral("--timeout needs a number of seconds");
    if (parser.isSet(closeAfterInput)
        && !parseSeconds(parser.value(closeAfterInput), options.closeAfterInputMsecs)) {
        return QStringLiteral("--close-after-input needs a number of seconds");
    }
    return QString();
}

} // namespace

bool ClientOptions::parse(const QStringList& arguments, int& status)
{
    CommandLine line;
    return runCommandLine(arguments, line, *this, ExitUsage, status);
}

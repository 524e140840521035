// SPDX-License-Identifier: BSD-3-Clause
#include "certificates/CertificatesOptions.h"

#include "common/CommandLineRun.h"
#include "common/Judgement.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

namespace {

const char DESCRIPTION[] =
    "Shows the certificates in each FILE: a chain in PEM, the end certificate first, or one\n"
    "certificate in DER. Root certificates are imported from a bundle into a store; shown with\n"
    "each certificate are the store's trust record and verdict for it (\"unknown\" where the\n"
    "store holds the certificate, for it does not judge, and \"failed\" where it does not), and\n"
    "with each chain what a host makes of that.\n"
    "\n"
    "That judgement is NO path validation: it compares names and fingerprints. No signature, no\n"
    "validity period and no purpose is checked, and anybody can make a certificate that names\n"
    "a trusted issuer.\n"
    "\n"
    "Names are shown as the library splits them: a \"/\" inside a value begins a new attribute.\n"
    "Times from 2050 on may show as a moment from 2024 to 2028.\n"
    "\n"
    "Exit status, with several failures that of the first:\n"
    "  0  all was shown, and written (or --about, --help, --version)\n"
    "  1  the command line is wrong\n"
    "  2  a FILE cannot be read, or holds no certificate\n"
    "  3  a FILE is damaged: the certificates before the damage are shown, none is written\n"
    "  4  the bundle cannot be read, or no certificate in it\n"
    "  5  an OUT cannot be written; it is left as it was\n"
    "  6  standard output failed";

/*! The parser and the options, in the order in which --help shows them. */
struct CommandLine
{
    QCommandLineParser parser;
    QCommandLineOption bundle{
        QStringLiteral("bundle"),
        QStringLiteral("Import the root certificates in the PEM file <file>. (Default: the bundle "
                       "that the library carries, :/Certificates/RootCerts.pem)"),
        QStringLiteral("file"), QStringLiteral(":/Certificates/RootCerts.pem")};
    QCommandLineOption accept{
        QStringLiteral("accept"),
        QStringLiteral("Record the imported certificates as accepted <how>: %1. (Default: always)")
            .arg(acceptNames().join(QStringLiteral(", "))),
        QStringLiteral("how"), QStringLiteral("always")};
    QCommandLineOption pem{
        QStringLiteral("pem"),
        QStringLiteral("Write the chain of the one FILE to <OUT>, in PEM. An old file is replaced "
                       "when all is written."),
        QStringLiteral("OUT")};
    QCommandLineOption der{
        QStringLiteral("der"),
        QStringLiteral("Write the end certificate of the one FILE to <OUT>, in DER, which has room "
                       "for one certificate."),
        QStringLiteral("OUT")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Print this text and end.")};
    QCommandLineOption version = parser.addVersionOption();

    CommandLine()
    {
        parser.setApplicationDescription(QString::fromLatin1(DESCRIPTION));
        parser.addPositionalArgument(QStringLiteral("FILE"),
                                     QStringLiteral("A file; \"-\" is standard input."),
                                     QStringLiteral("FILE..."));
        parser.addOptions({bundle, accept, pem, der, help});
    }

    QString read(CertificatesOptions& options);
};

QString CommandLine::read(CertificatesOptions& options)
{
    options.files = parser.positionalArguments();
    if (options.files.isEmpty())
        return QStringLiteral("a FILE is needed");
    if (options.files.contains(QString()))
        return QStringLiteral("a FILE is empty");
    if (options.files.count(QStringLiteral("-")) > 1)
        return QStringLiteral("standard input can be read only once");
    for (const auto& option : {bundle, pem, der}) {
        if (parser.isSet(option) && parser.value(option).isEmpty())
            return QStringLiteral("--%1 is empty").arg(option.names().first());
    }
    if ((parser.isSet(pem) || parser.isSet(der)) && options.files.size() > 1)
        return QStringLiteral("--pem and --der write the certificates of one FILE");
    const int how = acceptNames().indexOf(parser.value(accept));
    if (how < 0)
        return QStringLiteral("--accept \"%1\" is not one of %2")
            .arg(parser.value(accept), acceptNames().join(QStringLiteral(", ")));

    options.bundle = parser.value(bundle);
    options.accept = static_cast<vela::CertAccept>(how);
    options.pemOutput = parser.value(pem);
    options.derOutput = parser.value(der);
    return QString();
}

} // namespace

bool CertificatesOptions::parse(const QStringList& arguments, int& status)
{
    CommandLine line;
    return runCommandLine(arguments, line, *this, ExitUsage, status);
}

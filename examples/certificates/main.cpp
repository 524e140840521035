// SPDX-License-Identifier: BSD-3-Clause
// Shows files of certificates, and what a store filled from a bundle of roots has on them.

#include "certificates/CertificateFile.h"
#include "certificates/CertificatesOptions.h"
#include "certificates/ChainReport.h"
#include "common/CertificateRows.h"
#include "common/Console.h"
#include "common/FileBytes.h"
#include "common/Judgement.h"
#include "common/Platform.h"

#include <QtCore/QCoreApplication>

#include <cerrno>

namespace {

ExitStatus fail(ExitStatus status, const QString& reason)
{
    console::complain(console::printable(reason));
    return status;
}

ExitStatus show(const QString& text)
{
    const QByteArray bytes = (text + QLatin1Char('\n')).toLocal8Bit();
    if (platform::writeOutput(bytes.constData(), bytes.size()))
        return ExitOk;
    return fail(ExitStandardOutput,
                QStringLiteral("standard output: %1").arg(qt_error_string(errno)));
}

ExitStatus writeChain(const CertificatesOptions& options, const vela::SslCertificateChain& chain)
{
    QString failure;
    if (!options.pemOutput.isEmpty())
        failure = writePemFile(chain, options.pemOutput);
    if (failure.isNull() && !options.derOutput.isEmpty())
        failure = writeDerFile(chain.endCert(), options.derOutput);
    return failure.isNull() ? ExitOk : fail(ExitNotWritten, failure);
}

ExitStatus handleFile(const QString& name, const CertificatesOptions& options,
                      vela::GenericCertStore& store)
{
    QByteArray bytes;
    const QString failure = readBytes(name, bytes);
    if (!failure.isNull())
        return fail(ExitNothingRead, failure);
    const CertificateFile file = parseCertificates(bytes);
    if (!file.chain.isEmpty()) {
        const QString heading =
            QStringLiteral("%1: %2, certificates: %3").arg(name, file.form).arg(file.chain.size());
        const ExitStatus shown = show(QLatin1Char('\n') + reportRow("file", heading)
                                      + QLatin1Char('\n') + chainReport(store, file));
        if (shown != ExitOk)
            return shown;
    }
    if (!file.damage.isNull())
        return fail(ExitDamaged, QStringLiteral("%1: %2").arg(name, file.damage));
    if (file.chain.isEmpty())
        return fail(ExitNothingRead, QStringLiteral("%1: holds no certificate").arg(name));
    return writeChain(options, file.chain);
}

} // namespace

int main(int argc, char** argv)
{
    platform::prepareStandardStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ferrule-certificates"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FERRULE_EXAMPLES_VERSION));

    CertificatesOptions options;
    int status = ExitOk;
    if (!options.parse(QCoreApplication::arguments(), status))
        return status;
    console::installMessageHandler(false);

    vela::GenericCertStore store(nullptr);
    QString summary;
    const QString failure = importBundle(options.bundle, options.accept, store, summary);
    if (!failure.isNull())
        return fail(ExitBundle, failure);
    status = show(reportRow("bundle", summary));
    if (status != ExitOk)
        return status;
    for (const QString& name : qAsConst(options.files)) {
        const ExitStatus outcome = handleFile(name, options, store);
        if (status == ExitOk)
            status = outcome;
        if (outcome == ExitStandardOutput)
            break;
    }
    return status;
}

// SPDX-License-Identifier: BSD-3-Clause
// Shows files of certificates, and what a store filled from a bundle of roots has on them.

#include "certificates/CertificateFile.h"
#include "certificates/CertificatesOptions.h"
#include "certificates/ChainReport.h"
#include "certificates/Judgement.h"
#include "common/CertificateRows.h"
#include "common/Console.h"
#include "common/Platform.h"

#include <QtCore/QCoreApplication>

namespace {

int fail(ExitStatus status, const QString& reason)
{
    console::complain(console::printable(reason));
    return status;
}

bool show(const QString& text)
{
    const QByteArray bytes = (text + QLatin1Char('\n')).toLocal8Bit();
    return platform::writeOutput(bytes.constData(), bytes.size());
}

int writeChain(const CertificatesOptions& options, const vela::SslCertificateChain& chain)
{
    QString failure;
    if (!options.pemOutput.isEmpty())
        failure = writePemFile(chain, options.pemOutput);
    if (failure.isNull() && !options.derOutput.isEmpty())
        failure = writeDerFile(chain.endCert(), options.derOutput);
    return failure.isNull() ? static_cast<int>(ExitOk) : fail(ExitNotWritten, failure);
}

int handleFile(const QString& name, const CertificatesOptions& options,
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
        if (!show(QLatin1Char('\n') + reportRow("file", heading) + QLatin1Char('\n')
                  + chainReport(store, file)))
            return fail(ExitStandardOutput, QStringLiteral("standard output failed"));
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
    if (!show(reportRow("bundle", summary)))
        return fail(ExitStandardOutput, QStringLiteral("standard output failed"));

    for (const QString& name : qAsConst(options.files)) {
        const int outcome = handleFile(name, options, store);
        if (status == ExitOk)
            status = outcome;
    }
    return status;
}

// SPDX-License-Identifier: BSD-3-Clause
#include "common/Judgement.h"

#include "common/CertificateRows.h"
#include "common/FileBytes.h"

#include <QtCore/QBuffer>

using vela::SslCertificate;
using vela::SslCertificateChain;

namespace {

// The index of the first certificate that is not named as the issuer of the one before it, or -1.
int firstGap(const SslCertificateChain& chain)
{
    for (int i = 1; i < chain.size(); ++i) {
        if (!namesAsIssuer(*chain.at(i - 1), *chain.at(i)))
            return i;
    }
    return -1;
}

int indexOfIssuer(const vela::CertificateStore& store, const SslCertificate& certificate)
{
    for (int i = 0; i < store.count(); ++i) {
        if (namesAsIssuer(certificate, *store[i].endCert()))
            return i;
    }
    return -1;
}

QString decision(vela::CertAccept accept)
{
    switch (accept) {
    case vela::AcceptNever:
        return QStringLiteral("refused");
    case vela::AcceptOnce:
        return QStringLiteral("accepted once");
    case vela::AcceptSession:
        return QStringLiteral("accepted until the host ends");
    case vela::AcceptAlways:
        return QStringLiteral("accepted");
    case vela::AcceptUndecided:
        break;
    }
    return QStringLiteral("undecided");
}

} // namespace

QStringList acceptNames()
{
    return {QStringLiteral("never"), QStringLiteral("once"), QStringLiteral("session"),
            QStringLiteral("always"), QStringLiteral("undecided")};
}

QString acceptName(vela::CertAccept accept)
{
    return acceptNames().value(static_cast<int>(accept), QString::number(accept));
}

QString importBundle(const QString& fileName, vela::CertAccept accept,
                     vela::GenericCertStore& store, QString& summary)
{
    QByteArray bytes;
    const QString failure = readBytes(fileName, bytes);
    if (!failure.isNull())
        return failure;
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    store.importRootCerts(&device, accept);
    if (store.count() == 0)
        return QStringLiteral("%1: no certificate could be imported").arg(fileName);
    summary = QStringLiteral("%1: %2 imported, recorded as %3")
                  .arg(fileName)
                  .arg(store.count())
                  .arg(acceptName(accept));
    const int leftOut = bytes.count("-----BEGIN CERTIFICATE-----") - store.count();
    if (leftOut > 0)
        summary += QStringLiteral("; %1 left out, damaged or there twice").arg(leftOut);
    return QString();
}

bool namesAsIssuer(const SslCertificate& certificate, const SslCertificate& issuer)
{
    return certificate.issuerAttributes() == issuer.subjectAttributes();
}

QString judge(const vela::CertificateStore& store, const SslCertificateChain& chain)
{
    const int gap = firstGap(chain);
    if (gap > 0)
        return QStringLiteral(
                   "no chain: certificate %1 is not the issuer that certificate %2 names")
            .arg(gap + 1)
            .arg(gap);

    const SslCertificate& last = *chain.rootCert();
    QString found = QStringLiteral("the bundle holds the last certificate");
    int index = store.indexOf(chain.rootCert());
    if (index < 0) {
        found = QStringLiteral("the bundle holds an authority with the name of the last "
                               "certificate's issuer");
        index = indexOfIssuer(store, last);
        // It would have been found if it were the one that the bundle holds.
        if (index >= 0 && namesAsIssuer(last, last))
            return QStringLiteral("unknown authority: the bundle holds another certificate with "
                                  "the name of the last one");
    }
    if (index < 0)
        return QStringLiteral("unknown authority: the bundle holds neither the last certificate "
                              "nor its issuer");
    const vela::CertAccept accept = store.trustInfo(store[index]).accept;
    return QStringLiteral("%1: %2, recorded as %3")
        .arg(decision(accept), found, acceptName(accept));
}

QString cautionRow()
{
    return reportRow("caution", QStringLiteral("no path validation: names and fingerprints were "
                                               "compared, no signature was checked"));
}

// SPDX-License-Identifier: BSD-3-Clause
#include "certificates/ChainReport.h"

#include "common/CertificateRows.h"
#include "common/Judgement.h"

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

QString position(const SslCertificateChain& chain, int index)
{
    const SslCertificate& certificate = *chain.at(index);
    const bool isRoot = namesAsIssuer(certificate, certificate);
    if (index == 0)
        return isRoot ? QStringLiteral("end certificate and root")
                      : QStringLiteral("end certificate");
    if (!namesAsIssuer(*chain.at(index - 1), certificate))
        return QStringLiteral("not the issuer that the one before names");
    return isRoot ? QStringLiteral("root") : QStringLiteral("issuer");
}

QString version(long encoded)
{
    if (encoded < 0 || encoded > 2)
        return QStringLiteral("none that is known, encoded as %1").arg(encoded);
    return QString::number(encoded + 1);
}

QString publicKey(const vela::CertCipher& cipher)
{
    return cipher.authenticationBits > 0 ? QStringLiteral("%1, %2 bits")
                                               .arg(cipher.authentication)
                                               .arg(cipher.authenticationBits)
                                         : cipher.authentication;
}

// The overload for stores that are not const would make a record of every certificate shown.
QString trust(const vela::CertificateStore& store, const SslCertificatePtr& certificate)
{
    const vela::CertTrust record = store.trustInfo(certificate);
    return QStringLiteral("state %1, accept %2, mark %3")
        .arg(record.state)
        .arg(acceptName(record.accept))
        .arg(record.mark);
}

QString storeVerdict(vela::GenericCertStore& store, const SslCertificatePtr& certificate)
{
    const vela::CertVerify verdict = store.verify(certificate);
    return verdictName(verdict)
           + (verdict == vela::VerifyUnknown
                  ? QStringLiteral(": in the bundle; this store does not judge")
                  : QStringLiteral(": not in the bundle"));
}

QStringList certificateReport(vela::GenericCertStore& store, const SslCertificatePtr& certificate)
{
    return certificateRows(*certificate)
           + QStringList{
               reportRow("version", version(certificate->version())),
               reportRow("public key", publicKey(certificate->cipher())),
               reportRow("trust", trust(store, certificate)),
               reportRow("verdict", storeVerdict(store, certificate)),
               QString(),
           };
}

} // namespace

QString chainReport(vela::GenericCertStore& store, const CertificateFile& file)
{
    QStringList rows;
    for (int i = 0; i < file.chain.size(); ++i) {
        const QString place = QStringLiteral("%1 of %2: %3")
                                  .arg(i + 1)
                                  .arg(file.chain.size())
                                  .arg(position(file.chain, i));
        rows += reportRow("certificate", place);
        rows += certificateReport(store, file.chain.at(i));
    }
    if (!file.damage.isNull())
        rows += reportRow("judgement", QStringLiteral("none: the file is damaged"));
    else
        rows += reportRow("judgement", judge(store, file.chain));
    rows += cautionRow();
    return rows.join(QLatin1Char('\n'));
}

// SPDX-License-Identifier: BSD-3-Clause
#include "common/CertificateRows.h"

#include "common/Console.h"

#include <Ferrule/SslCertificate.h>

namespace {

QString hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(':').toUpper());
}

QStringList nameRows(const char* label, const QMultiMap<QString, QString>& attributes)
{
    QStringList rows;
    for (auto it = attributes.begin(); it != attributes.end(); ++it)
        rows += reportRow(rows.isEmpty() ? label : "",
                          it.value().isEmpty() ? it.key() : it.key() + QLatin1Char('=') + *it);
    return rows.isEmpty() ? QStringList{reportRow(label, QStringLiteral("(empty)"))} : rows;
}

// The library takes a certificate's UTC digits for local time.
QString utc(const QDateTime& time)
{
    return QDateTime(time.date(), time.time(), Qt::UTC).toString(Qt::ISODate);
}

QString end(const vela::SslCertificate& certificate)
{
    // From 2050 on certificates write their times in another form, which the library reads as a
    // moment of the 2020s.
    if (certificate.validUntil() < certificate.validFrom())
        return QStringLiteral("2050 or later");
    return utc(certificate.validUntil());
}

} // namespace

QString reportRow(const char* label, const QString& text)
{
    return QString::fromLatin1(label).leftJustified(13) + console::printable(text);
}

QStringList certificateRows(const vela::SslCertificate& certificate)
{
    if (certificate.isEmpty())
        return {reportRow("certificate", QStringLiteral("none"))};
    return nameRows("subject", certificate.subjectAttributes())
           + nameRows("issuer", certificate.issuerAttributes())
           + QStringList{
               reportRow("serial", hex(certificate.serialNumber())),
               reportRow("SHA-1", hex(certificate.sha1Digest())),
               reportRow("MD5", hex(certificate.md5Digest())),
               reportRow("valid from", utc(certificate.validFrom())),
               reportRow("valid until", end(certificate)),
           };
}

QString verdictName(vela::CertVerify verdict)
{
    switch (verdict) {
    case vela::VerifyOk:
        return QStringLiteral("OK");
    case vela::VerifySelfSigned:
        return QStringLiteral("self-signed");
    case vela::VerifyExpired:
        return QStringLiteral("expired");
    case vela::VerifyNotYetValid:
        return QStringLiteral("not yet valid");
    case vela::VerifyFailed:
        return QStringLiteral("failed");
    case vela::VerifyUnknown:
        break;
    }
    return QStringLiteral("unknown");
}

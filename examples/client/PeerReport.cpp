// SPDX-License-Identifier: BSD-3-Clause
#include "client/PeerReport.h"

#include "common/Console.h"

#include <Ferrule/SslCertificate.h>
#include <Ferrule/SslSocket.h>

#include <QtCore/QStringList>

namespace {

QString row(const char* label, const QString& text)
{
    return QString::fromLatin1(label).leftJustified(13) + console::printable(text);
}

QString hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(':').toUpper());
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

QStringList certificateRows(const vela::SslCertificate& certificate)
{
    if (certificate.isEmpty())
        return {row("certificate", QStringLiteral("none"))};
    const QString separators = QStringLiteral(",=");
    return {
        row("subject", certificate.subjectString(separators)),
        row("issuer", certificate.issuerString(separators)),
        row("serial", hex(certificate.serialNumber())),
        row("SHA-1", hex(certificate.sha1Digest())),
        row("MD5", hex(certificate.md5Digest())),
        row("valid from", utc(certificate.validFrom())),
        row("valid until", end(certificate)),
    };
}

} // namespace

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

QString peerReport(const vela::SslSocket& socket, vela::CertVerify verdict, bool hostNameMatched,
                   const QString& description)
{
    QStringList rows = {
        row("verdict", verdictName(verdict)),
        row("host name", hostNameMatched ? QStringLiteral("agrees") : QStringLiteral("differs")),
        row("description", description),
        row("cipher", QStringLiteral("%1, %2, %3 bits")
                          .arg(socket.getCipherName(), socket.getCipherVersion())
                          .arg(socket.getCipherBits())),
        row("", socket.getCipherDescription().simplified()),
        row("session", socket.isSessionReused() ? QStringLiteral("reused") : QStringLiteral("new")),
    };
    // The socket hands out a reference; the certificate object takes it over.
    rows += certificateRows(vela::SslCertificate(socket.x509peerCertificate(), true));
    return rows.join(QLatin1Char('\n'));
}

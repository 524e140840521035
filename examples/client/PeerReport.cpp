// SPDX-License-Identifier: BSD-3-Clause
#include "client/PeerReport.h"

#include "common/CertificateRows.h"

#include <Ferrule/SslCertificate.h>
#include <Ferrule/SslSocket.h>

#include <QtCore/QStringList>

QString peerDescription(const vela::SslSocket& socket, const QString& description)
{
    // The socket hands out a reference; the certificate object takes it over.
    const vela::SslCertificate certificate(socket.x509peerCertificate(), true);
    return certificate.isEmpty() ? QStringLiteral("the peer has shown no certificate")
                                 : description;
}

QString peerReport(const vela::SslSocket& socket, vela::CertVerify verdict, bool hostNameMatched,
                   const QString& description)
{
    const QString asked = socket.serverName();
    QStringList rows = {
        reportRow("asked for", asked.isEmpty() ? QStringLiteral("no name") : asked),
        reportRow("verdict", verdictName(verdict)),
        reportRow("host name",
                  hostNameMatched ? QStringLiteral("agrees") : QStringLiteral("differs")),
        reportRow("description", peerDescription(socket, description)),
        reportRow("cipher", QStringLiteral("%1, %2, %3 bits")
                                .arg(socket.getCipherName(), socket.getCipherVersion())
                                .arg(socket.getCipherBits())),
        reportRow("", socket.getCipherDescription().simplified()),
        reportRow("session",
                  socket.isSessionReused() ? QStringLiteral("reused") : QStringLiteral("new")),
    };
    // The socket hands out a reference; the certificate object takes it over.
    rows += certificateRows(vela::SslCertificate(socket.x509peerCertificate(), true));
    return rows.join(QLatin1Char('\n'));
}

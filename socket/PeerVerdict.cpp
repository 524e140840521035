// SPDX-License-Identifier: BSD-3-Clause
#include "socket/PeerVerdict.h"

#include "cert/CertificateTime.h"
#include "support/NameOneline.h"
#include "support/OpenSslCompat.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QStringList>

#include <limits>

namespace vela {

namespace {

const QLatin1String COMMON_NAME_FIELD("CN=");
const QLatin1String NOT_BEFORE_FIELD("notValidBefore=");
const QLatin1String NOT_AFTER_FIELD("notValidAfter=");

QDateTime parseDate(const QString& text)
{
    QDateTime date = QDateTime::fromString(text, Qt::ISODate);
    date.setTimeSpec(Qt::UTC);
    return date;
}

qint32 serialNumber(X509* x509)
{
    const ASN1_INTEGER* const number = X509_get_serialNumber(x509);
    const qint64 serial = ASN1_INTEGER_get(number);
    using Range = std::numeric_limits<qint32>;
    // Where long has 32 bits, a number just too large for it comes out with the other sign.
    const bool hasSign = (serial < 0) == (number->type == V_ASN1_NEG_INTEGER);
    const bool fits = hasSign && serial >= Range::min() && serial <= Range::max();
    return fits ? static_cast<qint32>(serial) : -1;
}

bool matches(const PeerIdentity& peer, const QString& hostName)
{
    return hostName.toLower() == peer.hostName.toLower();
}

} // namespace

QString describeCertificate(X509* x509)
{
    return QString::fromLatin1("%1/notValidBefore=%2/notValidAfter=%3/version=%4/serial=%5")
        .arg(describeNames(x509),
             certificateDateTime(X509_get0_notBefore(x509)).toString(Qt::ISODate),
             certificateDateTime(X509_get0_notAfter(x509)).toString(Qt::ISODate),
             QString::number(X509_get_version(x509)), QString::number(serialNumber(x509)));
}

QString describeNames(X509* x509)
{
    return nameOneline(X509_get_issuer_name(x509)) + QLatin1Char('/')
           + nameOneline(X509_get_subject_name(x509));
}

PeerIdentity::PeerIdentity(const QString& description)
{
    const QStringList fields = description.split(QLatin1Char('/'));
    for (const QString& field : fields) {
        if (field.startsWith(COMMON_NAME_FIELD))
            hostName = field.mid(COMMON_NAME_FIELD.size());
        else if (field.startsWith(NOT_BEFORE_FIELD))
            validFrom = parseDate(field.mid(NOT_BEFORE_FIELD.size()));
        else if (field.startsWith(NOT_AFTER_FIELD))
            validUntil = parseDate(field.mid(NOT_AFTER_FIELD.size()));
    }
    validFrom.setTimeSpec(Qt::UTC);
    validUntil.setTimeSpec(Qt::UTC);
}

PeerVerdict judgeVerifiedPeer(const PeerIdentity& peer, const QString& hostName)
{
    PeerVerdict verdict;
    verdict.hostNameMatched = matches(peer, hostName);

    const QDateTime now = QDateTime::currentDateTime();
    if (now < peer.validFrom) {
        verdict.result = VerifyNotYetValid;
        verdict.description = SslSocket::tr("The SSL certificate is not valid until %1.")
                                  .arg(peer.validFrom.toString(Qt::TextDate));
    } else if (peer.validUntil < now) {
        verdict.result = VerifyExpired;
        verdict.description = SslSocket::tr("The SSL certificate expired on %1.")
                                  .arg(peer.validUntil.toString(Qt::TextDate));
    } else {
        verdict.result = VerifyOk;
        verdict.description = SslSocket::tr("The SSL certificate has been verified.");
    }
    if (verdict.hostNameMatched)
        return verdict;

    const QString mismatch =
        verdict.result == VerifyOk
            ? SslSocket::tr("Caution, the host name \"%0\" does not match the host name in the "
                            "certificate \"%1\".")
            : SslSocket::tr("Also, the host name \"%0\" does not match the host name in the "
                            "certificate \"%1\".");
    verdict.description += QLatin1Char(' ') + mismatch.arg(hostName, peer.hostName);
    return verdict;
}

PeerVerdict judgeFailedPeer(const PeerIdentity& peer, const QString& hostName, long code,
                            const QString& text)
{
    const bool selfSigned = code == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT
                            || code == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN;
    PeerVerdict verdict;
    verdict.result = selfSigned ? VerifySelfSigned : VerifyFailed;
    verdict.hostNameMatched = matches(peer, hostName);
    verdict.description = text;
    return verdict;
}

} // namespace vela

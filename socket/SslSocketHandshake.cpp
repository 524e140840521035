// SPDX-License-Identifier: BSD-3-Clause
// The handshake of an SslSocket and the verdict on its peer.

#include "socket/PeerVerdict.h"
#include "socket/SessionCache.h"
#include "socket/SslSocketPrivate.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QDebug>
#include <QtCore/QTimer>

namespace vela {

bool SslSocketPrivate::shakeHands(TlsEngine::Role role)
{
    if (progress.stage >= ConnectionProgress::BeingJudged) // The engine would begin another one.
        return true;
    if (progress.stage == ConnectionProgress::Blank && !prepare())
        return false;

    const TlsEngine::Outcome outcome = engine.step(role);
    if (outcome.isDone())
        return completeHandshake();
    if (outcome.result == TlsEngine::Result::WantsMore)
        pumpOut();
    else
        failEngine(SslSocket::tr("SSL error: %1").arg(outcome.text()));
    return false;
}

bool SslSocketPrivate::completeHandshake()
{
    const SessionGuard guard(this);
    progress.stage = ConnectionProgress::BeingJudged;
    tidySessions();
    if (!guard.holds())
        return false;
    judgePeer();
    // A slot may have turned the peer down.
    if (!guard.holds() || !transport.isConnected())
        return false;
    emitState(QAbstractSocket::ConnectedState);
    if (!guard.holds())
        return false;

    progress.stage = ConnectionProgress::Established;
    qDebug().nospace().noquote() << "session " << sessionKey
                                 << " reused: " << engine.isSessionReused();
    pumpIn();
    return guard.holds();
}

void SslSocketPrivate::tidySessions()
{
    if (SessionCache::tidy())
        QTimer::singleShot(SessionCache::tidyInterval(), q, [this] { tidySessions(); });
}

/*
    Asked whenever the engine may have completed another handshake, before anything that came with
    it or goes to it is let through. Returns false when the connection was ended.
*/
bool SslSocketPrivate::keepsPeer()
{
    if (engine.keepsPeer())
        return true;
    if (!engine.refusePeer())
        return false;
    const SessionGuard guard(this);
    progress.engineFailed = true;
    fail(QStringLiteral("The peer has changed its certificate after it was verified"));
    if (guard.holds() && transport)
        transport->abort();
    return false;
}

void SslSocketPrivate::judgePeer()
{
    const QString hostName = transport ? transport->peerName() : QString();
    const long code = engine.verifyResult();
    PeerVerdict verdict;
    if (code == X509_V_OK) {
        verdict = judgeVerifiedPeer(PeerIdentity(q->peerCertificate()), hostName);
    } else {
        // Nobody asks for the dates here, and they would take longer than all the rest.
        const X509Handle certificate(q->x509peerCertificate());
        const QString names = certificate ? describeNames(certificate.get()) : QString();
        verdict = judgeFailedPeer(PeerIdentity(names), hostName, code,
                                  q->verifyErrorString(static_cast<int>(code)));
    }
    Q_EMIT q->connectionVerificationDone(verdict.result, verdict.hostNameMatched,
                                         verdict.description);
}

QString SslSocket::verifyErrorString(int code) const
{
    switch (code == X509_V_ERR_INVALID_CA ? REFERENCE_ENGINE_INVALID_CA : code) {
    case X509_V_OK:
        return tr("An unknown error occurred");
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        return tr("Unable to get issuer certificate");
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
        return tr("Unable to decrypt certificate's signature");
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
        return tr("Unable to decode issuer public key");
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        return tr("Certificate signature failure");
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return tr("The certificate is not yet valid");
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return tr("The certificate has expired");
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
        return tr("Format error in certificate's notBefore field");
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
        return tr("Format error in certificate's notAfter field");
    case X509_V_ERR_OUT_OF_MEM:
        return tr("Out of memory");
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        return tr("Self-signed certificate");
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return tr("Self-signed certificate in certificate chain");
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        return tr("Unable to get local issuer certificate");
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return tr("Unable to verify the first certificate");
    case REFERENCE_ENGINE_INVALID_CA:
        return tr("Invalid CA certificate");
    case X509_V_ERR_PATH_LENGTH_EXCEEDED:
        return tr("Path length constraint exceeded");
    case X509_V_ERR_INVALID_PURPOSE:
        return tr("Unsupported certificate purpose");
    case X509_V_ERR_CERT_UNTRUSTED:
        return tr("Certificate not trusted");
    case X509_V_ERR_CERT_REJECTED:
        return tr("Certificate rejected");
    case X509_V_ERR_SUBJECT_ISSUER_MISMATCH:
        return tr("Subject issuer mismatch");
    case X509_V_ERR_AKID_SKID_MISMATCH:
        return tr("Authority and subject key identifier mismatch");
    case X509_V_ERR_AKID_ISSUER_SERIAL_MISMATCH:
        return tr("Authority and issuer serial number mismatch");
    case X509_V_ERR_KEYUSAGE_NO_CERTSIGN:
        return tr("Key usage does not include certificate signing");
    default:
        return tr("Unknown error");
    }
}

} // namespace vela

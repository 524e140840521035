// SPDX-License-Identifier: BSD-3-Clause
// What an SslSocket tells of the negotiated cipher and of both certificates.

#include "socket/PeerVerdict.h"
#include "socket/SslSocketPrivate.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

#include <Ferrule/SslSocket.h>

namespace vela {

namespace {

const SSL_CIPHER* currentCipher(const SSL* ssl)
{
    return ssl ? SSL_get_current_cipher(ssl) : nullptr;
}

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

} // namespace

QString SslSocket::getCipherName() const
{
    const SSL_CIPHER* cipher = currentCipher(d->engine.connection());
    return cipher ? text(SSL_CIPHER_get_name(cipher)) : QString();
}

QString SslSocket::getCipherVersion() const
{
    const SSL_CIPHER* cipher = currentCipher(d->engine.connection());
    return cipher ? text(SSL_CIPHER_get_version(cipher)) : QString();
}

QString SslSocket::getCipherDescription() const
{
    const SSL_CIPHER* cipher = currentCipher(d->engine.connection());
    if (!cipher)
        return QString();
    char buffer[1024];
    return text(SSL_CIPHER_description(cipher, buffer, sizeof buffer));
}

int SslSocket::getCipherBits() const
{
    const SSL_CIPHER* cipher = currentCipher(d->engine.connection());
    int algorithmBits = 0;
    return cipher ? SSL_CIPHER_get_bits(cipher, &algorithmBits) : 0;
}

bool SslSocket::isSessionReused() const
{
    return d->engine.isSessionReused();
}

QString SslSocket::peerCertificate() const
{
    const X509Handle certificate(x509peerCertificate());
    return certificate ? describeCertificate(certificate.get()) : QString();
}

QString SslSocket::localCertificate() const
{
    // The handle releases a reference that it does not hold. Hosts know this and add one.
    const X509Handle certificate(x509localCertificate());
    return certificate ? describeCertificate(certificate.get()) : QString();
}

X509* SslSocket::x509peerCertificate() const
{
    X509* certificate = d->engine.peerCertificate();
    if (certificate)
        X509_up_ref(certificate);
    return certificate;
}

X509* SslSocket::x509localCertificate() const
{
    const SSL* ssl = d->engine.connection();
    return ssl ? SSL_get_certificate(ssl) : nullptr;
}

QList<X509*> SslSocket::x509peerCertificateChain() const
{
    QList<X509*> certificates;
    const SSL* ssl = d->engine.connection();
    STACK_OF(X509)* chain = ssl ? SSL_get_peer_cert_chain(ssl) : nullptr;
    for (int i = 0; chain && i < sk_X509_num(chain); ++i)
        certificates.append(sk_X509_value(chain, i));
    return certificates;
}

} // namespace vela

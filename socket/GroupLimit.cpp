// SPDX-License-Identifier: BSD-3-Clause
#include "socket/GroupLimit.h"

#include "cert/CertificateOutline.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>

#include <optional>

namespace vela {

namespace {

constexpr int MOST_BITS = 10000;
constexpr std::size_t MESSAGE_HEADER = 4;

//! Returns the number of bits of the first number in \a parameters, behind its length of 16 bits.
std::size_t bitsOfFirstNumber(const unsigned char* parameters, std::size_t size)
{
    if (size < 2)
        return 0;
    std::size_t length = std::size_t(parameters[0]) << 8 | parameters[1];
    const unsigned char* number = parameters + 2;
    if (length > size - 2)
        return 0; // The engine refuses this.
    while (length > 0 && *number == 0) {
        ++number;
        --length;
    }
    if (length == 0)
        return 0;
    std::size_t bits = length * 8;
    for (unsigned char top = *number; top < 0x80; top = static_cast<unsigned char>(top << 1))
        --bits;
    return bits;
}

bool hasHugeGroup(const SSL* ssl)
{
    const X509Handle certificate(SSL_get_peer_certificate(ssl));
    const EvpPkeyHandle key(certificate ? X509_get_pubkey(certificate.get()) : nullptr);
    return key && isDiffieHellmanKey(key.get()) && EVP_PKEY_bits(key.get()) > MOST_BITS;
}

//! Takes a length of 24 bits and that many octets off \a rest; nothing when there are fewer.
std::optional<QByteArray> takeSized(QByteArray* rest)
{
    constexpr int OCTETS = 3;
    if (rest->size() < OCTETS)
        return std::nullopt;
    const auto octet = [rest](int i) { return static_cast<unsigned char>(rest->at(i)); };
    const int size = octet(0) << 16 | octet(1) << 8 | octet(2);
    if (size > rest->size() - OCTETS)
        return std::nullopt;
    const QByteArray taken = rest->mid(OCTETS, size);
    *rest = rest->mid(OCTETS + size);
    return taken;
}

/*
    Returns true if a certificate in \a list has a key on a curve that it describes itself, as no
    authority issues any, or hides what kind of key it has.
*/
bool hasStrangeCurve(const unsigned char* list, std::size_t size)
{
    QByteArray rest = QByteArray::fromRawData(reinterpret_cast<const char*>(list), int(size));
    std::optional<QByteArray> certificates = takeSized(&rest);
    while (certificates && !certificates->isEmpty()) {
        const std::optional<QByteArray> der = takeSized(&*certificates);
        if (!der)
            return false; // The engine refuses this.
        const auto outline = CertificateOutline::of(*der);
        if (!outline || outline->hasCurveParameters)
            return true;
    }
    return false;
}

/*
    The group is the first thing in the server's parameters. Where they are of another kind, what
    stands there is a number that may not be as large either, or a curve, which cannot be taken for
    more than 768 octets.
*/
bool isTooLarge(const SSL* ssl, const unsigned char* message, std::size_t size)
{
    switch (message[0]) {
    case SSL3_MT_SERVER_KEY_EXCHANGE:
        return bitsOfFirstNumber(message + MESSAGE_HEADER, size - MESSAGE_HEADER) > MOST_BITS;
    case SSL3_MT_SERVER_DONE: // Or it stands in the certificate.
        return hasHugeGroup(ssl);
    default:
        return false;
    }
}

bool isAcceptable(const SSL* ssl, const unsigned char* message, std::size_t size)
{
    if (size < MESSAGE_HEADER)
        return true;
    if (message[0] == SSL3_MT_CERTIFICATE
        && hasStrangeCurve(message + MESSAGE_HEADER, size - MESSAGE_HEADER)) {
        ECerr(EC_F_EC_GROUP_NEW_BY_CURVE_NAME, EC_R_UNKNOWN_GROUP);
        return false;
    }
    if (isTooLarge(ssl, message, size)) {
        DHerr(DH_F_COMPUTE_KEY, DH_R_MODULUS_TOO_LARGE);
        return false;
    }
    return true;
}

} // namespace

void limitGroups(SSL* ssl)
{
    judgeServerMessages<isAcceptable>(ssl);
}

} // namespace vela

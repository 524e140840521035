// SPDX-License-Identifier: BSD-3-Clause
#include "socket/GroupLimit.h"

#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

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

/*
    The group is the first thing in the server's parameters. Where they are of another kind, what
    stands there is a number that may not be as large either, or a curve, which cannot be taken for
    more than 768 octets.
*/
bool isAcceptable(const SSL* ssl, const unsigned char* message, std::size_t size)
{
    if (size < MESSAGE_HEADER)
        return true;
    switch (message[0]) {
    case SSL3_MT_SERVER_KEY_EXCHANGE:
        return bitsOfFirstNumber(message + MESSAGE_HEADER, size - MESSAGE_HEADER) <= MOST_BITS;
    case SSL3_MT_SERVER_DONE: // Or it stands in the certificate.
        return !hasHugeGroup(ssl);
    default:
        return true;
    }
}

} // namespace

void limitGroups(SSL* ssl)
{
    judgeServerMessages<isAcceptable>(ssl);
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#include "store/validation/SignatureAlgorithm.h"

#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"

#include <openssl/objects.h>
#include <openssl/rsa.h>

namespace vela {

namespace {

using PssParametersHandle = std::unique_ptr<RSA_PSS_PARAMS, OpenSslDeleter<RSA_PSS_PARAMS_free>>;

//! Returns the digest of a PSS signature; SHA-1 is what is meant where none is said.
int pssDigest(const X509_ALGOR* algorithm)
{
    int type = 0;
    const void* value = nullptr;
    algorithmParameters(algorithm, &type, &value);
    if (type != V_ASN1_SEQUENCE)
        return NID_undef;
    const auto* const encoded = static_cast<const ASN1_STRING*>(value);
    const unsigned char* cursor = encoded->data;
    const PssParametersHandle parameters(d2i_RSA_PSS_PARAMS(nullptr, &cursor, encoded->length));
    if (!parameters)
        return NID_undef;
    return parameters->hashAlgorithm ? OBJ_obj2nid(parameters->hashAlgorithm->algorithm) : NID_sha1;
}

qint64 squareOf(qint64 number)
{
    return number * number;
}

qint64 costOfRsa(EVP_PKEY* key)
{
    constexpr qint64 PER_SQUARE_BIT = 9; // With the usual exponent, in thousandths.
    constexpr int USUAL_EXPONENT_BITS = 17;
    const int exponentBits = qMax(rsaExponentBits(key), USUAL_EXPONENT_BITS);
    return squareOf(EVP_PKEY_bits(key)) * PER_SQUARE_BIT / 1000 * exponentBits
           / USUAL_EXPONENT_BITS;
}

qint64 costOfCurve(EVP_PKEY* key)
{
    constexpr qint64 FAST = 75000;
    constexpr qint64 PER_SQUARE_BIT = 14; // As the slowest take, those over binary fields.
    const int bits = EVP_PKEY_bits(key);
    return curveOf(key) == NID_X9_62_prime256v1 ? FAST : squareOf(bits) * PER_SQUARE_BIT;
}

} // namespace

int signatureDigest(X509* x509)
{
    int digest = NID_undef;
    const int algorithm = X509_get_signature_nid(x509);
    if (algorithm == NID_rsassaPss)
        return pssDigest(signatureAlgorithm(x509));
    OBJ_find_sigid_algs(algorithm, &digest, nullptr);
    return digest;
}

bool isWeakDigest(int digest)
{
    switch (digest) {
    case NID_md2:
    case NID_md4:
    case NID_md5:
    case NID_md5_sha1:
    case NID_mdc2:
    case NID_sha: // What SHA-1 has corrected.
        return true;
    default:
        return false;
    }
}

bool isWeakKey(EVP_PKEY* key)
{
    constexpr int MIN_RSA_BITS = 1024;
    return key && isRsa(key) && EVP_PKEY_bits(key) < MIN_RSA_BITS;
}

qint64 costOfSignature(EVP_PKEY* key)
{
    constexpr qint64 UNKNOWN = 2000000;
    // A key that lacks what its issuer's may have is of no use, nor is its length known.
    if (!key || EVP_PKEY_missing_parameters(key))
        return 0;
    if (isRsa(key))
        return 20000 + costOfRsa(key);
    switch (EVP_PKEY_base_id(key)) {
    case EVP_PKEY_EC:
        return 20000 + costOfCurve(key);
    case EVP_PKEY_DSA: {
        constexpr qint64 PER_SQUARE_BIT = 150; // In thousandths.
        return squareOf(EVP_PKEY_bits(key)) * PER_SQUARE_BIT / 1000;
    }
    default:
        return UNKNOWN;
    }
}

} // namespace vela

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_OPENSSLCOMPAT_H
#define FERRULE_OPENSSLCOMPAT_H

/*
    The sources are written against OpenSSL's accessor functions. This header supplies those that
    OpenSSL 1.0.2 lacks and holds every version test of the library.
*/

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/dh.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/opensslv.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstddef>

#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline const ASN1_TIME* X509_get0_notBefore(const X509* x509)
{
    return X509_get_notBefore(x509);
}

inline const ASN1_TIME* X509_get0_notAfter(const X509* x509)
{
    return X509_get_notAfter(x509);
}

inline int BIO_up_ref(BIO* bio)
{
    return CRYPTO_add(&bio->references, 1, CRYPTO_LOCK_BIO) > 1 ? 1 : 0;
}

inline int X509_up_ref(X509* x509)
{
    return CRYPTO_add(&x509->references, 1, CRYPTO_LOCK_X509) > 1 ? 1 : 0;
}

inline int SSL_SESSION_up_ref(SSL_SESSION* session)
{
    return CRYPTO_add(&session->references, 1, CRYPTO_LOCK_SSL_SESSION) > 1 ? 1 : 0;
}

inline unsigned long SSL_SESSION_get_ticket_lifetime_hint(const SSL_SESSION* session)
{
    return static_cast<unsigned long>(session->tlsext_tick_lifetime_hint);
}

inline int SSL_SESSION_is_resumable(const SSL_SESSION* session)
{
    return session->not_resumable == 0
           && (session->session_id_length > 0 || session->tlsext_ticklen > 0);
}

inline STACK_OF(X509_OBJECT) * X509_STORE_get0_objects(const X509_STORE* store)
{
    return store->objs;
}

inline std::size_t SSL_SESSION_get_master_key(const SSL_SESSION* session, unsigned char*,
                                              std::size_t)
{
    return static_cast<std::size_t>(session->master_key_length); // Nobody asks for the key itself.
}

inline void SSL_SESSION_get0_ticket(const SSL_SESSION* session, const unsigned char** ticket,
                                    std::size_t* length)
{
    *ticket = session->tlsext_tick;
    *length = session->tlsext_ticklen;
}

#endif

namespace vela {

/*!
    The number of object identifiers that the reference engine has names for. Names given to
    identifiers later are not used in distinguished names, so that hosts read the same text
    whichever engine runs.
*/
constexpr int REFERENCE_ENGINE_NID_COUNT = 958;

/*!
    The reference engine's number for `X509_V_ERR_INVALID_CA`, the one verification code that newer
    engines have moved.
*/
constexpr int REFERENCE_ENGINE_INVALID_CA = 24;

/*!
    Returns the certificate in \a object, borrowed; null when that is something else.
*/
#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline X509* certificateOf(const X509_OBJECT* object)
{
    return object->type == X509_LU_X509 ? object->data.x509 : nullptr;
}

#else

inline X509* certificateOf(const X509_OBJECT* object)
{
    return X509_OBJECT_get0_X509(object);
}

#endif

/*!
    Returns the number of the cipher that \a session was made with, as SSL_CIPHER_get_id() gives it;
    0 when it is not known.
*/
#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline unsigned long sessionCipherId(const SSL_SESSION* session)
{
    return session->cipher ? SSL_CIPHER_get_id(session->cipher) : session->cipher_id;
}

inline int securityLevel(const SSL*)
{
    return 0; // There are none.
}

inline void copySecurityLevel(SSL_CTX*, const SSL_CTX*)
{
}

#else

inline unsigned long sessionCipherId(const SSL_SESSION* session)
{
    const SSL_CIPHER* cipher = SSL_SESSION_get0_cipher(session);
    return cipher ? SSL_CIPHER_get_id(cipher) : 0;
}

inline int securityLevel(const SSL* ssl)
{
    return SSL_get_security_level(ssl);
}

inline void copySecurityLevel(SSL_CTX* context, const SSL_CTX* source)
{
    SSL_CTX_set_security_level(context, SSL_CTX_get_security_level(source));
}

#endif

//! Returns the certificate of the peer as long as the connection has it, borrowed; or null.
#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline X509* peerCertificateOf(const SSL* ssl)
{
    return ssl->session ? ssl->session->peer : nullptr;
}

#elif OPENSSL_VERSION_NUMBER < 0x30000000L

inline X509* peerCertificateOf(const SSL* ssl)
{
    X509* certificate = SSL_get_peer_certificate(ssl);
    X509_free(certificate);
    return certificate;
}

#else

inline X509* peerCertificateOf(const SSL* ssl)
{
    return SSL_get0_peer_certificate(ssl);
}

#endif

//! Keeps other threads from changing \a store while the object lives.
class AuthoritiesLock
{
public:
#if OPENSSL_VERSION_NUMBER < 0x10100000L
    explicit AuthoritiesLock(X509_STORE*)
    {
        CRYPTO_w_lock(CRYPTO_LOCK_X509_STORE);
    }
    ~AuthoritiesLock()
    {
        CRYPTO_w_unlock(CRYPTO_LOCK_X509_STORE);
    }
#else
    explicit AuthoritiesLock(X509_STORE* store)
        : m_store(store)
    {
        X509_STORE_lock(store);
    }
    ~AuthoritiesLock()
    {
        X509_STORE_unlock(m_store);
    }
#endif
    AuthoritiesLock(const AuthoritiesLock&) = delete;
    AuthoritiesLock& operator=(const AuthoritiesLock&) = delete;

#if OPENSSL_VERSION_NUMBER >= 0x10100000L
private:
    X509_STORE* m_store;
#endif
};

/*!
    Has \a isAcceptable look at each message of the server's handshake, header included, before the
    engine does. Of a message that is not accepted the engine finds another length, and refuses it;
    why is what \a isAcceptable has added to the error queue. Engines that have the bounds
    themselves that this is for do not ask.
*/
using MessageJudge = bool (*)(const SSL* ssl, const unsigned char* message, std::size_t size);

#if OPENSSL_VERSION_NUMBER < 0x10100000L

template <MessageJudge isAcceptable>
void judgeMessage(int isWritten, int, int contentType, const void* message, std::size_t size,
                  SSL* ssl, void*)
{
    if (isWritten || contentType != SSL3_RT_HANDSHAKE
        || isAcceptable(ssl, static_cast<const unsigned char*>(message), size)) {
        return;
    }
    ssl->init_num = ssl->init_num > 0 ? 0 : 1;
    ssl->s3->tmp.message_size = static_cast<unsigned long>(ssl->init_num);
}

template <MessageJudge isAcceptable>
void judgeServerMessages(SSL* ssl)
{
    SSL_set_msg_callback(ssl, judgeMessage<isAcceptable>);
}

inline bool isDiffieHellmanKey(const EVP_PKEY* key)
{
    return EVP_PKEY_id(key) == EVP_PKEY_DH || EVP_PKEY_id(key) == EVP_PKEY_DHX;
}

#else

template <MessageJudge isAcceptable>
void judgeServerMessages(SSL*)
{
}

inline bool isDiffieHellmanKey(const EVP_PKEY* key)
{
    return EVP_PKEY_base_id(key) == EVP_PKEY_DH || EVP_PKEY_base_id(key) == EVP_PKEY_DHX;
}

#endif

//! What a callback for the extensions of TLS is shown, octet by octet.
#if OPENSSL_VERSION_NUMBER < 0x10100000L
using ExtensionOctet = unsigned char;
#else
using ExtensionOctet = const unsigned char;
#endif

using OpenSslLockingCallback = void (*)(int mode, int number, const char* file, int line);
using OpenSslThreadIdCallback = unsigned long (*)();

/*!
    Installs the callbacks with which OpenSSL locks, unless there are others; withdraws them where
    they are still installed.
    Engines from 1.1.0 on lock by themselves, and neither call does anything.
*/
#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline void installOpenSslCallbacks(OpenSslLockingCallback locking, OpenSslThreadIdCallback id)
{
    if (CRYPTO_get_locking_callback())
        return;
    // Numbers of threads come first: a lock taken under one must not be released under another.
    if (!CRYPTO_get_id_callback() && !CRYPTO_THREADID_get_callback())
        CRYPTO_set_id_callback(id);
    CRYPTO_set_locking_callback(locking);
}

inline void withdrawOpenSslCallbacks(OpenSslLockingCallback locking, OpenSslThreadIdCallback id)
{
    if (CRYPTO_get_locking_callback() == locking)
        CRYPTO_set_locking_callback(nullptr);
    if (CRYPTO_get_id_callback() == id)
        CRYPTO_set_id_callback(nullptr);
}

#else

inline void installOpenSslCallbacks(OpenSslLockingCallback, OpenSslThreadIdCallback)
{
}

inline void withdrawOpenSslCallbacks(OpenSslLockingCallback, OpenSslThreadIdCallback)
{
}

#endif

/*!
    Takes this thread's error queue away; puts it back, in place of what has come meanwhile. A mark
    would not do for the reference engine, which clears the whole queue when it reads a compressed
    point on a binary curve.
*/
#if OPENSSL_VERSION_NUMBER < 0x10100000L

using OpenSslErrors = ERR_STATE;

inline OpenSslErrors setOpenSslErrorsAside()
{
    ERR_STATE* queue = ERR_get_state();
    const ERR_STATE errors = *queue;
    *queue = ERR_STATE();
    queue->tid = errors.tid;
    return errors;
}

inline void putOpenSslErrorsBack(const OpenSslErrors& errors)
{
    ERR_clear_error();
    *ERR_get_state() = errors;
}

#else

struct OpenSslErrors
{
};

inline OpenSslErrors setOpenSslErrorsAside()
{
    ERR_set_mark();
    return {};
}

inline void putOpenSslErrorsBack(const OpenSslErrors&)
{
    ERR_pop_to_mark();
}

#endif

/*!
    The few things about algorithms and keys for which engines have different functions: the
    algorithm by which \a x509 is signed, the parameters of an algorithm, whether a key is for RSA
   of either kind, the length of its exponent, and the engine's number of a key's curve.
*/
#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline const X509_ALGOR* signatureAlgorithm(X509* x509)
{
    X509_ALGOR* algorithm = nullptr;
    X509_get0_signature(nullptr, &algorithm, x509);
    return algorithm;
}

inline void algorithmParameters(const X509_ALGOR* algorithm, int* type, const void** value)
{
    void* parameters = nullptr;
    X509_ALGOR_get0(nullptr, type, &parameters, const_cast<X509_ALGOR*>(algorithm));
    *value = parameters;
}

inline bool isRsa(EVP_PKEY* key)
{
    return EVP_PKEY_base_id(key) == EVP_PKEY_RSA;
}

inline int rsaExponentBits(EVP_PKEY* key)
{
    const BIGNUM* exponent = key->pkey.rsa->e;
    return exponent ? BN_num_bits(exponent) : 0;
}

inline int curveOf(EVP_PKEY* key)
{
    return EC_GROUP_get_curve_name(EC_KEY_get0_group(key->pkey.ec));
}

#else

inline const X509_ALGOR* signatureAlgorithm(X509* x509)
{
    const X509_ALGOR* algorithm = nullptr;
    X509_get0_signature(nullptr, &algorithm, x509);
    return algorithm;
}

inline void algorithmParameters(const X509_ALGOR* algorithm, int* type, const void** value)
{
    X509_ALGOR_get0(nullptr, type, value, algorithm);
}

inline bool isRsa(EVP_PKEY* key)
{
    const int type = EVP_PKEY_base_id(key);
    return type == EVP_PKEY_RSA || type == EVP_PKEY_RSA_PSS;
}

#    if OPENSSL_VERSION_NUMBER < 0x30000000L

inline int rsaExponentBits(EVP_PKEY* key)
{
    const BIGNUM* exponent = nullptr;
    RSA_get0_key(EVP_PKEY_get0_RSA(key), nullptr, &exponent, nullptr);
    return exponent ? BN_num_bits(exponent) : 0;
}

inline int curveOf(EVP_PKEY* key)
{
    return EC_GROUP_get_curve_name(EC_KEY_get0_group(EVP_PKEY_get0_EC_KEY(key)));
}

#    else

inline int rsaExponentBits(EVP_PKEY* key)
{
    BIGNUM* exponent = nullptr;
    const bool hasExponent = EVP_PKEY_get_bn_param(key, "e", &exponent) == 1;
    const int bits = hasExponent ? BN_num_bits(exponent) : 0;
    BN_free(exponent);
    return bits;
}

inline int curveOf(EVP_PKEY* key)
{
    char name[80] = "";
    return EVP_PKEY_get_group_name(key, name, sizeof name, nullptr) == 1 ? OBJ_sn2nid(name)
                                                                         : NID_undef;
}

#    endif
#endif

} // namespace vela

#endif

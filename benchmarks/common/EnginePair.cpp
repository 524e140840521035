// SPDX-License-Identifier: BSD-3-Clause
#include "EnginePair.h"

#include "Options.h"
#include "Talk.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace bench {

namespace {

constexpr int RECORD = 16 * 1024;
constexpr int TAG = 16;
constexpr int NONCE = 12;

//! Joins the output of \a from to the input of \a to, which free it both.
BIO* sharedMemory()
{
    BIO* bio = BIO_new(BIO_s_mem());
#if OPENSSL_VERSION_NUMBER >= 0x10100000L
    BIO_up_ref(bio);
#else
    CRYPTO_add(&bio->references, 1, CRYPTO_LOCK_BIO);
#endif
    return bio;
}

bool step(SSL* ssl)
{
    const int result = SSL_do_handshake(ssl);
    if (result != 1 && SSL_get_error(ssl, result) != SSL_ERROR_WANT_READ)
        failInEngine("no handshake between two engines");
    return result == 1;
}

void require(bool success)
{
    if (!success)
        failInEngine("the cipher fails");
}

} // namespace

EnginePair::EnginePair(const EngineContext& client, const EngineContext& server)
    : m_client(client.newConnection())
    , m_server(server.newConnection())
{
    BIO* const toServer = sharedMemory();
    BIO* const toClient = sharedMemory();
    SSL_set_bio(m_client, toClient, toServer);
    SSL_set_bio(m_server, toServer, toClient);
    SSL_set_connect_state(m_client);
    SSL_set_accept_state(m_server);
}

EnginePair::~EnginePair()
{
    SSL_free(m_client);
    SSL_free(m_server);
}

void EnginePair::handshake()
{
    bool clientReady = false;
    bool serverReady = false;
    for (int i = 0; i < 10 && !(clientReady && serverReady); ++i) {
        clientReady = step(m_client);
        serverReady = step(m_server);
    }
    char greeting = 0;
    if (SSL_write(m_server, &GREETING, 1) != 1 || SSL_read(m_client, &greeting, 1) != 1)
        failInEngine("no greeting between two engines");
}

void EnginePair::transfer(bool toClient, int pieceSize, qint64 total)
{
    SSL* const from = toClient ? m_server : m_client;
    SSL* const to = toClient ? m_client : m_server;
    const std::vector<char> piece(static_cast<std::size_t>(std::min(pieceSize, RECORD)), 'x');
    std::vector<char> buffer(RECORD);
    while (total > 0) {
        const int size = static_cast<int>(std::min<qint64>(total, piece.size()));
        if (SSL_write(from, piece.data(), size) != size
            || SSL_read(to, buffer.data(), RECORD) != size) {
            failInEngine("no transfer between two engines");
        }
        total -= size;
    }
}

void encryptAndDecrypt(qint64 total)
{
    const unsigned char key[32] = {1};
    unsigned char nonce[NONCE] = {};
    std::vector<unsigned char> plain(RECORD, 'x');
    std::vector<unsigned char> secret(RECORD);
    unsigned char tag[TAG];
    EVP_CIPHER_CTX* const in = EVP_CIPHER_CTX_new();
    EVP_CIPHER_CTX* const out = EVP_CIPHER_CTX_new();
    require(EVP_EncryptInit_ex(out, EVP_aes_256_gcm(), nullptr, key, nonce) == 1);
    require(EVP_DecryptInit_ex(in, EVP_aes_256_gcm(), nullptr, key, nonce) == 1);
    int size = 0;
    for (qint64 number = 0; number * RECORD < total; ++number) {
        std::memcpy(nonce, &number, sizeof number);
        require(EVP_EncryptInit_ex(out, nullptr, nullptr, nullptr, nonce) == 1);
        require(EVP_EncryptUpdate(out, secret.data(), &size, plain.data(), RECORD) == 1);
        require(EVP_EncryptFinal_ex(out, tag, &size) == 1);
        require(EVP_CIPHER_CTX_ctrl(out, EVP_CTRL_GCM_GET_TAG, TAG, tag) == 1);
        require(EVP_DecryptInit_ex(in, nullptr, nullptr, nullptr, nonce) == 1);
        require(EVP_DecryptUpdate(in, plain.data(), &size, secret.data(), RECORD) == 1);
        require(EVP_CIPHER_CTX_ctrl(in, EVP_CTRL_GCM_SET_TAG, TAG, tag) == 1);
        require(EVP_DecryptFinal_ex(in, plain.data(), &size) == 1);
    }
    EVP_CIPHER_CTX_free(in);
    EVP_CIPHER_CTX_free(out);
}

} // namespace bench

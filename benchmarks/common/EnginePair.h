// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_ENGINEPAIR_H
#define FERRULE_BENCH_ENGINEPAIR_H

#include "BareLoop.h"

namespace bench {

//! A client and a server of the engine in one thread, joined by two memory BIOs.
class EnginePair
{
public:
    EnginePair(const EngineContext& client, const EngineContext& server);
    ~EnginePair();

    //! Makes the handshake and lets the client read one octet from the server.
    void handshake();

    /*!
        Lets the one end write \a total bytes, \a pieceSize at a time and at most 16 KiB, and the
        other read them. (A memory BIO of OpenSSL 1.0.2 moves all that it holds with every read.)
    */
    void transfer(bool toClient, int pieceSize, qint64 total);

private:
    Q_DISABLE_COPY(EnginePair)
    SSL* m_client;
    SSL* m_server;
};

//! Encrypts and decrypts \a total bytes in pieces of 16 KiB with AES-256-GCM, and nothing of TLS.
void encryptAndDecrypt(qint64 total);

} // namespace bench

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_BARELOOP_H
#define FERRULE_BENCH_BARELOOP_H

#include "Setup.h"

#include <openssl/ssl.h>

namespace bench {

//! A context of OpenSSL's own, for the protocol and cipher of a Setup.
class EngineContext
{
public:
    enum class Role {
        Client,
        Server //!< Has the certificate and the key.
    };

    EngineContext(const Setup& setup, Role role);
    ~EngineContext();

    //! Makes a connection, which the caller frees.
    SSL* newConnection() const;

private:
    Q_DISABLE_COPY(EngineContext)
    SSL_CTX* m_context;
};

//! A TLS connection on a blocking socket, with nothing in between. Every failure ends the program.
class BareConnection
{
public:
    //! Takes a connected socket over and makes the handshake.
    BareConnection(const EngineContext& context, EngineContext::Role role, int descriptor);
    ~BareConnection();

    //! Returns a blocking socket that is connected to 127.0.0.1.
    static int connectTo(quint16 port);

    bool isResumed() const;

    //! Reads at least one byte and at most \a size; returns 0 at the end of the connection.
    int read(char* data, int size);
    void readExactly(char* data, int size);
    void write(const char* data, int size);

    //! Writes \a total bytes, \a pieceSize at a time.
    void send(int pieceSize, qint64 total);
    //! Reads \a total bytes.
    void receive(qint64 total);

private:
    Q_DISABLE_COPY(BareConnection)
    int m_descriptor;
    SSL* m_ssl;
};

[[noreturn]] void failInEngine(const char* what);

} // namespace bench

#endif

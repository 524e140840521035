// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_MEMORYPEER_H
#define FERRULE_BENCH_MEMORYPEER_H

#include "common/Setup.h"

#include <QtCore/QByteArray>

using BIO = struct bio_st;
using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

namespace bench {

//! A TLS server over memory, of the engine alone: takes and gives octets, knows no socket.
class MemoryPeer
{
public:
    //! Uses all of \a setup but the subject.
    explicit MemoryPeer(const Setup& setup);
    ~MemoryPeer();

    //! Takes octets from the other end and returns the answer.
    QByteArray handshake(const QByteArray& octets);
    bool isReady() const;

    QByteArray encrypt(const QByteArray& data);
    //! Takes octets from the other end and returns how many octets of data were in them.
    qint64 decrypt(const QByteArray& octets);

    //! Ends the program when a ready handshake agreed on anything but what was wanted.
    void check() const;

private:
    Q_DISABLE_COPY(MemoryPeer)
    QByteArray takeOutput();

    Protocol m_protocol;
    SSL_CTX* m_context;
    SSL* m_ssl;
    BIO* m_input;
    BIO* m_output;
};

} // namespace bench

#endif

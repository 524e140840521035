// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TLSENGINE_H
#define FERRULE_TLSENGINE_H

#include "socket/ConnectionSession.h"
#include "socket/ServerName.h"
#include "socket/TlsSettings.h"
#include "support/OpenSslHandles.h"

#include <QtCore/QString>

#include <openssl/ssl.h>

namespace vela {

/*!
    One TLS connection as OpenSSL sees it: ciphertext and plaintext in memory, without a network,
    signals or an event loop.

    What came from the peer goes in through feed(); what is to go to the peer comes out through
    drain(), whatever the operation before has answered: a failure leaves an alert there.

    OpenSSL's error queue is emptied before each operation, so that what others have left there is
    not taken for its outcome, and read right after it. Before begin() and after release() there is
    no connection: step(), decrypt() and encrypt() may not be called then.
*/
class TlsEngine
{
public:
    enum class Role {
        Client,
        Server
    };

    enum class Result {
        Done,      //!< The handshake is complete, or a piece was decrypted or encrypted.
        WantsMore, //!< Nothing is wrong, but more is needed from the peer first.
        Closed,    //!< The peer has said goodbye.
        Failed
    };

    struct Outcome
    {
        Result result;
        int size = 0;            //!< How many bytes of plaintext were done.
        unsigned long error = 0; //!< OpenSSL's number of the first thing that went wrong, or 0.

        bool isDone() const { return result == Result::Done; }
        //! Describes the failure as OpenSSL does, even one for which it gave no reason.
        QString text() const;
    };

    TlsEngine() = default;
    ~TlsEngine();

    /*!
        Makes a new connection in the place of the one there is, and offers it a session of
        \a origin, whose server name a client sends. \a settings go to the context that all share.
        Returns what is to be reported of a failure, in the host's language, or a null string.
    */
    QString begin(Role role, const TlsSettings& settings, const SessionOrigin& origin);

    //! Gives up the connection. Its session goes to the pool if it is of use there.
    void release();

    //! Takes \a size bytes of ciphertext at \a data. Returns false if they could not be stored.
    bool feed(const char* data, int size);
    //! Takes the handshake as far as it goes in \a role, which may be another one than at begin().
    Outcome step(Role role);
    //! Decrypts at most \a size bytes to \a data.
    Outcome decrypt(char* data, int size);
    //! Encrypts up to \a size bytes at \a data. While the peer renegotiates it wants more.
    Outcome encrypt(const char* data, int size);
    //! Returns how many bytes of ciphertext wait for the peer.
    int pendingOutput() const;
    //! Moves the oldest \a size of them to \a data.
    void drain(char* data, int size);

    //! \name The peer, whose verdict holds for the whole connection
    //! \{
    //! Returns true if the peer shows the certificate that it had at the end of the handshake.
    bool keepsPeer() const;
    //! Remembers that the peer was refused; returns false when it had been already.
    bool refusePeer() { return m_session.peer.refuse(); }
    bool hasRefusedPeer() const { return m_session.peer.hasRefused(); }
    //! Returns the peer's certificate, borrowed, or null.
    X509* peerCertificate() const;
    //! Returns OpenSSL's verdict on the peer's chain; there must be a connection.
    long verifyResult() const { return SSL_get_verify_result(m_ssl.get()); }
    //! \}

    //! Returns true if something may be decrypted that was fed earlier.
    bool hasBufferedInput() const;
    bool hasGoodbye() const;
    //! Returns the name that the client sends, or as a server, that it has sent.
    const QByteArray& serverName() const { return m_serverName.name(); }
    //! Returns true if the handshake has resumed an earlier session; false before it is complete.
    bool isSessionReused() const;
    //! Returns the connection for questions that change nothing; null when there is none.
    const SSL* connection() const { return m_ssl.get(); }

private:
    Q_DISABLE_COPY(TlsEngine)

    QString makeConnection(const ContextLock& lock, Role role, const SessionOrigin& origin);
    QString joinBuffers(Role role);

    SslHandle m_ssl;
    // The connection has references of its own to both.
    BioHandle m_input;
    BioHandle m_output;
    ConnectionSession m_session;
    ServerName m_serverName;
};

} // namespace vela

#endif

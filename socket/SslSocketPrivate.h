// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLSOCKETPRIVATE_H
#define FERRULE_SSLSOCKETPRIVATE_H

#include "socket/RingBuffer.h"
#include "socket/TlsEngine.h"
#include "socket/TlsSettings.h"
#include "socket/Transport.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QPointer>

namespace vela {

//! How far a connection has come, and what is under way in it. Each one begins with it as here.
struct ConnectionProgress
{
    enum Stage {
        Blank,
        Prepared,    //!< The engine was set up for it.
        BeingJudged, //!< The handshake is complete, and the host judges the peer.
        Established  //!< Data flows.
    };

    Stage stage = Blank;
    //! The end of the handshake is being told, and connected() is still to come.
    bool connectedDue = false;
    //! The engine has reported a failure of the session.
    bool engineFailed = false;
    //! A failure of the engine is being reported.
    bool reportingFailure = false;
    //! An emission of readyRead() is under way.
    bool announcing = false;
    //! How often readyRead() is still to be emitted.
    int announcementsDue = 0;
    //! The event loop is going to call writeToSocket().
    bool writeScheduled = false;
    //! Something was decrypted since a wait has begun.
    bool dataRead = false;
};

/*!
    The record behind an SslSocket: the state of the frame, and the pump between the host's buffers,
    the engine and the transport. Neither of these two knows of the other, or of the frame.

    Each emission may have the host delete, close or reconnect the socket. What runs after one holds
    a SessionGuard, and touches nothing when that does not hold any more.
*/
class SslSocketPrivate
{
public:
    SslSocketPrivate(SslSocket* owner, SslSocket::Mode role);

    //! \name The frame
    //! \{
    //! Returns the connection to its state before the handshake; the session goes to the pool.
    void reset();
    //! Makes the engine ready for a connection. Returns false when that failed and was reported.
    bool prepare();
    //! As SslSocket::serverName().
    QString serverName() const;
    //! Drops what the device has buffered of an earlier connection.
    void dropBufferedInput();
    /*!
        Sets the error string and emits the error as a TLS failure. Slots may have done anything
        when it returns.
    */
    void fail(const QString& text);
    /*!
        The same for a failure of the engine; the peer gets to know first what the engine says. A
        failure that a slot brings about in the report of another one is not reported.
    */
    void failEngine(const QString& text);
    //! Sends what a failed engine has left for the peer; for before the connection is ended.
    void sendLastWords();
    void emitError(QAbstractSocket::SocketError error);
    void emitState(QAbstractSocket::SocketState state);
    //! Reports what the inner socket has reported.
    void relayError(QAbstractSocket::SocketError error);
    void relayState(QAbstractSocket::SocketState state);
    //! \}

    //! \name The handshake
    //! \{
    //! Runs one step of it in \a role. Returns true when it is complete and data flows.
    bool shakeHands(TlsEngine::Role role);
    /*!
        Returns true from the end of the handshake until the session is established, while the host
        judges the peer; nothing is read then. It stays so when the peer was turned down.
    */
    bool isBeingJudged() const { return progress.stage == ConnectionProgress::BeingJudged; }
    bool isEstablished() const { return progress.stage == ConnectionProgress::Established; }
    //! \}

    //! \name The pump
    //! \{
    //! Takes in and announces all that the inner socket has.
    void pumpIn();
    //! Has what the inner socket holds already read by the event loop.
    void pumpInLater();
    //! Encrypts what the host has written, and sends what the engine has for the peer.
    void pumpOut();
    //! As SslSocket::waitForReadyRead(), which tells the others that it is active.
    bool waitForPlaintext(int msecs);
    //! \}

    SslSocket* const q;
    const SslSocket::Mode mode;
    TlsSettings settings;
    //! Host name and port that the host connects to; see SessionOrigin.
    QString sessionKey;
    Transport transport;
    TlsEngine engine;
    ConnectionProgress progress;
    RingBuffer readBuffer;
    RingBuffer writeBuffer;
    //! Counts resets: tells code that emitted a signal whether it still deals with the same
    //! session.
    quint64 generation = 0;
    //! Counts the connections begun: tells code that emitted a signal whether the host has begun
    //! another one.
    quint64 connections = 0;
    //! How many of the host's waits are active; slots may begin another one.
    int activeWaits = 0;

private:
    SessionOrigin sessionOrigin() const;
    void copyEndpoint();

    bool completeHandshake();
    void judgePeer();
    bool keepsPeer();
    //! Throws out sessions that have expired, a few now and the others later.
    void tidySessions();

    //! \name Legs of the pump; each returns false when the connection is not to be touched further
    //! \{
    bool takeCiphertext();
    bool stepHandshake();
    bool decrypt();
    bool send();
    bool encrypt();
    //! \}
    bool mayHoldMore() const;
    void relaySilentEnd();
    bool announceConnected();
    bool announcePlaintext();
    bool finishDecryption(const TlsEngine::Outcome& outcome);
    void followGoodbye();
    void collectCiphertext();
    void handOver();
    void flushEngine();
    void sendAnswer();
    //! Returns true if there may be plaintext to be had without a wait.
    bool hasUnreadInput() const;

    //! Records that are to be sent with the next write to the inner socket.
    QByteArray m_ciphertext;
    //! How many calls of pumpIn() are active; slots may re-enter it.
    int m_activeReads = 0;
    //! The last look into the inner socket has found something.
    bool m_tookCiphertext = false;
    //! Nothing waited to be sent when the outermost call of pumpIn() began.
    bool m_nothingWaited = false;
};

/*!
    Tells whether a socket and its session are still those for which the guard was made. Held across
    every emission, because slots may delete, close and reconnect the socket.
*/
class SessionGuard
{
public:
    explicit SessionGuard(const SslSocketPrivate* d)
        : m_d(d)
        , m_socket(d->q)
        , m_generation(d->generation)
    {
    }

    bool isAlive() const { return !m_socket.isNull(); }
    bool holds() const { return isAlive() && m_d->generation == m_generation; }

private:
    const SslSocketPrivate* m_d;
    QPointer<const SslSocket> m_socket;
    quint64 m_generation;
};

} // namespace vela

#endif

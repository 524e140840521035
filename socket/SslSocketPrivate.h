// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLSOCKETPRIVATE_H
#define FERRULE_SSLSOCKETPRIVATE_H

#include "socket/ConnectionSession.h"
#include "socket/RingBuffer.h"
#include "socket/TransportSignal.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QPointer>

#include <openssl/ssl.h>

namespace vela {

/*!
    The record behind an SslSocket: its state, and the steps that the socket's operations are made
    of. The order in which the steps run stands in the SslSocket operations that call them.
*/
class SslSocketPrivate
{
public:
    SslSocketPrivate(SslSocket* owner, SslSocket::Mode role);

    //! Makes \a transport the inner socket: drops its connections and makes those of the frame.
    void attach(QTcpSocket* transport, bool owned);

    /*!
        Lets go of the inner socket without hearing from it again, and deletes it if the frame owns
        it: at once, or once its own signals have been handled.
    */
    void releaseTransport();

    //! Lets go of all sockets at the end of this object's life.
    void dismissTransports();

    //! Puts a new socket of our own in the place of the inner socket, with the same proxy.
    void renewTransport();

    //! Gives up the connection that was to become the inner socket, without hearing from it again.
    void abandonUpcomingTransport();

    //! Returns the inner socket's state; unconnected when a host has deleted it or it was silenced.
    QAbstractSocket::SocketState transportState() const;

    //! Returns true while a signal of the inner socket is being handled or relayed.
    bool insideTransportSignal() const { return transportSignals->isHandling(); }

    //! Has what the inner socket holds already read by the event loop.
    void readLater();

    //! Returns the connection to its state before the handshake; the session goes to the pool.
    void reset();
    //! The part of reset() that concerns OpenSSL.
    void releaseEngine();

    //! \name Setting up the engine; each returns the error text, null when all went well
    //! \{
    QString createEngine();
    QString applyCipherList(const ContextLock& lock);
    QString loadIdentity(const ContextLock& lock);
    QString loadAuthorities(const ContextLock& lock);
    QString connectEngine();
    //! \}
    //! Returns with whom a session of the connection would be made.
    SessionOrigin sessionOrigin() const;
    //! Throws out sessions that have expired, a few now and the others later.
    void tidySessions();
    void copyEndpoint();

    //! \name The handshake
    //! \{
    bool completeHandshake();
    void judgePeer();
    /*!
        Returns true from the end of the handshake until the session is established, while the host
        judges the peer; nothing is read then. It stays so when the peer was turned down.
    */
    bool isBeingJudged() const { return handshakeDone && !established; }
    bool keepsPeer();
    //! \}

    //! \name Moving bytes; each returns false when the connection is not to be touched any further
    //! \{
    bool takeCiphertext();
    bool mayHoldMore() const;
    void relaySilentEnd();
    bool stepHandshake();
    bool announceConnected();
    bool decrypt();
    bool announcePlaintext();
    bool finishDecryption(int result);
    void followGoodbye();
    bool encrypt();
    void collectCiphertext();
    void handOver();
    void flushEngine();
    //! \}
    void sendAnswer();
    //! As SslSocket::waitForReadyRead(), which tells the others that it is active.
    bool waitForPlaintext(int msecs);
    //! Returns true if there may be plaintext to be had without a wait.
    bool hasUnreadInput() const;
    bool peerSaidGoodbye() const;

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
    //! Sends what a failed engine has left for the peer; to be called before the connection is
    //! ended.
    void sendLastWords();
    //! Drops what the device has buffered of an earlier connection.
    void dropBufferedInput();
    void emitError(QAbstractSocket::SocketError error);
    void emitState(QAbstractSocket::SocketState state);

    RingBuffer readBuffer;
    RingBuffer writeBuffer;
    QPointer<QTcpSocket> socket;
    SslSocket::Mode mode;
    bool ownsSocket = true;
    bool sslInitialised = false;
    //! The engine has completed a handshake.
    bool handshakeDone = false;
    //! The peer has been judged, and data flows.
    bool established = false;
    //! The end of the handshake is being told, and connected() is still to come.
    bool connectedDue = false;
    //! The engine has reported a failure of the session.
    bool engineFailed = false;
    bool writeScheduled = false;
    bool dataRead = false;
    SSL* ssl = nullptr;
    BIO* readBio = nullptr;
    BIO* writeBio = nullptr;
    QString sessionKey;
    QString pathToCertificate;
    QString certificateSource; // Counts as a certificate; nothing sets it yet.
    QString pathToPrivateKey;
    QString pathToCACertFile;
    QString pathToCACertDir;
    QString ciphers;
    SslSocket* const q;

    ConnectionSession session;
    //! Records that are to be sent with the next write to the inner socket.
    QByteArray ciphertext;
    //! Counts resets: tells code that emitted a signal whether it still deals with the same
    //! session.
    quint64 generation = 0;
    //! Counts the connections begun: tells code that emitted a signal whether the host has begun
    //! another one.
    quint64 connections = 0;
    //! How many calls of readFromSocket() are active; slots may re-enter it.
    int activeReads = 0;
    //! How many calls of waitForReadyRead() are active; slots may call it, too.
    int activeWaits = 0;
    //! How often readyRead() is still to be emitted.
    int announcementsDue = 0;
    //! An emission of readyRead() is under way in this session.
    bool announcing = false;
    //! A failure of the engine is being reported.
    bool reportingFailure = false;
    //! The last look into the inner socket has found something.
    bool tookCiphertext = false;
    //! Nothing waited to be sent when the outermost call of readFromSocket() began.
    bool nothingWaited = false;
    //! How many signals of the inner socket are being handled or relayed.
    TransportSignal::CountPtr transportSignals;
    //! A connection that is being prepared to become the inner socket; null when there is none.
    QPointer<QTcpSocket> upcomingTransport;
    //! The inner socket was disconnected from us: its connection, if any, is to make no more news.
    bool transportSilenced = false;
    //! Whether the device is to be in text mode once that connection is its own.
    bool upcomingTextMode = false;
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

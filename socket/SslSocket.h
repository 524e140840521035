// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLSOCKET_H
#define FERRULE_SSLSOCKET_H

#include <Ferrule/CertVerify.h>
#include <Ferrule/Export.h>

#include <QtCore/QList>
#include <QtNetwork/QTcpSocket>

class QNetworkProxy;
class QThread;
using X509 = struct x509_st;

namespace vela {

class SslSocketPrivate;

/*!
    A TLS connection that a host drives like a `QTcpSocket`.

    The bytes travel, encrypted, over an inner `QTcpSocket` that the constructor makes or that
    setSocket() adopts. As a client:

    \code
    auto* socket = new vela::SslSocket(vela::SslSocket::Client, this);
    connect(socket, &vela::SslSocket::connectionVerificationDone, this, &Host::judge);
    connect(socket, &QAbstractSocket::connected, this, &Host::talk);
    connect(socket, &QIODevice::readyRead, this, &Host::read);
    socket->connectToHost("example.org", 443);
    \endcode

    As a server: take the connection from a `QTcpServer`, construct the socket in mode Server, set
    setPathToCertificate() and setPathToPrivateKey(), and hand the connection to setSocket(). The
    client's first bytes start the handshake.

    \section order Order of the signals
    A client sees stateChanged() with HostLookupState and ConnectingState, then
    connectionVerificationDone(), stateChanged(ConnectedState), stateChanged(ConnectedState) a
    second time, and connected(). Data that arrived together with the end of the handshake is
    announced by readyRead() before connected(). A server sees the same without the first two
    states. readyRead() comes once for every decrypted piece of at most 4096 bytes.

    \section verdict The verdict is the host's business
    A handshake never fails because of a bad certificate. A host that cares listens to
    connectionVerificationDone() and calls close() or disconnectFromHost() there. The one exception
    protects the host: with OpenSSL 1.0.2 a certificate whose key is on a curve that it describes
    itself, or that hides what kind of key it has, ends the handshake with "SSL error: %1" before
    OpenSSL computes with it, which may take for ever.

    The verdict holds for the whole connection. A peer that begins another handshake later, as TLS
    1.2 and earlier versions permit, and shows another certificate in it or none, is refused: the
    socket reports the error "The peer has changed its certificate after it was verified" and
    aborts the connection; nothing that came with that certificate is delivered. With the same
    certificate such a handshake goes unnoticed.

    \section errors Errors
    A failure sets errorString(), then emits error() and errorOccurred() once each. Transport
    failures carry the inner socket's code and text; TLS failures carry `UnknownSocketError` and one
    of the texts quoted with the operations below. A "%1" in these texts is OpenSSL's own
    description of the first thing that went wrong. What the engine has to tell the peer, an alert
    for the most part, has been sent when the failure is reported. After a TLS failure the
   connection still stands, and a handshake that fails while data is read is reported twice ("SSL
   error: %1", then "Failed to read from SSL, %1"): close or abort the socket in the first one.
   Texts go through tr().

    \section threads Threads
    A socket belongs to one thread, its own; connectToHost() and disconnectFromHost() may be called
    from any. Use this class's moveToThread(), not the inherited one. Sockets on different threads
    are independent of each other.

    \section slots Slots may do anything
    Within any signal a host may close, abort, disconnect, connect again, write, wait, call
    deleteLater(), or delete the socket, and do so from an event loop that it runs there, a dialog
    for instance. readyRead() is not emitted within its own slots: pieces that a wait has decrypted
    there are announced, one by one, when the slot has returned.

    Most signals come while the inner socket announces new data: readyRead(), connected(),
    connectionVerificationDone() and the errors of TLS. As in readyRead() of any `QTcpSocket`, it
    announces nothing more before the slot returns, however long an event loop runs in it. If the
    peer closes the connection meanwhile, **what has not been decrypted yet is lost**, and the end
    is reported as `RemoteHostClosedError` even where the peer has said goodbye. A host that opens a
    dialog while data may come does so from a queued connection or a timer.

    \section hazards What a host would not guess
    - disconnectFromHost() and close() drop what was written but not yet encrypted. To be sure
      that everything leaves, call waitForBytesWritten(0) first: it encrypts at once, and the inner
      socket delivers what it was handed before disconnectFromHost() closes it. (Where the peer is
      slow this reports a `SocketTimeoutError`, which is then no failure.)
    - When the peer says goodbye, what the host has written by then is still encrypted and sent.
      What it writes later, in a slot on disconnected() for instance, is not.
    - No close-notify alert is ever sent. Peers that insist on one may refuse to resume a session.
    - abort() does nothing while a server's handshake runs, for the state is still
      UnconnectedState then: use close().
    - abort() is Qt's own and does nothing in UnconnectedState, in which an adopted socket remains
      until its handshake is complete: call close() to end a connection before that.
    - bytesWritten() counts bytes on the wire, bytesToWrite() plain bytes not yet encrypted.
    - What is written in readyRead(), unless it is much, is sent as soon as all that has arrived is
      read; bytesWritten() tells so from within that. Only inside waitForReadyRead() is it left to
      waitForBytesWritten().
    - A peer that renegotiates makes writes wait until it has answered; bytesToWrite() tells.
    - skip(), and with it `QDataStream::skipRawData()`, returns -1 however much there is to skip: Qt
      asks the outer object for its connection. Read and drop the data, or skip it inside a read
      transaction (`startTransaction()`), where Qt reads by itself.
    - The inner socket never is in text mode, whatever the mode of the device.
    - Only the inner socket has a network connection: socketDescriptor(), socket options,
      setReadBufferSize(), flush(), waitForConnected() and waitForDisconnected() act on the outer
      object and see none. Apply them to socket(); wait for signals instead.
    - There is one TLS context in the process. A cipher list, a certificate or a list of trusted
      authorities that one socket loads stays in force for all sockets set up after it.
    - The certificate that server sockets have loaded is therefore offered to the servers that the
      process visits, and signs for it, when they ask for one. A host that does not want to be known
      to them by that name must run its server in another process.
    - A client sends the host name that it connects to, in plain text, so that a server of many
      names has the right certificate: whoever sees the packets can read it. setServerName() sends
      another or none.
    - A client offers a session to the server that it was made with, by host name and port, and to
      nobody else: for 600 seconds, as long as the cipher list has its cipher, and not any more once
      the certificate of this process has changed or authorities were added that might change a bad
      verdict. Through a proxy the target counts, and of an adopted connection the peer. Of what a
      server has sent, the newest 24 sessions are kept, and of all servers together about 8 MiB;
      none after a handshake that failed. Servers resume those of their clients that OpenSSL's cache
      of some 20,000 has, or that have a ticket. What has expired goes when later connections are
      made, a little at a time.
    - An adopted socket is deleted together with the frame even though the frame never owned it.
*/
class FERRULE_EXPORT SslSocket : public QTcpSocket
{
    Q_OBJECT

public:
    //! The role in the handshake. A socket constructed with any other value starts no handshake.
    enum Mode : int {
        Client = 0, //!< Connects out and verifies the server.
        Server = 1  //!< Answers a client; needs a certificate and a key.
    };

    /*!
        Constructs an unconnected socket with an inner socket of its own. The object belongs to
        \a parent, or to the caller when that is null.
    */
    explicit SslSocket(Mode mode, QObject* parent = nullptr);

    /*!
        Gives the session back to the pool, schedules the inner socket, adopted or not, for
        deletion, and destroys the object without emitting anything but destroyed(). Data that has
        not been sent is lost.
    */
    ~SslSocket() override;

    /*!
        Makes a client socket: a plain `QTcpSocket` (with \a proxy set on it) when \a ssl is false,
        an SslSocket when it is true and \a proxy is of type `NoProxy`, and for every other type of
        proxy, `DefaultProxy` included, an SslProxySocket with \a proxy set on it. That one takes
        whatever it is given for an HTTP proxy, and connects directly when the proxy has no host
        name. The caller owns the result unless \a parent does.
    */
    static QTcpSocket* createSocket(bool ssl, const QNetworkProxy& proxy, QObject* parent);

    /*!
        Makes a client socket as above, through the HTTP proxy \a proxyHost, or without a proxy when
        that is empty. \a parent is ignored: the result never has one, and the caller deletes it.
    */
    static QTcpSocket* createSocket(bool ssl, const QString& proxyHost, int proxyPort,
                                    const QString& proxyUser, const QString& proxyPassword,
                                    QObject* parent);

    using QTcpSocket::connectToHost;

    /*!
        Connects to \a hostName and runs the handshake as a client. May be called from any thread;
        runs on the socket's own. \a protocol is ignored, the connection uses any IP protocol.

        Called while the socket is not unconnected it does nothing but warn "QtSslSocket::
        connectToHost() called when not in UnconnectedState" (in one line).
    */
    void connectToHost(const QString& hostName, quint16 port, OpenMode openMode = ReadWrite,
                       NetworkLayerProtocol protocol = AnyIPProtocol) override;

    /*!
        Closes the connection: the inner socket delivers what it already holds, everything else is
        dropped at once and the session goes back to the pool. Emits stateChanged() with the inner
        socket's state even when that is no change. May be called from any thread.
    */
    void disconnectFromHost() override;

    /*!
        Aborts the connection at once, like abort(), and closes the device, unless a slot has begun
        another connection meanwhile.
    */
    void close() override;

    //! Returns true, always.
    bool isSequential() const override;

    /*!
        Adopts the connected \a socket as transport and sets up TLS on it. The previous inner socket
        is deleted if the constructor made it, otherwise let go; a session that still stands is
        given up. The parent of \a socket is not changed, yet it is deleted with this object; one
        that came from `QTcpServer::nextPendingConnection()` must not outlive its server.

        The handshake starts with the peer's first bytes, or when the host calls sslConnect() or
        sslAccept(). What \a socket has received already, but nobody has read, starts it from the
        event loop. If \a socket is not connected, nothing changes but for the warning
        "QtSslSocket::setSocket: QtSslSocket::setSocket() was called with a socket that is not in
        ConnectedState.". Failures of the set-up are reported as for sslConnect().
    */
    void setSocket(QTcpSocket* socket);

    /*!
        Returns the inner socket; null when a host has deleted an adopted one. A host that connects
        again within one of this object's signals gets another inner socket, with the same proxy:
        the old one is not done with its connection.
    */
    QTcpSocket* socket() const;

    /*!
        Moves the socket, and the inner one with it, to \a thread. Call it on the socket's own
        thread; neither this object nor an adopted inner socket may have a parent. Otherwise neither
        is moved, and it warns "QtSslSocket::moveToThread() called for a socket that has a parent,
        or whose inner socket has one." (in one line).
    */
    void moveToThread(QThread* thread);

    //! \name TLS settings
    //! They take effect when the next connection is set up; nothing is checked before that.
    //! \{

    /*!
        The OpenSSL cipher list, empty for the list in force. It stays in force for all sockets
        that are set up later and name none; connections that stand or are being made keep theirs.
    */
    QString ciphers() const;
    void setCiphers(const QString& ciphers);

    /*!
        The PEM file of the local certificate. Loaded by sockets in mode Server only. The shared
        context keeps it: a client socket set up later offers it to a server that asks. This file
        and that of the key are looked at for each server socket, but read again only when they are
        other files than before, by name or in the file system, or were changed.
    */
    QString pathToCertificate() const;
    void setPathToCertificate(const QString& path);

    /*!
        The PEM file of the private key that belongs to the certificate. The key must not be
        encrypted: nobody is ever asked for a pass phrase. "Error loading private key, %1" says
        "bad password read" of a key that is, and so do the other errors of files.
    */
    QString pathToPrivateKey() const;
    void setPathToPrivateKey(const QString& path);

    //! A PEM file of trusted authorities; added to those the process trusts already.
    QString pathToCACertFile() const;
    void setPathToCACertFile(const QString& path);

    /*!
        A directory of trusted authorities under their hashed names; added likewise. On Windows the
        path is limited to the characters of the system's code page; those of files are not.
    */
    QString pathToCACertDir() const;
    void setPathToCACertDir(const QString& path);
    //! \}

    //! \name The server's name
    //! Servers that answer for several names choose their certificate by it.
    //! \{

    /*!
        In mode Client, returns the name that the connection tells the server it wants; while none
        is set up, the one that was set with setServerName(). In mode Server, returns the name that
        the client has told, from its first message on. Empty when there is none.

        The name is in ASCII ("xn--bcher-kva.example"), in lower case and without a dot at the end.
        Only host names are ever sent or told: labels of letters, digits, hyphens and underscores.
        A client tells a server whatever it likes: it proves nothing, not even that it has connected
        to that name.
    */
    QString serverName() const;

    /*!
        Has client connections that are set up from now on ask for \a name instead of the host that
        they connect to, or for none when it is empty, an address or no host name. International
        names may be given as people write them. The verdict, hostNameMatched included, and errors
        are about the host that was connected to, as ever. A session made under one name is not
        offered under another.

        Unless told otherwise a socket asks for the host that connectToHost() was given, also
        through a proxy, and an adopted one for its inner socket's peerName().
    */
    void setServerName(const QString& name);

    //! Has client connections ask for the host that they connect to again.
    void resetServerName();
    //! \}

    //! \name The negotiated cipher
    //! Empty strings and 0 before there is one.
    //! \{
    QString getCipherName() const;
    QString getCipherVersion() const;     //!< The version that introduced the suite.
    QString getCipherDescription() const; //!< OpenSSL's one-line text, ended by a line feed.
    int getCipherBits() const;            //!< The secret bits.
    //! \}

    //! Returns true if the handshake resumed an earlier session; false before it is complete.
    bool isSessionReused() const;

    /*!
        Describes the peer's certificate as
        "issuer/subject/notBefore/notAfter/version/serial" in the form
        "%1/%2/notValidBefore=%3/notValidAfter=%4/version=%5/serial=%6": names as OpenSSL's one-line
        text, dates as ISO text in UTC, the version counted from 0, the serial number as a signed
        32-bit decimal or "-1" where it does not fit. Empty when there is none.
    */
    QString peerCertificate() const;

    /*!
        Describes the local certificate in the form of peerCertificate().

        \warning Every call takes away one reference to the certificate that it does not hold. Once
        the references run out, the certificate is freed while TLS still uses it, and the process
        may crash. The safe way is to wrap x509localCertificate() in an `SslCertificate` that does
        not own it. A caller that cannot do without this text takes a reference of its own before
        each call: with `X509_up_ref`, or where the engine is OpenSSL 1.0 with `CRYPTO_add`.
    */
    QString localCertificate() const;

    //! Returns the peer's certificate or null; the caller releases it with `X509_free`.
    X509* x509peerCertificate() const;

    //! Returns the local certificate or null; borrowed, valid as long as the connection.
    X509* x509localCertificate() const;

    /*!
        Returns the chain that the peer sent, its own certificate first; a server sees the client's
        chain without the client's own certificate. Borrowed, valid as long as the connection.
    */
    QList<X509*> x509peerCertificateChain() const;

    /*!
        Reports the session statistics of all sockets as a table of seven lines under a heading; an
        empty string when the TLS context could not be made. May be called from any thread.
    */
    static QString printStatistics();

    //! \name Reading and writing
    //! What `QIODevice` promises, with the edges named.
    //! \{
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    qint64 bytesToWrite() const override; //!< Plain bytes that are not encrypted yet.

    /*!
        Returns true when decrypted data that the device has not buffered yet holds a line feed.
        After a partial read, lines may wait in the device's own buffer that this does not see:
        read lines with readLine() until it returns nothing.
    */
    bool canReadLine() const override;

    /*!
        Waits until decrypted data has arrived, at most \a msecs milliseconds. A negative time polls
        once instead of waiting for ever. Within readyRead() it looks first for what has been
        received and not yet announced.

        Returns false, without an error, as soon as the peer has said goodbye, and at once in
        connectionVerificationDone() and in the first stateChanged(ConnectedState): before the host
        has judged the peer nothing is read.
    */
    bool waitForReadyRead(int msecs = 30000) override;

    /*!
        Encrypts what is pending, then waits for the inner socket to write, at most \a msecs
        milliseconds. Returns false at once when there is nothing to be written.
    */
    bool waitForBytesWritten(int msecs = 30000) override;
    //! \}

Q_SIGNALS:
    /*!
        Reports the verdict on the peer, once for each completed handshake and before connected().

        \a result is what OpenSSL and the validity dates say. \a hostNameMatched tells whether the
        certificate's common name equals the host name that was connected to; letter case aside,
        the texts must be the same: there are no wildcards, and alternative names do not count.
        \a description is the translated text of both for a human reader.

        A peer without a certificate (the usual client, as a server sees it) is reported with
        VerifyExpired, for its missing dates compare as the first moment of 1970, an empty host name
        and a \a description without a date: "The SSL certificate expired on ." That does not mean
        that anything has expired. Ask x509peerCertificate() whether there is a certificate before
        judging by the rest, and do not show the description otherwise.
    */
    void connectionVerificationDone(vela::CertVerify result, bool hostNameMatched,
                                    QString description);

public Q_SLOTS:
    /*!
        Runs one step of the handshake as a client; needed only for a socket adopted with
        setSocket(). Returns true when the handshake is complete, false while it goes on or when it
        failed ("SSL error: %1"). The first step sets up TLS, which can fail with:

        - "Error creating SSL context, %1", "Error creating SSL session, %1", "Error creating SSL
          session", "Error setting pooled SSL session"
        - "QtSslSocket: Certificate required in server mode", "Private key required in server mode"
        - "Invalid or empty cipher list, %1"
        - "Error loading certificate, %1", "Error loading private key, %1", "Private key does not
          certify public key, %1"
        - "Failed to load the list of trusted CAs: %1"
    */
    bool sslConnect();

    //! Opens the device for reading and writing and runs one step as a server; see sslConnect().
    bool sslAccept();

protected Q_SLOTS:
    //! Carries out connectToHost() on the socket's own thread; called by name.
    void connectToHostImplementation(QString hostName, quint16 port, OpenMode openMode);
    //! Carries out disconnectFromHost() on the socket's own thread; called by name.
    void disconnectFromHostImplementation();

private Q_SLOTS:
    void handleSocketError(QAbstractSocket::SocketError error);
    void handleStateChanged(QAbstractSocket::SocketState state);
    void readFromSocket();
    void writeToSocket();
    void socketBytesWritten(qint64 bytes);

protected:
    qint64 readData(char* data, qint64 maxlen) override;
    qint64 readLineData(char* data, qint64 maxlen) override;
    qint64 writeData(const char* data, qint64 len) override;

private:
    Q_DISABLE_COPY(SslSocket)
    friend class SslSocketPrivate;
    friend class SslProxySocket;

    bool initSsl();
    bool sslAcceptOrConnect(bool accept);
    QString verifyErrorString(int code) const;

    SslSocketPrivate* d;
};

} // namespace vela

#endif

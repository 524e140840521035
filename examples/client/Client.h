// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CLIENT_H
#define FERRULE_EXAMPLES_CLIENT_H

#include "client/ClientOptions.h"
#include "client/PeerStore.h"
#include "client/StandardInput.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QTimer>

#include <memory>

/*!
    Makes the connections that the options ask for, one after the other, and carries the standard
    streams over the last one. Ends the event loop with an ExitStatus.
*/
class Client : public QObject
{
    Q_OBJECT

public:
    explicit Client(const ClientOptions& options);

    //! To be called once the event loop runs.
    void start();

private:
    void makeSocket();
    void connectToPeer();
    void judge(vela::CertVerify verdict, bool hostNameMatched, const QString& description);
    void greet();
    void awaitSessionTicket();
    void receive();
    void send(const QByteArray& data);
    void continueSending();
    void endInput();
    void closeWhenIdle();
    void handleError(QAbstractSocket::SocketError error);
    void handleProxyError(QAbstractSocket::SocketError error);
    void handleDisconnection();
    void limitClosing(QAbstractSocket::SocketState state);
    void handleTimeout();
    void failAtPeer(ExitStatus status, const QString& text);
    void fail(ExitStatus status, const QString& text);
    void finish(ExitStatus status);

    bool isLast() const { return m_connection == m_options.connections; }
    qint64 unsent() const;

    const ClientOptions m_options;
    StandardInput m_input;
    PeerStore m_store;
    std::unique_ptr<vela::SslSocket> m_socket;
    QTimer m_limit; // For the connection and the handshake, the session ticket, and the closing.
    QTimer m_idle;  // How long the peer has been silent after the end of the input.
    int m_connection = 0;
    qint64 m_unsent = 0;
    QString m_initialErrorString;
    bool m_tunnelled = false; // Through the proxy, or no proxy is asked for.
    bool m_established = false;
    bool m_reading = false;
    bool m_inputEnded = false;
    bool m_closing = false;
    bool m_finished = false;
};

#endif

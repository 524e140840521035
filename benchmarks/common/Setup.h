// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_SETUP_H
#define FERRULE_BENCH_SETUP_H

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>

namespace bench {

//! What is measured: three kinds of Qt sockets, and the engine without Qt in three ways.
enum class Subject {
    Ferrule,
    QSslSocket,
    QTcpSocket,
    BareLoop,    //!< SSL_read and SSL_write on a blocking socket.
    EngineAlone, //!< Two ends joined by memory.
    AesGcmAlone  //!< The cipher and nothing of TLS.
};

//! With AES256-GCM-SHA384, or TLS_AES_256_GCM_SHA384; nothing else is negotiated.
enum class Protocol {
    Tls12,
    Tls13
};

//! Where the server is, seen from the client.
enum class Arrangement {
    Threads,  //!< In another thread.
    Processes //!< In another process.
};

QString nameOf(Subject subject);
QString nameOf(Protocol protocol);
QString nameOf(Arrangement arrangement);

//! Those that the engine has.
QList<Protocol> protocols();

//! What an end of a connection is to be. Other processes are told of it as JSON.
struct Setup
{
    Subject subject = Subject::Ferrule;
    Protocol protocol = Protocol::Tls12;
    QString certificateFile;
    QString keyFile;

    QJsonObject json() const;
    static Setup fromJson(const QJsonObject& json);
    Setup as(Subject other) const;
};

//! The OpenSSL name of the one cipher that \a protocol may use here.
QString cipherName(Protocol protocol);

/*!
    Makes a configuration file for OpenSSL that allows \a protocol and its cipher alone, and returns
    its name for the environment variable OPENSSL_CONF. The file is in memory; child processes
    inherit it, and nothing remains of it.

    Ferrule always negotiates the highest version, with a context that it makes when it is loaded.
    So whoever wants another needs this in the environment before the program starts. OpenSSL 1.0.2
    reads no such file unasked, and has TLS 1.2 at most.
*/
QString protocolConfiguration(Protocol protocol);

//! Starts the program again, once, with \a protocol in its environment. Call it first in main().
void holdToProtocol(Protocol protocol, char** argv);

//! Lets no debug message out and no broken connection end the program.
void prepareProcess();

} // namespace bench

#endif

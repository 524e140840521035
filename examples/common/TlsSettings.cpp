// SPDX-License-Identifier: BSD-3-Clause
#include "common/TlsSettings.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFileInfo>

using vela::SslSocket;

namespace {

// The first handshake step loads the settings; without a connection it gets no further.
QString firstStep(SslSocket& socket, bool (SslSocket::*step)())
{
    QString failure;
    QObject::connect(&socket, &QAbstractSocket::errorOccurred, &socket,
                     [&] { failure = socket.errorString(); });
    (socket.*step)();
    return failure;
}

} // namespace

QString TlsSettings::loadForClients() const
{
    if (!certificate.isEmpty()) {
        const QString failure = loadForServers();
        if (!failure.isNull())
            return failure;
    }
    // OpenSSL takes a directory that is not there for an empty one.
    if (!caDirectory.isEmpty() && !QFileInfo(caDirectory).isDir())
        return QStringLiteral("%1: not a directory").arg(caDirectory);

    SslSocket socket(SslSocket::Client);
    socket.setPathToCACertFile(caFile);
    socket.setPathToCACertDir(caDirectory);
    socket.setCiphers(ciphers);
    const QString failure = firstStep(socket, &SslSocket::sslConnect);
    return failure.isNull() || caFile.isEmpty() ? failure
                                                : QStringLiteral("%1: %2").arg(caFile, failure);
}

QString TlsSettings::loadForServers() const
{
    SslSocket socket(SslSocket::Server);
    socket.setPathToCertificate(certificate);
    socket.setPathToPrivateKey(key);
    socket.setCiphers(ciphers);
    const QString failure = firstStep(socket, &SslSocket::sslAccept);
    return failure.isNull() ? failure : QStringLiteral("%1, %2: %3").arg(certificate, key, failure);
}

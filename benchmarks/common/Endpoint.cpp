// SPDX-License-Identifier: BSD-3-Clause
#include "Endpoint.h"

#include "Options.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>
#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslCipher>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>

namespace bench {

namespace {

QByteArray contents(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        fail(QStringLiteral("cannot read %1").arg(fileName));
    return file.readAll();
}

void checkCipher(const QTcpSocket* end, const Setup& setup)
{
    QString cipher;
    if (const auto* ferrule = qobject_cast<const vela::SslSocket*>(end))
        cipher = ferrule->getCipherName();
    else if (const auto* qt = qobject_cast<const QSslSocket*>(end))
        cipher = qt->sessionCipher().name();
    else
        return;
    if (cipher != cipherName(setup.protocol))
        fail(nameOf(setup.subject) + QStringLiteral(" negotiated \"%1\"").arg(cipher));
}

void sendWithoutDelay(QTcpSocket* end)
{
    auto* ferrule = qobject_cast<vela::SslSocket*>(end);
    QTcpSocket* transport = ferrule ? ferrule->socket() : end;
    transport->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

void failOnError(QTcpSocket* end, const Setup& setup)
{
    const QString name = nameOf(setup.subject);
    QObject::connect(end, &QAbstractSocket::errorOccurred, end,
                     [end, name](QAbstractSocket::SocketError error) {
                         if (error != QAbstractSocket::RemoteHostClosedError)
                             fail(name + QStringLiteral(": ") + end->errorString());
                     });
}

} // namespace

EndpointFactory::EndpointFactory(const Setup& setup)
    : m_setup(setup)
{
    if (setup.subject == Subject::QSslSocket)
        configureQSslSocket();
}

void EndpointFactory::configureQSslSocket()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    // Or each client would load the authorities that the system trusts.
    configuration.setCaCertificates({});
    if (m_setup.protocol == Protocol::Tls12) {
        const QSslCipher cipher(cipherName(m_setup.protocol));
        if (cipher.isNull())
            fail(QStringLiteral("QSslSocket does not have the cipher"));
        configuration.setProtocol(QSsl::TlsV1_2);
        configuration.setCiphers({cipher});
    } else {
        configuration.setProtocol(QSsl::TlsV1_3);
    }
    configuration.setSslOption(QSsl::SslOptionDisableSessionPersistence, false);
    configuration.setSslOption(QSsl::SslOptionDisableSessionSharing, false);
    configuration.setSslOption(QSsl::SslOptionDisableSessionTickets, false);
    m_clientConfiguration = configuration;
    configuration.setLocalCertificate(QSslCertificate(contents(m_setup.certificateFile)));
    configuration.setPrivateKey(QSslKey(contents(m_setup.keyFile), QSsl::Rsa));
    m_serverConfiguration = configuration;
}

std::unique_ptr<QTcpSocket> EndpointFactory::connectClient(const QString& host, quint16 port) const
{
    std::unique_ptr<QTcpSocket> client;
    if (m_setup.subject == Subject::QSslSocket) {
        auto socket = std::make_unique<QSslSocket>();
        socket->setSslConfiguration(m_clientConfiguration);
        socket->connectToHostEncrypted(host, port);
        client = std::move(socket);
    } else if (m_setup.subject == Subject::Ferrule) {
        auto socket = std::make_unique<vela::SslSocket>(vela::SslSocket::Client);
        if (m_setup.protocol == Protocol::Tls12)
            socket->setCiphers(cipherName(m_setup.protocol));
        socket->connectToHost(host, port);
        client = std::move(socket);
    } else {
        client = std::make_unique<QTcpSocket>();
        client->connectToHost(host, port);
    }
    return client;
}

QTcpSocket* EndpointFactory::makeServerEnd(qintptr descriptor) const
{
    if (m_setup.subject == Subject::QSslSocket) {
        auto* socket = new QSslSocket;
        socket->setSocketDescriptor(descriptor);
        socket->setSslConfiguration(m_serverConfiguration);
        socket->startServerEncryption();
        return socket;
    }
    auto* transport = new QTcpSocket;
    transport->setSocketDescriptor(descriptor);
    if (m_setup.subject == Subject::QTcpSocket)
        return transport;
    auto* socket = new vela::SslSocket(vela::SslSocket::Server);
    socket->setPathToCertificate(m_setup.certificateFile);
    socket->setPathToPrivateKey(m_setup.keyFile);
    if (m_setup.protocol == Protocol::Tls12)
        socket->setCiphers(cipherName(m_setup.protocol));
    socket->setSocket(transport);
    return socket;
}

void EndpointFactory::keepSession(const QTcpSocket* client)
{
    if (const auto* socket = qobject_cast<const QSslSocket*>(client)) {
        const QByteArray ticket = socket->sslConfiguration().sessionTicket();
        if (!ticket.isEmpty())
            m_clientConfiguration.setSessionTicket(ticket);
    }
}

void whenReady(QTcpSocket* end, const Setup& setup, const std::function<void()>& function)
{
    failOnError(end, setup);
    const auto ready = [end, setup, function] {
        checkCipher(end, setup);
        sendWithoutDelay(end);
        function();
    };
    if (auto* socket = qobject_cast<QSslSocket*>(end))
        QObject::connect(socket, &QSslSocket::encrypted, socket, ready);
    else if (setup.subject == Subject::QTcpSocket && end->state() == QTcpSocket::ConnectedState)
        ready();
    else
        QObject::connect(end, &QTcpSocket::connected, end, ready);
}

void whenSent(QTcpSocket* end, const std::function<void()>& function)
{
    if (auto* socket = qobject_cast<QSslSocket*>(end))
        QObject::connect(socket, &QSslSocket::encryptedBytesWritten, socket, function);
    else
        QObject::connect(end, &QTcpSocket::bytesWritten, end, function);
}

qint64 outstanding(const QTcpSocket* end)
{
    qint64 bytes = end->bytesToWrite();
    if (const auto* ferrule = qobject_cast<const vela::SslSocket*>(end))
        bytes += ferrule->socket()->bytesToWrite();
    else if (const auto* qt = qobject_cast<const QSslSocket*>(end))
        bytes += qt->encryptedBytesToWrite();
    return bytes;
}

QString spelledLoopback(int number)
{
    // As an IPv6 address that stands for the other, 0:0:0:0:0:ffff:7f00:1. A group may begin with
    // zeros, four digits in all, and its letters may be capital ones.
    const auto choose = [&number](int choices) {
        const int choice = number % choices;
        number /= choices;
        return choice;
    };
    QString text;
    for (int group = 0; group < 5; ++group)
        text += QString(choose(4) + 1, QLatin1Char('0')) + QLatin1Char(':');
    for (int digit = 0; digit < 4; ++digit)
        text += QLatin1Char(choose(2) == 0 ? 'f' : 'F');
    text += choose(2) == 0 ? QStringLiteral(":7f00:") : QStringLiteral(":7F00:");
    return text + QString(choose(4), QLatin1Char('0')) + QLatin1Char('1');
}

} // namespace bench

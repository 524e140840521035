// SPDX-License-Identifier: BSD-3-Clause
#include "BareLoop.h"

#include "Options.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <openssl/err.h>

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

constexpr int READ_SIZE = 64 * 1024;
constexpr int TIME_LIMIT_SECONDS = 60;

void limitToProtocol(SSL_CTX* context, Protocol protocol)
{
#if OPENSSL_VERSION_NUMBER >= 0x10101000L
    const int version = protocol == Protocol::Tls12 ? TLS1_2_VERSION : TLS1_3_VERSION;
    SSL_CTX_set_min_proto_version(context, version);
    SSL_CTX_set_max_proto_version(context, version);
    SSL_CTX_set_ciphersuites(context, "TLS_AES_256_GCM_SHA384");
#else
    Q_UNUSED(protocol)
#endif
    if (SSL_CTX_set_cipher_list(context, "AES256-GCM-SHA384") != 1)
        failInEngine("the cipher cannot be set");
}

} // namespace

void failInEngine(const char* what)
{
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    fail(QString::fromLatin1(what) + QStringLiteral(": ") + QString::fromLatin1(text));
}

EngineContext::EngineContext(const Setup& setup, Role role)
    : m_context(SSL_CTX_new(SSLv23_method()))
{
    if (!m_context)
        failInEngine("no context");
    limitToProtocol(m_context, setup.protocol);
    if (role == Role::Client)
        return;
    const QByteArray certificate = QFile::encodeName(setup.certificateFile);
    const QByteArray key = QFile::encodeName(setup.keyFile);
    if (SSL_CTX_use_certificate_file(m_context, certificate.constData(), SSL_FILETYPE_PEM) != 1
        || SSL_CTX_use_PrivateKey_file(m_context, key.constData(), SSL_FILETYPE_PEM) != 1) {
        failInEngine("the certificate cannot be loaded");
    }
}

EngineContext::~EngineContext()
{
    SSL_CTX_free(m_context);
}

SSL* EngineContext::newConnection() const
{
    SSL* ssl = SSL_new(m_context);
    if (!ssl)
        failInEngine("no connection");
    return ssl;
}

BareConnection::BareConnection(const EngineContext& context, EngineContext::Role role,
                               int descriptor)
    : m_descriptor(descriptor)
    , m_ssl(context.newConnection())
{
    const timeval limit{TIME_LIMIT_SECONDS, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    // As all others do, see EndpointFactory.
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    SSL_set_fd(m_ssl, descriptor);
    const int result = role == EngineContext::Role::Server ? SSL_accept(m_ssl) : SSL_connect(m_ssl);
    if (result != 1)
        failInEngine("no handshake on a bare connection");
}

BareConnection::~BareConnection()
{
    SSL_set_shutdown(m_ssl, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
    SSL_free(m_ssl);
    close(m_descriptor);
}

int BareConnection::connectTo(quint16 port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail(QStringLiteral("a bare connection is refused"));
    return descriptor;
}

bool BareConnection::isResumed() const
{
    return SSL_session_reused(m_ssl) != 0;
}

int BareConnection::read(char* data, int size)
{
    const int result = SSL_read(m_ssl, data, size);
    if (result > 0)
        return result;
    const int error = SSL_get_error(m_ssl, result);
    if (error == SSL_ERROR_WANT_READ)
        fail(QStringLiteral("nothing arrived on a bare connection for a minute"));
    ERR_clear_error();
    return 0;
}

void BareConnection::readExactly(char* data, int size)
{
    for (int done = 0; done < size;) {
        const int result = read(data + done, size - done);
        if (result == 0)
            fail(QStringLiteral("a bare connection ended"));
        done += result;
    }
}

void BareConnection::write(const char* data, int size)
{
    if (SSL_write(m_ssl, data, size) != size)
        failInEngine("a bare connection cannot write");
}

void BareConnection::send(int pieceSize, qint64 total)
{
    const std::vector<char> piece(static_cast<std::size_t>(pieceSize), 'x');
    while (total > 0) {
        const int size = static_cast<int>(std::min<qint64>(total, pieceSize));
        write(piece.data(), size);
        total -= size;
    }
}

void BareConnection::receive(qint64 total)
{
    char buffer[READ_SIZE];
    while (total > 0) {
        const int size = read(buffer, static_cast<int>(std::min<qint64>(total, sizeof buffer)));
        if (size == 0)
            fail(QStringLiteral("a bare connection ended"));
        total -= size;
    }
}

} // namespace bench

// SPDX-License-Identifier: BSD-3-Clause
#include "serverlife/Visitor.h"

#include "common/Options.h"

#include <QtCore/QString>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace bench {

namespace {

constexpr std::size_t TICKET_SIZE = 60000;

//! Makes a connection whose session up to TLS 1.2 the server has to keep.
SSL* newConnection(const EngineContext& context)
{
    SSL* ssl = context.newConnection();
    SSL_set_options(ssl, SSL_OP_NO_TICKET);
    return ssl;
}

//! Returns what a client of \a context says first.
QByteArray helloOf(const EngineContext& context)
{
    SSL* ssl = newConnection(context);
    BIO* output = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl, BIO_new(BIO_s_mem()), output);
    SSL_connect(ssl);
    QByteArray hello(static_cast<int>(BIO_pending(output)), '\0');
    BIO_read(output, hello.data(), hello.size());
    SSL_free(ssl);
    return hello;
}

#ifdef SSL_OP_NO_TLSv1_3

int makeTicketLarge(SSL* ssl, void*)
{
    static const std::vector<char> data(TICKET_SIZE, 't');
    return SSL_SESSION_set1_ticket_appdata(SSL_get_session(ssl), data.data(), data.size());
}

void prepareTickets(SSL_CTX* context)
{
    SSL_CTX_set_session_ticket_cb(context, makeTicketLarge, nullptr, nullptr);
}

bool requestTicket(SSL* ssl)
{
    return SSL_new_session_ticket(ssl) == 1;
}

#else

void prepareTickets(SSL_CTX*)
{
}

bool requestTicket(SSL*)
{
    return false; // One with each handshake is all there is.
}

#endif

} // namespace

Visitor::Visitor(const Setup& setup, quint16 port, Visit visit)
    : m_context(setup, EngineContext::Role::Client)
    , m_port(port)
    , m_visit(visit)
    , m_hello(helloOf(m_context))
{
}

Visitor::~Visitor()
{
    forgetSession();
}

void Visitor::visit(int count)
{
    for (int i = 0; i < count; ++i) {
        if (m_visit == Visit::Abandoned)
            abandon();
        else
            converse();
    }
}

void Visitor::forgetSession()
{
    SSL_SESSION_free(m_session);
    m_session = nullptr;
    if (m_visit == Visit::Resumed)
        m_visit = Visit::Full;
}

void Visitor::converse()
{
    SSL* ssl = newConnection(m_context);
    const int descriptor = BareConnection::connectTo(m_port);
    SSL_set_fd(ssl, descriptor);
    if (m_session)
        SSL_set_session(ssl, m_session);
    char octet = 0;
    if (SSL_connect(ssl) != 1 || SSL_read(ssl, &octet, 1) != 1)
        failInEngine("a visit failed");
    if (m_session && !SSL_session_reused(ssl))
        fail(QStringLiteral("a session was not resumed"));
    if (m_visit == Visit::Resumed) {
        SSL_SESSION_free(m_session);
        m_session = SSL_get1_session(ssl);
    }
    SSL_set_shutdown(ssl, SSL_SENT_SHUTDOWN); // Or the session would not be resumable.
    SSL_free(ssl);
    close(descriptor);
}

void Visitor::abandon() const
{
    const int descriptor = BareConnection::connectTo(m_port);
    char piece[16384];
    if (write(descriptor, m_hello.constData(), static_cast<std::size_t>(m_hello.size())) < 0
        || read(descriptor, piece, sizeof piece) <= 0) {
        fail(QStringLiteral("a visit failed"));
    }
    close(descriptor);
}

TicketServer::TicketServer(const Setup& setup)
    : m_context(setup, EngineContext::Role::Server)
    , m_listener(socket(AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, general, size) != 0 || listen(m_listener, 1) != 0
        || getsockname(m_listener, general, &size) != 0) {
        fail(QStringLiteral("cannot listen on loopback"));
    }
    m_port = ntohs(address.sin_port);
}

TicketServer::~TicketServer()
{
    SSL_free(m_ssl);
    close(m_listener);
}

void TicketServer::accept()
{
    m_ssl = m_context.newConnection();
    SSL_set_fd(m_ssl, ::accept(m_listener, nullptr, nullptr));
    if (SSL_accept(m_ssl) != 1 || SSL_write(m_ssl, "x", 1) != 1)
        failInEngine("no client for tickets");
    prepareTickets(SSL_get_SSL_CTX(m_ssl));
}

void TicketServer::send(int tickets)
{
    for (int i = 0; i < tickets; ++i) {
        if (!requestTicket(m_ssl) || SSL_write(m_ssl, "x", 1) != 1)
            failInEngine("a ticket cannot be sent");
    }
}

} // namespace bench

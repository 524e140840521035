// SPDX-License-Identifier: BSD-3-Clause
#include "Server.h"

#include "BareLoop.h"
#include "Endpoint.h"
#include "Options.h"
#include "Talk.h"

#include <QtCore/QEventLoop>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtNetwork/QTcpServer>

#include <algorithm>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

//! The server's side of one connection. Belongs to the socket.
class Conversation : public QObject
{
public:
    explicit Conversation(QTcpSocket* end)
        : QObject(end)
        , m_end(end)
    {
        connect(end, &QIODevice::readyRead, this, &Conversation::read);
    }

    void greet() { m_end->write(&GREETING, 1); }

private:
    void read()
    {
        if (m_known < static_cast<qint64>(sizeof m_request) && !readRequest())
            return;
        m_received += readAvailable(m_end);
        if (m_request.demand == Demand::Echo) {
            for (; m_received >= m_request.pieceSize; m_received -= m_request.pieceSize)
                m_end->write(m_piece);
        } else if (m_request.demand == Demand::Receive && m_received == m_request.total) {
            m_end->write(&THANKS, 1);
        }
    }

    //! Returns whether the request is complete.
    bool readRequest()
    {
        const qint64 size = m_end->read(reinterpret_cast<char*>(&m_request) + m_known,
                                        static_cast<qint64>(sizeof m_request) - m_known);
        m_known += std::max<qint64>(0, size);
        if (m_known < static_cast<qint64>(sizeof m_request))
            return false;
        if (m_request.demand == Demand::Echo)
            m_piece = QByteArray(m_request.pieceSize, 'e');
        else if (m_request.demand == Demand::Send)
            sendAll(m_end, m_request.pieceSize, m_request.total);
        return true;
    }

    QTcpSocket* m_end;
    Request m_request{};
    qint64 m_known = 0; //!< How much of the request has arrived.
    qint64 m_received = 0;
    QByteArray m_piece;
};

class Listener : public QTcpServer
{
public:
    explicit Listener(const Setup& setup)
        : m_factory(setup)
    {
        setMaxPendingConnections(1024);
        if (!listen(QHostAddress::LocalHost))
            fail(QStringLiteral("cannot listen on loopback"));
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        QTcpSocket* end = m_factory.makeServerEnd(descriptor);
        auto* conversation = new Conversation(end);
        connect(end, &QTcpSocket::disconnected, end, &QObject::deleteLater);
        whenReady(end, m_factory.setup(), [conversation] { conversation->greet(); });
    }

private:
    EndpointFactory m_factory;
};

class QtServer : public Server
{
public:
    explicit QtServer(const Setup& setup)
        : m_setup(setup)
    {
        m_thread.reset(QThread::create([this] { run(); }));
        m_thread->start();
        m_running.acquire();
    }

    ~QtServer() override
    {
        QMetaObject::invokeMethod(
            m_loop, [loop = m_loop] { loop->quit(); }, Qt::QueuedConnection);
        m_thread->wait();
    }

    quint16 port() const override { return m_port; }

private:
    void run()
    {
        QEventLoop loop;
        Listener listener(m_setup);
        m_loop = &loop;
        m_port = listener.serverPort();
        m_running.release();
        loop.exec();
    }

    Setup m_setup;
    std::unique_ptr<QThread> m_thread;
    QSemaphore m_running;
    QEventLoop* m_loop = nullptr;
    quint16 m_port = 0;
};

class BareServer : public Server
{
public:
    explicit BareServer(const Setup& setup)
        : m_context(setup, EngineContext::Role::Server)
        , m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_listener, generic, size) != 0 || listen(m_listener, SOMAXCONN) != 0
            || getsockname(m_listener, generic, &size) != 0) {
            fail(QStringLiteral("a bare server cannot listen"));
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { run(); });
    }

    ~BareServer() override
    {
        shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        close(m_listener);
    }

    quint16 port() const override { return m_port; }

private:
    void run() const
    {
        for (;;) {
            const int descriptor = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (descriptor < 0)
                return;
            BareConnection connection(m_context, EngineContext::Role::Server, descriptor);
            converse(connection);
        }
    }

    static void converse(BareConnection& connection)
    {
        connection.write(connection.isResumed() ? &GREETING_AGAIN : &GREETING, 1);
        Request request{};
        const int known = connection.read(reinterpret_cast<char*>(&request), sizeof request);
        if (known == 0)
            return;
        connection.readExactly(reinterpret_cast<char*>(&request) + known,
                               static_cast<int>(sizeof request) - known);
        if (request.demand == Demand::Send) {
            connection.send(request.pieceSize, request.total);
        } else if (request.demand == Demand::Receive) {
            connection.receive(request.total);
            connection.write(&THANKS, 1);
        } else {
            echo(connection, request.pieceSize);
        }
        char rest = 0;
        connection.read(&rest, 1); // Until the client goes.
    }

    static void echo(BareConnection& connection, int pieceSize)
    {
        std::vector<char> piece(static_cast<std::size_t>(pieceSize));
        for (;;) {
            const int known = connection.read(piece.data(), pieceSize);
            if (known == 0)
                return;
            if (known < pieceSize)
                connection.readExactly(piece.data() + known, pieceSize - known);
            connection.write(piece.data(), pieceSize);
        }
    }

    EngineContext m_context;
    int m_listener;
    quint16 m_port = 0;
    std::thread m_thread;
};

} // namespace

std::unique_ptr<Server> Server::start(const Setup& setup)
{
    if (setup.subject == Subject::BareLoop)
        return std::make_unique<BareServer>(setup);
    return std::make_unique<QtServer>(setup);
}

} // namespace bench

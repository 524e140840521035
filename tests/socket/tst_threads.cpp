// SPDX-License-Identifier: BSD-3-Clause
#include "EventWait.h"

#include "tests/common/FreshPort.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QEventLoop>
#include <QtCore/QThread>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using namespace test;
using vela::SslSocket;

namespace {

constexpr int THREADS = 8;
constexpr int ROUNDS = 100;

//! The certificate that all servers use, made before there are threads.
struct ServerFiles
{
    Identity identity = makeIdentity(CertificateSpec());
    PemDirectory directory;
    QString certificate = directory.writeCertificate(QStringLiteral("certificate.pem"), identity);
    QString key = directory.writeKey(QStringLiteral("key.pem"), identity);
};

//! Echoes on the thread that made it.
class EchoServer : public QTcpServer
{
public:
    EchoServer(QByteArray certificate, QByteArray key, QByteArray ciphers = QByteArray())
        : m_certificate(std::move(certificate))
        , m_key(std::move(key))
        , m_ciphers(std::move(ciphers))
    {
        test::listenOnFreshPort(this);
    }

private:
    void incomingConnection(qintptr descriptor) override
    {
        auto* transport = new QTcpSocket;
        transport->setSocketDescriptor(descriptor);
        auto* socket = new SslSocket(SslSocket::Server, this);
        socket->setPathToCertificate(QFile::decodeName(m_certificate));
        socket->setPathToPrivateKey(QFile::decodeName(m_key));
        socket->setCiphers(QString::fromLatin1(m_ciphers));
        connect(socket, &SslSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &SslSocket::readyRead, socket,
                [socket] { socket->write(socket->readAll()); });
        socket->setSocket(transport);
    }

    QByteArray m_certificate;
    QByteArray m_key;
    QByteArray m_ciphers;
};

//! Connects \a socket, has a text echoed, and disconnects; on the socket's own thread.
bool converse(SslSocket& socket, quint16 port, bool* reused)
{
    QByteArray echo;
    const auto writing = QObject::connect(&socket, &SslSocket::connected, &socket, [&socket] {
        socket.socket()->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        socket.write("from thread to thread");
    });
    const auto reading = QObject::connect(&socket, &SslSocket::readyRead, &socket,
                                          [&] { echo += socket.readAll(); });
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    const bool echoed = waitFor([&] { return echo == "from thread to thread"; });
    *reused = socket.isSessionReused();
    socket.disconnectFromHost();
    const bool ended = waitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; });
    QObject::disconnect(writing);
    QObject::disconnect(reading);
    return echoed && ended;
}

//! What one thread of the test has to say at its end.
struct Outcome
{
    int conversations = 0;
    int resumptions = 0;
};

Outcome talkToOneself(const QByteArray& certificate, const QByteArray& key)
{
    const QEventLoop dispatcher; // Brings events to a thread that is not Qt's.
    Outcome outcome;
    {
        EchoServer server(certificate, key);
        SslSocket reconnecting(SslSocket::Client);
        for (int round = 0; round < ROUNDS; ++round) {
            bool reused = false;
            SslSocket fresh(SslSocket::Client);
            SslSocket& socket = round % 2 ? fresh : reconnecting;
            outcome.conversations += converse(socket, server.serverPort(), &reused) ? 1 : 0;
            outcome.resumptions += reused ? 1 : 0;
        }
    }
    settle(); // The inner sockets are deleted later.
    return outcome;
}

//! Returns in how many rounds \a cipher, and no other of TLS 1.2, was agreed on.
int talkWithOneCipher(const QByteArray& certificate, const QByteArray& key,
                      const QByteArray& cipher)
{
    const QEventLoop dispatcher; // Brings events to a thread that is not Qt's.
    int agreements = 0;
    {
        EchoServer server(certificate, key, QByteArrayLiteral("ALL"));
        for (int round = 0; round < ROUNDS; ++round) {
            bool reused = false;
            SslSocket socket(SslSocket::Client);
            socket.setCiphers(QString::fromLatin1(cipher));
            QString agreed;
            QObject::connect(&socket, &SslSocket::connected, &socket,
                             [&] { agreed = socket.getCipherName(); });
            const bool conversed = converse(socket, server.serverPort(), &reused);
            // That of TLS 1.3 is not chosen from the list.
            const bool fits =
                agreed == QLatin1String(cipher) || agreed.startsWith(QLatin1String("TLS_"));
            agreements += conversed && fits ? 1 : 0;
        }
    }
    settle(); // The inner sockets are deleted later.
    return agreements;
}

/*!
    A thread that runs functions given to it, one after the other, without an event loop of its own
    in between. Functions and their results are handed over in a way that ThreadSanitizer sees.
*/
class Worker
{
public:
    Worker()
        : m_thread([this] { run(); })
    {
        m_qtThread = m_started.get_future().get();
    }

    ~Worker()
    {
        hand(nullptr).get();
        m_thread.join();
    }

    QThread* qtThread() const { return m_qtThread; }

    std::future<void> hand(std::function<void()> function)
    {
        auto job = std::make_unique<Job>();
        job->function = std::move(function);
        std::future<void> done = job->done.get_future();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_jobs.push_back(std::move(job));
        }
        m_arrival.notify_one();
        return done;
    }

private:
    struct Job
    {
        std::function<void()> function;
        std::promise<void> done;
    };

    std::unique_ptr<Job> take()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrival.wait(lock, [this] { return !m_jobs.empty(); });
        std::unique_ptr<Job> job = std::move(m_jobs.front());
        m_jobs.erase(m_jobs.begin());
        return job;
    }

    void run()
    {
        const QEventLoop dispatcher; // Brings events to a thread that is not Qt's.
        m_started.set_value(QThread::currentThread());
        for (;;) {
            const std::unique_ptr<Job> job = take();
            const bool last = !job->function;
            if (!last)
                job->function();
            job->done.set_value();
            if (last)
                return;
        }
    }

    std::promise<QThread*> m_started;
    QThread* m_qtThread = nullptr;
    std::mutex m_mutex;
    std::condition_variable m_arrival;
    std::vector<std::unique_ptr<Job>> m_jobs;
    std::thread m_thread; // Last: it uses the other members.
};

} // namespace

//! Sockets on several threads at once. The checks are one half; the other is ThreadSanitizer.
class TestThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void socketsOfManyThreadsShareTheContext();
    void socketsOfManyThreadsEachHaveTheirCiphers();
    void socketGoesOnInTheThreadItWasMovedTo();
    void callsFromOtherThreadsRunOnTheSocketsOwn();

private:
    ServerFiles m_files;
};

// Qt registers types when it first needs them, under a lock of its own that ThreadSanitizer does
// not see. So that is done while there is but one thread.
void TestThreads::initTestCase()
{
    EchoServer server(QFile::encodeName(m_files.certificate), QFile::encodeName(m_files.key));
    SslSocket socket(SslSocket::Client);
    bool reused = false;
    QVERIFY(converse(socket, server.serverPort(), &reused));
}

void TestThreads::socketsOfManyThreadsShareTheContext()
{
    const QByteArray certificate = QFile::encodeName(m_files.certificate);
    const QByteArray key = QFile::encodeName(m_files.key);
    std::vector<Outcome> outcomes(THREADS);
    std::vector<std::future<void>> threads;
    for (Outcome& outcome : outcomes) {
        threads.push_back(std::async(std::launch::async, [&] {
            outcome =
                talkToOneself(QByteArray(certificate.constData()), QByteArray(key.constData()));
        }));
    }
    QString statistics;
    for (const std::future<void>& thread : threads) {
        do
            statistics = SslSocket::printStatistics();
        while (thread.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready);
    }
    QVERIFY(statistics.startsWith(QLatin1String("OpenSSL Session Statistics")));
    for (const Outcome& outcome : outcomes) {
        QCOMPARE(outcome.conversations, ROUNDS);
        QCOMPARE(outcome.resumptions, ROUNDS - 1);
    }
}

// Cipher lists go by way of what all connections share.
void TestThreads::socketsOfManyThreadsEachHaveTheirCiphers()
{
    const QByteArray certificate = QFile::encodeName(m_files.certificate);
    const QByteArray key = QFile::encodeName(m_files.key);
    const char* const ciphers[] = {"ECDHE-ECDSA-AES128-SHA", "ECDHE-ECDSA-AES256-SHA",
                                   "ECDHE-ECDSA-AES256-GCM-SHA384"};
    std::vector<std::future<int>> threads;
    for (int number = 0; number < THREADS; ++number) {
        const char* const cipher = ciphers[std::size_t(number) % std::size(ciphers)];
        threads.push_back(std::async(std::launch::async, [&, cipher] {
            return talkWithOneCipher(QByteArray(certificate.constData()),
                                     QByteArray(key.constData()), cipher);
        }));
    }
    for (std::future<int>& thread : threads)
        QCOMPARE(thread.get(), ROUNDS);
}

void TestThreads::socketGoesOnInTheThreadItWasMovedTo()
{
    EchoServer server(QFile::encodeName(m_files.certificate), QFile::encodeName(m_files.key));
    const quint16 port = server.serverPort();
    Worker worker;
    std::unique_ptr<SslSocket> socket(new SslSocket(SslSocket::Client));
    bool connected = false;
    connect(socket.get(), &SslSocket::connected, this, [&] { connected = true; });
    socket->connectToHost(QStringLiteral("127.0.0.1"), port);
    QVERIFY(waitFor([&] { return connected; }));
    socket->disconnect(this);

    socket->moveToThread(worker.qtThread());
    bool echoed = false;
    bool again = false;
    std::atomic<bool> over{false};
    QAbstractEventDispatcher* const waiting = QAbstractEventDispatcher::instance();
    std::future<void> done = worker.hand([&] {
        QByteArray echo;
        connect(socket.get(), &SslSocket::readyRead, socket.get(),
                [&] { echo += socket->readAll(); });
        socket->write("moved");
        echoed = waitFor([&] { return echo == "moved"; });
        socket->disconnectFromHost();
        waitFor([&] { return socket->state() == QAbstractSocket::UnconnectedState; });
        socket->disconnect(socket.get());
        bool reused = false;
        again = converse(*socket, port, &reused) && reused;
        socket.reset();
        settle();
        over = true;
        waiting->wakeUp(); // Not by an event: ThreadSanitizer does not see how Qt hands those over.
    });
    QVERIFY(waitFor([&] { return over.load(); }));
    done.get();
    QVERIFY(echoed);
    QVERIFY(again);
}

void TestThreads::callsFromOtherThreadsRunOnTheSocketsOwn()
{
    EchoServer server(QFile::encodeName(m_files.certificate), QFile::encodeName(m_files.key));
    Worker worker;
    SslSocket socket(SslSocket::Client);
    int connections = 0;
    int ends = 0;
    QThread* const own = QThread::currentThread();
    bool strayed = false;
    connect(
        &socket, &SslSocket::stateChanged, &socket,
        [&] { strayed = strayed || QThread::currentThread() != own; }, Qt::DirectConnection);
    connect(&socket, &SslSocket::connected, this, [&] { ++connections; });
    connect(&socket, &SslSocket::disconnected, this, [&] { ++ends; });
    for (int round = 1; round <= 5; ++round) {
        const quint16 port = server.serverPort();
        worker.hand([&socket, port] { socket.connectToHost(QStringLiteral("127.0.0.1"), port); })
            .get();
        QVERIFY(waitFor([&] { return connections == round; }));
        worker.hand([&socket] { socket.disconnectFromHost(); }).get();
        QVERIFY(waitFor([&] { return ends == round; }));
        settle();
    }
    QVERIFY(!strayed);
}

int main(int argc, char** argv)
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    qputenv("SSL_CERT_FILE", "/dev/null"); // Each server socket reads the default authorities.
    QCoreApplication application(argc, argv);
    TestThreads test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_threads.moc"

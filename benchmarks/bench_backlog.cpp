// SPDX-License-Identifier: BSD-3-Clause

/*
    What it costs to decrypt data that has piled up, by the size of the pile. The cost for each MiB
    should not depend on the size: printed is its ratio to that of the smallest pile.

    The peer is OpenSSL alone. Everything arrives in the inner socket before the first byte is
    decrypted; only the decryption is timed, with a host that reads each piece in readyRead().
   Rounds of different sizes take turns in random order.
*/

#include <Ferrule/SslSocket.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTextStream>
#include <QtNetwork/QTcpServer>

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <ctime>
#include <functional>

namespace {

constexpr int MIB = 1024 * 1024;
constexpr int ROUNDS = 11;
constexpr double LARGEST_RATIO = 1.5;
const QList<int> SIZES = {1, 16, 64};

[[noreturn]] void fail(const char* what)
{
    qFatal("bench_backlog: %s", what);
}

//! A TLS server over memory: takes and gives octets, knows no socket.
class Peer
{
public:
    Peer()
    {
        m_context = SSL_CTX_new(SSLv23_method());
        makeIdentity();
        m_ssl = SSL_new(m_context);
        m_input = BIO_new(BIO_s_mem());
        m_output = BIO_new(BIO_s_mem());
        SSL_set_bio(m_ssl, m_input, m_output);
        SSL_set_accept_state(m_ssl);
    }

    ~Peer()
    {
        SSL_free(m_ssl);
        SSL_CTX_free(m_context);
    }

    //! Takes octets from the other end and returns the answer.
    QByteArray handshake(const QByteArray& octets)
    {
        BIO_write(m_input, octets.constData(), octets.size());
        SSL_do_handshake(m_ssl);
        return takeOutput();
    }

    bool isReady() const { return SSL_is_init_finished(m_ssl); }

    QByteArray encrypt(const QByteArray& data)
    {
        if (SSL_write(m_ssl, data.constData(), data.size()) != data.size())
            fail("the peer cannot encrypt");
        return takeOutput();
    }

private:
    void makeIdentity()
    {
        EVP_PKEY_CTX* generator = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
        EVP_PKEY* key = nullptr;
        EVP_PKEY_keygen_init(generator);
        EVP_PKEY_CTX_set_rsa_keygen_bits(generator, 2048);
        if (EVP_PKEY_keygen(generator, &key) != 1)
            fail("no key could be made");
        EVP_PKEY_CTX_free(generator);
        X509* x509 = X509_new();
        ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
        X509_gmtime_adj(X509_get_notBefore(x509), -3600);
        X509_gmtime_adj(X509_get_notAfter(x509), 3600);
        X509_set_pubkey(x509, key);
        X509_sign(x509, key, EVP_sha256());
        SSL_CTX_use_certificate(m_context, x509);
        SSL_CTX_use_PrivateKey(m_context, key);
        X509_free(x509);
        EVP_PKEY_free(key);
    }

    QByteArray takeOutput()
    {
        QByteArray output(static_cast<int>(BIO_pending(m_output)), Qt::Uninitialized);
        if (!output.isEmpty())
            BIO_read(m_output, output.data(), output.size());
        return output;
    }

    SSL_CTX* m_context;
    SSL* m_ssl;
    BIO* m_input;
    BIO* m_output;
};

void processEventsUntil(const std::function<bool()>& condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > 60000)
            fail("nothing happened for a minute");
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    }
}

//! Returns the seconds of processor time that decrypting a backlog of \a size MiB takes.
double decryptBacklog(int size)
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        fail("cannot listen on loopback");
    vela::SslSocket client(vela::SslSocket::Client);
    client.connectToHost(QStringLiteral("localhost"), server.serverPort());
    processEventsUntil([&] { return server.hasPendingConnections(); });
    QTcpSocket* transport = server.nextPendingConnection();
    Peer peer;
    const auto answer = [&] { transport->write(peer.handshake(transport->readAll())); };
    QObject::connect(transport, &QIODevice::readyRead, transport, answer);
    answer(); // The hello may be here already.
    processEventsUntil(
        [&] { return peer.isReady() && client.state() == QAbstractSocket::ConnectedState; });

    qint64 pending = 0;
    client.socket()->blockSignals(true);
    const QByteArray data(MIB, 'x');
    for (int i = 0; i < size; ++i) {
        const QByteArray wire = peer.encrypt(data);
        pending += wire.size();
        transport->write(wire);
    }
    processEventsUntil([&] { return client.socket()->bytesAvailable() >= pending; });
    client.socket()->blockSignals(false);

    qint64 read = 0;
    QObject::connect(&client, &QIODevice::readyRead, &client, [&] {
        char piece[4096];
        read += client.read(piece, sizeof piece);
    });
    // Processor time: a long round would be interrupted more often than a short one.
    const std::clock_t start = std::clock();
    QMetaObject::invokeMethod(&client, "readFromSocket");
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    if (read != static_cast<qint64>(size) * MIB)
        fail("not everything was decrypted");
    return seconds;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        if (type != QtDebugMsg)
            QTextStream(stderr) << text << '\n';
    });

    QList<int> schedule;
    for (int round = 0; round < ROUNDS; ++round)
        schedule += SIZES;
    std::shuffle(schedule.begin(), schedule.end(), *QRandomGenerator::global());
    decryptBacklog(SIZES.first()); // The first of all pays for caches and lazy loading.
    QMap<int, QList<double>> milliseconds;
    for (int size : qAsConst(schedule))
        milliseconds[size].append(decryptBacklog(size) * 1000 / size);

    QTextStream out(stdout);
    out << "decrypting a backlog, " << SSLeay_version(SSLEAY_VERSION) << ", median of " << ROUNDS
        << " rounds\n"
        << "  size MiB   ms per MiB   fastest   slowest   ratio to 1 MiB\n";
    const double base = median(milliseconds.value(SIZES.first()));
    bool linear = true;
    for (int size : SIZES) {
        const QList<double> values = milliseconds.value(size);
        const double ratio = median(values) / base;
        linear = linear && ratio <= LARGEST_RATIO;
        out << QStringLiteral("%1 %2 %3 %4 %5\n")
                   .arg(size, 10)
                   .arg(median(values), 12, 'f', 3)
                   .arg(*std::min_element(values.begin(), values.end()), 9, 'f', 3)
                   .arg(*std::max_element(values.begin(), values.end()), 9, 'f', 3)
                   .arg(ratio, 16, 'f', 2);
    }
    out << (linear ? "linear: no ratio is above 1.5\n" : "NOT linear: a ratio is above 1.5\n");
    return linear ? 0 : 1;
}

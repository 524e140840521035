// SPDX-License-Identifier: BSD-3-Clause
#include "EmissionLog.h"
#include "EventWait.h"
#include "TcpPair.h"

#include "tests/common/TestCertificates.h"
#include "tests/common/Wine.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <list>
#include <memory>

using namespace test;
using vela::SslSocket;

namespace {

constexpr int CONCURRENT_STREAMS = 32;

//! Of how many streams one is sent byte by byte. All of them take minutes under Wine.
#ifdef Q_OS_WIN
constexpr int SLOW_STREAM_INTERVAL = 16;
#else
constexpr int SLOW_STREAM_INTERVAL = 1;
#endif

struct ServerFiles
{
    Identity identity = makeIdentity(CertificateSpec());
    PemDirectory directory;
    QString certificate = directory.writeCertificate(QStringLiteral("certificate.pem"), identity);
    QString key = directory.writeKey(QStringLiteral("key.pem"), identity);
};

enum class Pace {
    Whole,
    ByteByByte
};

/*!
    One recorded stream on its way to one socket. The peer closes the connection after the last
    byte; a host that does nothing about errors lets it run that far.
*/
class Replay
{
public:
    Replay(SslSocket::Mode mode, const ServerFiles& files, const QString& path, Pace pace);
    ~Replay();

    bool isOver() const
    {
        if (m_peer->state() == QAbstractSocket::UnconnectedState)
            noticeEnd(m_socket->socket());
        return m_socket->state() == QAbstractSocket::UnconnectedState
               && m_socket->socket()->state() == QAbstractSocket::UnconnectedState;
    }
    //! Empty when the connection ended as it must.
    QByteArray complaint() const;

private:
    void start();
    void sendNext();

    QByteArray m_stream;
    Pace m_pace;
    int m_sent = 0;
    std::unique_ptr<QTcpSocket> m_peer;
    std::unique_ptr<SslSocket> m_socket;
    std::unique_ptr<EmissionLog> m_log;
};

Replay::Replay(SslSocket::Mode mode, const ServerFiles& files, const QString& path, Pace pace)
    : m_pace(pace)
    , m_socket(new SslSocket(mode))
    , m_log(new EmissionLog(m_socket.get()))
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(path));
    m_stream = file.readAll();

    const TcpPair pair;
    m_peer.reset(pair.far);
    m_socket->setPathToCertificate(files.certificate);
    m_socket->setPathToPrivateKey(files.key);
    m_socket->setSocket(pair.near);
    if (mode == SslSocket::Client)
        m_socket->sslConnect();
    start();
}

Replay::~Replay()
{
    m_socket.reset();
    settle(); // The inner socket is deleted later.
}

void Replay::start()
{
    if (m_pace == Pace::Whole) {
        m_peer->write(m_stream);
        m_peer->disconnectFromHost();
        return;
    }
    // Each byte leaves when the one before has been taken, so that none arrive together.
    QObject::connect(m_socket->socket(), &QIODevice::readyRead, m_socket.get(),
                     [this] { sendNext(); });
    m_peer->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    sendNext();
}

void Replay::sendNext()
{
    if (m_sent == m_stream.size()) {
        m_peer->disconnectFromHost();
        return;
    }
    m_peer->write(m_stream.constData() + m_sent++, 1);
    m_peer->flush();
}

QByteArray Replay::complaint() const
{
    if (m_log->count("connected") > 0)
        return ": connected";
    if (m_log->count("connectionVerificationDone") > 0)
        return ": judged a peer that proved nothing";
    if (m_log->count("error") != m_log->count("errorOccurred"))
        return ": error and errorOccurred differ in number";
    if (m_log->count("error") == 0 && m_log->count("disconnected") == 0)
        return ": neither an error nor an end";
    return QByteArray();
}

} // namespace

/*!
    What peers have sent to clients and to servers in the corpora of another project's fuzzers,
    mostly damaged handshakes. A replay cannot answer our random numbers: none may succeed.
*/
class TestPeerStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noStreamConnectsOrHarms_data();
    void noStreamConnectsOrHarms();
};

void TestPeerStreams::noStreamConnectsOrHarms_data()
{
    QTest::addColumn<int>("pace");
    QTest::newRow("whole") << int(Pace::Whole);
    QTest::newRow("byte by byte") << int(Pace::ByteByByte);
}

/*!
    The environment says which streams: a directory, the role of the socket, and which part of how
    many, for several such programs to share the work.
*/
void TestPeerStreams::noStreamConnectsOrHarms()
{
    QFETCH(int, pace);
    const QDir directory(qEnvironmentVariable("FERRULE_STREAMS"));
    const auto mode = static_cast<SslSocket::Mode>(qEnvironmentVariableIntValue("FERRULE_MODE"));
    const int part = qEnvironmentVariableIntValue("FERRULE_PART");
    const int parts = qEnvironmentVariableIntValue("FERRULE_PARTS");
    const int expected = qEnvironmentVariableIntValue("FERRULE_STREAM_COUNT");
    const QStringList names = directory.entryList(QDir::Files, QDir::Name);
    QVERIFY(parts > 0);
    QCOMPARE(names.size(), expected);

    const ServerFiles files;
    // Each server socket reads the default authorities; those of the system take long.
    qputenv("SSL_CERT_FILE", QFile::encodeName(files.certificate));
    std::list<std::pair<QString, std::unique_ptr<Replay>>> running;
    const int step = static_cast<Pace>(pace) == Pace::Whole ? parts : parts * SLOW_STREAM_INTERVAL;
    for (int next = part; next < names.size() || !running.empty();) {
        while (next < names.size() && running.size() < CONCURRENT_STREAMS) {
            const QString& name = names.at(next);
            running.emplace_back(name,
                                 std::make_unique<Replay>(mode, files, directory.filePath(name),
                                                          static_cast<Pace>(pace)));
            next += step;
        }
        const auto over = [](const auto& entry) { return entry.second->isOver(); };
        const auto anyOver = [&] { return std::any_of(running.begin(), running.end(), over); };
        QVERIFY2(waitFor(anyOver), qPrintable(running.front().first));
        for (const auto& entry : running) {
            if (over(entry)) {
                const QByteArray complaint = entry.second->complaint();
                QVERIFY2(complaint.isEmpty(),
                         qPrintable(entry.first + QString::fromLatin1(complaint)));
            }
        }
        running.remove_if(over);
    }
}

QTEST_GUILESS_MAIN(TestPeerStreams)
#include "tst_peerstreams.moc"

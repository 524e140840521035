// SPDX-License-Identifier: BSD-3-Clause
#include "tests/interop/TlsPeers.h"

#include <QtCore/QDeadlineTimer>

#include <openssl/opensslv.h>

namespace test {

namespace {

const QString LENIENT_CIPHERS = QStringLiteral("DEFAULT:@SECLEVEL=0");

#if OPENSSL_VERSION_NUMBER >= 0x10101000L
constexpr bool ENGINE_SPEAKS_TLS13 = true;
#else
constexpr bool ENGINE_SPEAKS_TLS13 = false;
#endif
#if OPENSSL_VERSION_NUMBER >= 0x10100000L
constexpr bool ENGINE_HAS_SECURITY_LEVELS = true;
#else
constexpr bool ENGINE_HAS_SECURITY_LEVELS = false;
#endif

std::vector<TlsVersion> makeVersions()
{
    std::vector<TlsVersion> versions;
    if (ENGINE_SPEAKS_TLS13) {
        versions.push_back(
            {QStringLiteral("1.3"), QStringLiteral("-tls1_3"), QStringLiteral("TLSv1.3"), false});
    }
    versions.push_back(
        {QStringLiteral("1.2"), QStringLiteral("-tls1_2"), QStringLiteral("TLSv1.2"), false});
    versions.push_back(
        {QStringLiteral("1.1"), QStringLiteral("-tls1_1"), QStringLiteral("TLSv1.1"), true});
    versions.push_back(
        {QStringLiteral("1.0"), QStringLiteral("-tls1"), QStringLiteral("TLSv1"), true});
    return versions;
}

QByteArray rowName(const TlsVersion& version, const char* suffix = "")
{
    return "TLS " + version.name.toLatin1() + suffix;
}

} // namespace

QStringList TlsVersion::opensslOptions() const
{
    QStringList options{openssl};
    if (legacy)
        options << QStringLiteral("-cipher") << LENIENT_CIPHERS;
    return options;
}

QString TlsVersion::gnutlsPriority() const
{
    return QStringLiteral("NORMAL:-VERS-ALL:+VERS-TLS") + name;
}

QString TlsVersion::peerCiphers() const
{
    return legacy ? LENIENT_CIPHERS : QStringLiteral("DEFAULT");
}

QString TlsVersion::ciphers() const
{
    return legacy && ENGINE_HAS_SECURITY_LEVELS ? LENIENT_CIPHERS : QString();
}

const std::vector<TlsVersion>& sharedVersions()
{
    static const std::vector<TlsVersion> versions = makeVersions();
    return versions;
}

void addVersionRows()
{
    QTest::addColumn<TlsVersion>("version");
    for (const TlsVersion& version : sharedVersions())
        QTest::newRow(rowName(version).constData()) << version;
}

void addResumptionRows()
{
    QTest::addColumn<TlsVersion>("version");
    QTest::addColumn<bool>("tickets");
    for (const TlsVersion& version : sharedVersions()) {
        QTest::newRow(rowName(version, " by ticket").constData()) << version << true;
        if (version.name != QLatin1String("1.3"))
            QTest::newRow(rowName(version, " by identifier").constData()) << version << false;
    }
}

PeerFiles::PeerFiles()
    : identity(authority.issue())
    , certificate(directory.writeCertificate(QStringLiteral("certificate.pem"), identity))
    , key(directory.writeKey(QStringLiteral("key.pem"), identity))
{
}

bool establish(vela::SslSocket* socket, const QString& host, quint16 port)
{
    QSignalSpy connected(socket, &QAbstractSocket::connected);
    QSignalSpy failed(socket, &QAbstractSocket::errorOccurred);
    socket->connectToHost(host, port);
    if (connected.isEmpty() && failed.isEmpty())
        connected.wait(CONNECT_TIMEOUT_MS);
    if (connected.count() != 1 || !failed.isEmpty())
        qWarning("no connection: %s", qPrintable(socket->errorString()));
    return connected.count() == 1 && failed.isEmpty();
}

bool finishConnection(vela::SslSocket* socket)
{
    socket->disconnectFromHost();
    if (socket->state() == QAbstractSocket::UnconnectedState)
        return true;
    QSignalSpy disconnected(socket, &QAbstractSocket::disconnected);
    return disconnected.wait(CONNECT_TIMEOUT_MS);
}

TestClient::TestClient(const PeerFiles& files, const TlsVersion& version)
    : SslSocket(Client)
{
    setPathToCACertFile(files.authority.caFile);
    setCiphers(version.ciphers());
    connect(this, &SslSocket::connectionVerificationDone, this,
            [this](vela::CertVerify result, bool matched, const QString& text) {
                verdict = result;
                hostNameMatched = matched;
                description = text;
            });
}

TestServer::TestServer(const PeerFiles& files, const TlsVersion& version)
    : TlsServer(files.identity)
{
    configure = [ciphers = version.ciphers()](vela::SslSocket* socket) {
        socket->setCiphers(ciphers);
    };
    connect(this, &TlsServer::accepted, this, [this](vela::SslSocket* socket) {
        connect(socket, &QAbstractSocket::connected, this, [this, socket] {
            m_connected.append(socket);
            Q_EMIT peerConnected();
        });
        connect(socket, &QAbstractSocket::errorOccurred, this,
                [socket] { qInfo("server: %s", qPrintable(socket->errorString())); });
    });
}

vela::SslSocket* TestServer::awaitPeer()
{
    if (m_connected.isEmpty()) {
        QSignalSpy connected(this, &TestServer::peerConnected);
        connected.wait(CONNECT_TIMEOUT_MS);
    }
    return m_connected.isEmpty() ? nullptr : m_connected.takeFirst().data();
}

bool readHeader(vela::SslSocket* socket, QByteArray* header)
{
    header->clear();
    const QDeadlineTimer deadline(CONNECT_TIMEOUT_MS);
    while (!deadline.hasExpired()) {
        while (socket->canReadLine()) {
            const QByteArray line = socket->readLine();
            if (line.trimmed().isEmpty())
                return true;
            header->append(line);
        }
        QSignalSpy ready(socket, &QIODevice::readyRead);
        ready.wait(int(deadline.remainingTime()));
    }
    return false;
}

} // namespace test

#include "moc_TlsPeers.cpp"

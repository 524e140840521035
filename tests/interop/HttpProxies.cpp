// SPDX-License-Identifier: BSD-3-Clause
#include "tests/interop/HttpProxies.h"

#include "tests/common/OpenSslCommand.h"

#include <QtCore/QStandardPaths>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace test {

namespace {

// In one process, without a cache and without asking name servers.
const char SQUID[] = R"(
http_port 127.0.0.1:@PORT@
pid_filename none
visible_hostname localhost
coredump_dir @DIRECTORY@
cache_log /dev/null
access_log none
cache deny all
cache_mem 8 MB
max_filedescriptors 1024
pinger_enable off
dns_nameservers 127.0.0.1
shutdown_lifetime 0 seconds
@ACCESS@
)";

const char SQUID_PASSWORDS[] = R"(
auth_param basic program @HELPER@ @DIRECTORY@/passwords
auth_param basic children 1 startup=1
auth_param basic realm Test
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
)";

const char TINYPROXY[] = R"(
Listen 127.0.0.1
Port @PORT@
Timeout 60
MaxClients 100
LogLevel Warning
@ACCESS@
)";

QString passwordHelper()
{
    return QStandardPaths::findExecutable(
        QStringLiteral("basic_ncsa_auth"),
        {QStringLiteral("/usr/lib/squid"), QStringLiteral("/usr/lib64/squid")});
}

} // namespace

ProxyProcess::ProxyProcess(Kind kind)
    : PeerProcess(kind == Squid ? QStringLiteral("squid") : QStringLiteral("tinyproxy"))
    , m_kind(kind)
{
    if (geteuid() != 0)
        return;
    if (const passwd* account = getpwnam("nobody")) {
        m_userId = account->pw_uid;
        m_groupId = account->pw_gid;
    }
    QFile::setPermissions(m_directory.path(), QFile::permissions(m_directory.path())
                                                  | QFile::ReadOther | QFile::ExeOther);
}

bool ProxyProcess::serve(const QString& user, const QString& password)
{
    m_user = user;
    m_password = password;
    // Squid's own port stands in its answers.
    do
        stop();
    while (runServer([this](quint16 port) { return arguments(port); }) && looksLikeSuccess(port()));
    return state() == Running;
}

void ProxyProcess::setupChildProcess()
{
    if (m_userId != 0
        && (setgroups(0, nullptr) != 0 || setgid(m_groupId) != 0 || setuid(m_userId) != 0))
        _exit(1);
    PeerProcess::setupChildProcess();
}

QStringList ProxyProcess::arguments(quint16 port) const
{
    QByteArray text = m_kind == Squid ? squidConfiguration() : tinyproxyConfiguration();
    text.replace("@DIRECTORY@", m_directory.path().toLocal8Bit());
    text.replace("@PORT@", QByteArray::number(port));
    const QString file = m_directory.write(QStringLiteral("configuration"), text);
    if (m_kind == Squid)
        return {QStringLiteral("-N"), QStringLiteral("-d1"), QStringLiteral("-f"), file};
    return {QStringLiteral("-d"), QStringLiteral("-c"), file};
}

QByteArray ProxyProcess::squidConfiguration() const
{
    if (m_user.isEmpty())
        return QByteArray(SQUID).replace("@ACCESS@", "http_access allow all");
    const QByteArray hash =
        runOpenSsl({QStringLiteral("passwd"), QStringLiteral("-apr1"), m_password});
    m_directory.write(QStringLiteral("passwords"), m_user.toUtf8() + ':' + hash);
    return QByteArray(SQUID)
        .replace("@ACCESS@", SQUID_PASSWORDS)
        .replace("@HELPER@", passwordHelper().toLocal8Bit());
}

QByteArray ProxyProcess::tinyproxyConfiguration() const
{
    const QByteArray access =
        m_user.isEmpty() ? QByteArray()
                         : "BasicAuth " + (m_user + QLatin1Char(' ') + m_password).toUtf8();
    return QByteArray(TINYPROXY).replace("@ACCESS@", access);
}

void addProxyRows()
{
    QTest::addColumn<ProxyProcess::Kind>("proxy");
    QTest::newRow("squid") << ProxyProcess::Squid;
    QTest::newRow("tinyproxy") << ProxyProcess::Tinyproxy;
}

bool looksLikeSuccess(quint16 port)
{
    return QByteArray::number(port).contains("200");
}

TunnelClient::TunnelClient(const PeerFiles& files, const ProxyProcess& proxy, const QString& user,
                           const QString& password)
{
    setPathToCACertFile(files.authority.caFile);
    setProxy(QStringLiteral("127.0.0.1"), proxy.port(), user, password);
    connect(this, &SslProxySocket::tunnelEstablished, this, [this] { ++tunnels; });
    connect(this, &SslSocket::connectionVerificationDone, this,
            [this](vela::CertVerify result, bool matched) {
                verdict = result;
                hostNameMatched = matched;
            });
}

} // namespace test

#include "moc_HttpProxies.cpp"

// SPDX-License-Identifier: BSD-3-Clause
#include "Setup.h"

#include "Options.h"

#include <QtCore/QTextStream>

#include <openssl/opensslv.h>

#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

namespace bench {

namespace {

const char* const HELD = "FERRULE_BENCH_PROTOCOL";

void printMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type != QtDebugMsg)
        QTextStream(stderr) << text << '\n';
}

} // namespace

QString nameOf(Subject subject)
{
    switch (subject) {
    case Subject::Ferrule:
        return QStringLiteral("Ferrule");
    case Subject::QSslSocket:
        return QStringLiteral("QSslSocket");
    case Subject::QTcpSocket:
        return QStringLiteral("QTcpSocket");
    case Subject::BareLoop:
        return QStringLiteral("bare loop");
    case Subject::EngineAlone:
        return QStringLiteral("engine alone");
    case Subject::AesGcmAlone:
        return QStringLiteral("AES-GCM alone");
    }
    return QString();
}

QString nameOf(Protocol protocol)
{
    return protocol == Protocol::Tls12 ? QStringLiteral("TLS 1.2") : QStringLiteral("TLS 1.3");
}

QString nameOf(Arrangement arrangement)
{
    return arrangement == Arrangement::Threads ? QStringLiteral("threads")
                                               : QStringLiteral("processes");
}

QList<Protocol> protocols()
{
#if OPENSSL_VERSION_NUMBER >= 0x10101000L
    return {Protocol::Tls12, Protocol::Tls13};
#else
    return {Protocol::Tls12};
#endif
}

QJsonObject Setup::json() const
{
    return {{QStringLiteral("subject"), static_cast<int>(subject)},
            {QStringLiteral("protocol"), static_cast<int>(protocol)},
            {QStringLiteral("certificate"), certificateFile},
            {QStringLiteral("key"), keyFile}};
}

Setup Setup::fromJson(const QJsonObject& json)
{
    Setup setup;
    setup.subject = static_cast<Subject>(json.value(QStringLiteral("subject")).toInt());
    setup.protocol = static_cast<Protocol>(json.value(QStringLiteral("protocol")).toInt());
    setup.certificateFile = json.value(QStringLiteral("certificate")).toString();
    setup.keyFile = json.value(QStringLiteral("key")).toString();
    return setup;
}

Setup Setup::as(Subject other) const
{
    Setup setup = *this;
    setup.subject = other;
    return setup;
}

QString cipherName(Protocol protocol)
{
    return protocol == Protocol::Tls12 ? QStringLiteral("AES256-GCM-SHA384")
                                       : QStringLiteral("TLS_AES_256_GCM_SHA384");
}

QString protocolConfiguration(Protocol protocol)
{
    const QByteArray version = protocol == Protocol::Tls12 ? "TLSv1.2" : "TLSv1.3";
    const QByteArray text = "openssl_conf = program\n[program]\nssl_conf = contexts\n"
                            "[contexts]\nsystem_default = limits\n[limits]\n"
                            "CipherString = AES256-GCM-SHA384\n"
                            "Ciphersuites = TLS_AES_256_GCM_SHA384\n"
                            "MinProtocol = "
                            + version + "\nMaxProtocol = " + version + '\n';
    const int file = memfd_create("openssl.cnf", 0);
    if (file < 0 || write(file, text.constData(), static_cast<std::size_t>(text.size())) < 0)
        fail(QStringLiteral("no configuration for OpenSSL could be made"));
    return QStringLiteral("/proc/self/fd/%1").arg(file);
}

void holdToProtocol(Protocol protocol, char** argv)
{
    if (qEnvironmentVariableIsSet(HELD))
        return;
    qputenv(HELD, "1");
    qputenv("OPENSSL_CONF", protocolConfiguration(protocol).toLatin1());
    execv("/proc/self/exe", argv);
    fail(QStringLiteral("the program cannot be started again"));
}

void prepareProcess()
{
    qInstallMessageHandler(printMessage);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace bench

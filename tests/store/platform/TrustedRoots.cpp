// SPDX-License-Identifier: BSD-3-Clause
#include "TrustedRoots.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

namespace test {

QByteArray toPem(const QByteArray& der)
{
    constexpr int LINE_LENGTH = 64;
    const QByteArray base64 = der.toBase64();
    QByteArray pem = "-----BEGIN CERTIFICATE-----\n";
    for (int i = 0; i < base64.size(); i += LINE_LENGTH)
        pem += base64.mid(i, LINE_LENGTH) + '\n';
    return pem + "-----END CERTIFICATE-----\n";
}

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

Environment::~Environment()
{
    const QList<QByteArray> variables = m_before.keys();
    for (const QByteArray& variable : variables)
        set(variable, m_before.value(variable));
}

void Environment::set(const QByteArray& variable, const QByteArray& value)
{
    if (!m_before.contains(variable)) {
        m_before.insert(variable, qEnvironmentVariableIsSet(variable.constData())
                                      ? QByteArray("").append(qgetenv(variable.constData()))
                                      : QByteArray());
    }
    if (value.isNull())
        qunsetenv(variable.constData());
    else
        qputenv(variable.constData(), value);
}

TrustedRoots::TrustedRoots()
{
    if (!m_directory.isValid())
        qFatal("TrustedRoots: %s", qPrintable(m_directory.errorString()));
    m_environment.set("SSL_CERT_FILE", QFile::encodeName(bundlePath()));
    m_environment.set("SSL_CERT_DIR", QByteArray());
    m_environment.set("XDG_DATA_HOME", QFile::encodeName(path(QStringLiteral("data"))));
}

void TrustedRoots::setBundle(const QByteArray& pem)
{
    QSaveFile file(bundlePath());
    if (!file.open(QIODevice::WriteOnly) || file.write(pem) != pem.size() || !file.commit())
        qFatal("TrustedRoots: %s", qPrintable(file.errorString()));
}

void TrustedRoots::setRoots(const QList<QByteArray>& ders)
{
    QByteArray pem;
    for (const QByteArray& der : ders)
        pem += toPem(der);
    setBundle(pem);
}

QString TrustedRoots::path(const QString& name) const
{
    return QDir(m_directory.path()).filePath(name);
}

QString TrustedRoots::bundlePath() const
{
    return path(QStringLiteral("bundle.pem"));
}

QString TrustedRoots::userDirectory() const
{
    return path(QStringLiteral("data/ferrule/roots"));
}

} // namespace test

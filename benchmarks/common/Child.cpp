// SPDX-License-Identifier: BSD-3-Clause
#include "Child.h"

#include "Options.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>

#include <cstdio>
#include <iostream>
#include <string>

namespace bench {

namespace {

constexpr int ANSWER_MILLISECONDS = 120000;
constexpr int END_MILLISECONDS = 5000;

QByteArray line(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

Child::Child(const QStringList& arguments, Protocol protocol)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("OPENSSL_CONF"), protocolConfiguration(protocol));
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QCoreApplication::applicationFilePath(), arguments);
    if (!m_process.waitForStarted())
        fail(QStringLiteral("the program cannot be started again"));
}

Child::~Child()
{
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(END_MILLISECONDS)) {
        m_process.kill();
        m_process.waitForFinished(END_MILLISECONDS);
    }
}

QJsonObject Child::read()
{
    QElapsedTimer timer;
    timer.start();
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(ANSWER_MILLISECONDS)
            || timer.hasExpired(ANSWER_MILLISECONDS)) {
            fail(QStringLiteral("a child process does not answer"));
        }
    }
    return QJsonDocument::fromJson(m_process.readLine()).object();
}

QJsonObject Child::ask(const QJsonObject& question)
{
    m_process.write(line(question));
    return read();
}

void answerParent(const std::function<QJsonObject(const QJsonObject&)>& answer)
{
    std::string text;
    while (std::getline(std::cin, text))
        tellParent(answer(QJsonDocument::fromJson(QByteArray::fromStdString(text)).object()));
}

void tellParent(const QJsonObject& object)
{
    const QByteArray text = line(object);
    std::cout.write(text.constData(), text.size());
    std::cout.flush();
}

} // namespace bench

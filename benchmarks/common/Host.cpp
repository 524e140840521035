// SPDX-License-Identifier: BSD-3-Clause
#include "Host.h"

#include <QtCore/QJsonDocument>

namespace bench {

namespace {

QString serveOption()
{
    return QStringLiteral("--serve");
}

QString portField()
{
    return QStringLiteral("port");
}

} // namespace

Host::Host(const Setup& setup, Arrangement arrangement)
{
    if (arrangement == Arrangement::Threads) {
        m_server = Server::start(setup);
        m_port = m_server->port();
        return;
    }
    const QByteArray json = QJsonDocument(setup.json()).toJson(QJsonDocument::Compact);
    m_child = std::make_unique<Child>(QStringList{serveOption(), QString::fromUtf8(json)},
                                      setup.protocol);
    m_port = static_cast<quint16>(m_child->read().value(portField()).toInt());
}

bool serveParent(const QStringList& arguments)
{
    if (arguments.value(1) != serveOption())
        return false;
    const QJsonDocument json = QJsonDocument::fromJson(arguments.value(2).toUtf8());
    const std::unique_ptr<Server> server = Server::start(Setup::fromJson(json.object()));
    tellParent({{portField(), server->port()}});
    answerParent([](const QJsonObject& question) { return question; });
    return true;
}

} // namespace bench

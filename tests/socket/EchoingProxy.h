// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_ECHOINGPROXY_H
#define FERRULE_TESTS_ECHOINGPROXY_H

#include "RawTlsPeer.h"
#include "ScriptedProxy.h"

namespace test {

//! A proxy with its targets in one: after the reply it is a TLS server that echoes.
class EchoingProxy : public ScriptedProxy
{
    Q_OBJECT

public:
    EchoingProxy()
    {
        connect(this, &ScriptedProxy::requested, this, [this](QTcpSocket* connection) {
            m_servers.push_back(std::make_unique<RawTlsPeer>(connection, End::Server));
            m_servers.back()->start();
        });
    }

    //! The server on the latest connection.
    RawTlsPeer* server() const { return m_servers.empty() ? nullptr : m_servers.back().get(); }

private:
    std::vector<std::unique_ptr<RawTlsPeer>> m_servers;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_SERVER_H
#define FERRULE_BENCH_SERVER_H

#include "Setup.h"

#include <memory>

namespace bench {

//! A server on 127.0.0.1 that does what clients demand, in a thread of its own.
class Server
{
public:
    virtual ~Server() = default;

    virtual quint16 port() const = 0;

    //! A Qt socket, or Subject::BareLoop, which serves one connection after another.
    static std::unique_ptr<Server> start(const Setup& setup);

protected:
    Server() = default;

private:
    Q_DISABLE_COPY(Server)
};

} // namespace bench

#endif

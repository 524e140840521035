// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_HOST_H
#define FERRULE_BENCH_HOST_H

#include "Child.h"
#include "Server.h"

#include <QtCore/QStringList>

namespace bench {

//! A Server where an Arrangement wants it.
class Host
{
public:
    Host(const Setup& setup, Arrangement arrangement);

    quint16 port() const { return m_port; }

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<Child> m_child;
    quint16 m_port = 0;
};

/*!
    Does the work of a Host's child process if that is what \a arguments ask for, and returns
    whether it was. To be called by main() before it looks at its arguments.
*/
bool serveParent(const QStringList& arguments);

} // namespace bench

#endif

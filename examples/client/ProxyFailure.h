// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PROXYFAILURE_H
#define FERRULE_EXAMPLES_PROXYFAILURE_H

#include <QtNetwork/QAbstractSocket>

//! Says that the proxy gave \a answer, which is no success, by its first line.
QString proxyRefusal(const QString& answer);

//! Says that the connection to the proxy failed; the socket has no more to tell than \a error.
QString proxyConnectionFailure(QAbstractSocket::SocketError error);

#endif

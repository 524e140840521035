// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PROXYOPTIONS_H
#define FERRULE_EXAMPLES_PROXYOPTIONS_H

#include <QtCore/QByteArray>
#include <QtCore/QStringList>
#include <QtNetwork/QHostAddress>

//! The statuses with which ferrule-proxy ends; ProxyOptions::parse() explains them to users.
enum ExitStatus {
    ExitOk = 0,
    ExitUsage = 1,
    ExitCannotListen = 2
};

//! What the command line asks for.
struct ProxyOptions
{
    QHostAddress address;
    quint16 port = 0;
    QByteArray credentials; //!< "user:password" in Latin-1; empty when clients need none.
    int timeoutMsecs = 0;   //!< For the request and for the connection; 0 for no limit.

    /*!
        Reads \a arguments, the program's name first. Returns false when the program is to end with
        \a status: after an error, which it prints, and after --help and --version.
    */
    bool parse(const QStringList& arguments, int& status);
};

#endif

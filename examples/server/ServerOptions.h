// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_SERVEROPTIONS_H
#define FERRULE_EXAMPLES_SERVEROPTIONS_H

#include "common/TlsSettings.h"

#include <QtCore/QStringList>
#include <QtNetwork/QHostAddress>

//! The statuses with which ferrule-server ends; ServerOptions::parse() explains them to users.
enum ExitStatus {
    ExitOk = 0,
    ExitUsage = 1,
    ExitSettings = 2,
    ExitCannotListen = 3
};

//! What the command line asks for.
struct ServerOptions
{
    QHostAddress address;
    quint16 port = 0;
    TlsSettings tls;
    QString file;            //!< What to send to each client; empty to echo.
    int timeoutMsecs = 0;    //!< For the handshake; 0 for no limit.
    qint64 backlogLimit = 0; //!< In bytes.
    bool verbose = false;

    /*!
        Reads \a arguments, the program's name first. Returns false when the program is to end with
        \a status: after an error, which it prints, and after --help and --version.
    */
    bool parse(const QStringList& arguments, int& status);
};

#endif

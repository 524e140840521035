// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CLIENTOPTIONS_H
#define FERRULE_EXAMPLES_CLIENTOPTIONS_H

#include "client/ProxyOption.h"
#include "common/TlsSettings.h"

#include <QtCore/QStringList>

#include <optional>

//! The statuses with which ferrule-client ends; ClientOptions::parse() explains them to users.
enum ExitStatus {
    ExitOk = 0,
    ExitUsage = 1,
    ExitSettings = 2,
    ExitNoConnection = 3,
    ExitNoHandshake = 4,
    ExitTimeout = 5,
    ExitVerdict = 6,
    ExitHostName = 7,
    ExitBroken = 8,
    ExitStandardStream = 9
};

//! Which store judges the peer, beside the verdict of the connection.
enum class StoreChoice {
    None,
    System,
    Bundle
};

//! What the command line asks for.
struct ClientOptions
{
    Endpoint peer;
    ProxyOption proxy;
    TlsSettings tls;
    std::optional<QString> serverName; //!< Empty for none; without a value, that of the peer.
    int connections = 1;
    int timeoutMsecs = 0;          //!< 0 for no limit.
    int closeAfterInputMsecs = -1; //!< -1 to wait for the peer's close.
    StoreChoice store = StoreChoice::None;
    bool quiet = false;
    bool requireOk = false;
    bool requireHostName = false;
    bool verbose = false;

    /*!
        Reads \a arguments, the program's name first. Returns false when the program is to end with
        \a status: after an error, which it prints, and after --about, --help and --version.
    */
    bool parse(const QStringList& arguments, int& status);
};

#endif

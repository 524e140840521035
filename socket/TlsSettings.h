// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TLSSETTINGS_H
#define FERRULE_TLSSETTINGS_H

#include <QtCore/QString>

#include <optional>

namespace vela {

//! What a host has set for the connections that a socket is to make; see SslSocket.
struct TlsSettings
{
    QString pathToCertificate;
    QString certificateSource; // Counts as a certificate; nothing sets it yet.
    QString pathToPrivateKey;
    QString pathToCACertFile;
    QString pathToCACertDir;
    QString ciphers;
    //! Without a value, the name that the host connects to; empty for none.
    std::optional<QString> serverName;
};

} // namespace vela

#endif

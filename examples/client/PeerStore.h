// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PEERSTORE_H
#define FERRULE_EXAMPLES_PEERSTORE_H

#include "client/ClientOptions.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QStringList>

namespace vela {
class SslSocket;
}

/*! What a store says about a peer. */
struct StoreVerdict
{
    vela::CertVerify verdict = vela::VerifyUnknown;
    QStringList rows; //!< The same for a human reader.
};

/*! The store that judges peers, beside the verdict of their connections. */
class PeerStore
{
public:
    //! Sets up the store \a choice. Returns an error text, null for success.
    QString load(StoreChoice choice);

    //! Judges the peer of \a socket, whose handshake is over. Without a store there are no rows.
    StoreVerdict judge(const vela::SslSocket& socket);

private:
    QStringList judgementRows(const vela::SslCertificateChain& chain) const;

    vela::GenericCertStore m_bundle{nullptr};
    vela::CertificateStore* m_store = nullptr;
};

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_PEERREPORT_H
#define FERRULE_EXAMPLES_PEERREPORT_H

#include <Ferrule/CertVerify.h>

#include <QtCore/QString>

namespace vela {
class SslSocket;
}

/*!
    Describes the connection of \a socket in lines for a human reader: the verdict, the cipher, the
    session and the peer's certificate. To be called with what connectionVerificationDone() says,
    in its slot or later.
*/
QString peerReport(const vela::SslSocket& socket, vela::CertVerify verdict, bool hostNameMatched,
                   const QString& description);

/*!
    Returns \a description, which connectionVerificationDone() gave; for a peer without a
    certificate, of which it would say that it has expired, a text of its own.
*/
QString peerDescription(const vela::SslSocket& socket, const QString& description);

#endif

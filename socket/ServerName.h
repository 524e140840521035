// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SERVERNAME_H
#define FERRULE_SERVERNAME_H

#include "support/OpenSslCompat.h"

#include <QtCore/QByteArray>

#include <openssl/ssl.h>

namespace vela {

/*!
    The server name of a connection: the one that its client sends, or has sent. Must stay where it
    is for as long as the connection lives.
*/
class ServerName
{
public:
    /*!
        Has \a ssl send \a name, unless it is empty, if it becomes a client; as a server it is to
        note here what its client has sent. Returns false when OpenSSL is out of memory.
    */
    bool begin(SSL* ssl, const QByteArray& name);

    //! What comes in later handshakes does not count.
    void handshakeCompleted() { m_settled = true; }

    void clear();

    //! Returns the name as readHostName() gives it; empty when there is none.
    const QByteArray& name() const { return m_name; }

private:
    //! Called by OpenSSL with each extension of the peer's.
    static void extensionCame(SSL* ssl, int fromServer, int type, ExtensionOctet* data, int size,
                              void* serverName);

    QByteArray m_name;
    bool m_settled = false;
};

} // namespace vela

#endif

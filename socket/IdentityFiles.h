// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_IDENTITYFILES_H
#define FERRULE_IDENTITYFILES_H

#include "socket/FileVersion.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace vela {

class ContextLock;

/*!
    Certificate and private key of the shared context.

    Reading the two files costs a server as much as a good part of a handshake. What the context has
    is therefore left alone as long as it came from the same files and these have not changed.
*/
class IdentityFiles
{
public:
    //! The outcome of each step of load(), as OpenSSL's error text; null where it succeeded.
    struct Errors
    {
        QString certificate;
        QString key;
        QString match;
    };

    IdentityFiles() = default;

    /*!
        Makes the context use the PEM files \a certificate and \a key. All steps are taken, whatever
        becomes of those before.
    */
    Errors load(const ContextLock& lock, const QByteArray& certificate, const QByteArray& key);

    //! Returns the SHA-1 fingerprint of the certificate that was loaded last; empty before.
    QByteArray fingerprint(const ContextLock&) const { return m_fingerprint; }

private:
    Q_DISABLE_COPY(IdentityFiles)

    //! Files, and the versions in which they were found.
    struct Source
    {
        QByteArray certificate;
        QByteArray key;
        FileVersion certificateVersion;
        FileVersion keyVersion;

        bool isSettled() const { return certificateVersion.isSettled() && keyVersion.isSettled(); }

        bool operator==(const Source& other) const
        {
            return certificate == other.certificate && key == other.key
                   && certificateVersion == other.certificateVersion
                   && keyVersion == other.keyVersion;
        }
    };

    //! Names no file while it is not known for certain where the context's identity came from.
    Source m_source;
    QByteArray m_fingerprint;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_AUTHORITYFILES_H
#define FERRULE_AUTHORITYFILES_H

#include "socket/FileVersion.h"

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QPair>
#include <QtCore/QSet>

#include <openssl/ssl.h>

namespace vela {

class ContextLock;

/*!
    The trusted authorities of the shared context.

    The context keeps what it has loaded, so that a file is read again only when it has changed:
    reading a system's bundle takes longer than a handshake. Where a directory is new, the context
    gets another store, so that nothing changes under handshakes that go on.
*/
class AuthorityFiles
{
public:
    AuthorityFiles() = default;

    //! Makes \a context, which is new and nobody else's yet, ready for the others.
    static void prepare(SSL_CTX* context);

    //! Loads from the places that OpenSSL itself, or its environment variables, name.
    void loadDefaults(const ContextLock& lock);

    /*!
        Loads from \a file and \a directory, either of which may be empty. Returns false, with the
        reason in OpenSSL's error queue, when that fails.
    */
    bool load(const ContextLock& lock, const QByteArray& file, const QByteArray& directory);

    //! Counts how often loading has added authorities: a bad verdict from before may be a good one.
    quint64 generation(const ContextLock&) const { return m_generation; }

private:
    Q_DISABLE_COPY(AuthorityFiles)

    class Addition;

    bool isLoaded(const QByteArray& file, const QByteArray& directory) const;
    void remember(const QByteArray& file, const QByteArray& directory, const FileVersion& version);
    void replaceStore(SSL_CTX* context) const;

    QMap<QPair<QByteArray, QByteArray>, FileVersion> m_loaded;
    QSet<QByteArray> m_directories;
    quint64 m_generation = 0;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SESSIONTERMS_H
#define FERRULE_SESSIONTERMS_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <tuple>

namespace vela {

/*!
    With whom a client made a session: the key under which it is pooled, the server, and the name by
    which that was asked for. Key and server are the same for a connection that the socket itself
    has made. Sockets that were handed a connection have no key of their own, but each a server, and
    what one server said is no other's business; nor is what it said under another name, which may
    be that of another host.
*/
struct SessionOrigin
{
    QString key;
    QString server;
    QByteArray serverName{}; //!< As readHostName() gives it.

    friend bool operator<(const SessionOrigin& a, const SessionOrigin& b)
    {
        return std::tie(a.key, a.server, a.serverName) < std::tie(b.key, b.server, b.serverName);
    }
};

/*!
    The host's settings as they were when a session was made, as far as the session outlives them
    and OpenSSL does not look at them when it resumes one.
*/
struct SessionTerms
{
    int securityLevel = 0;
    //! Fingerprint of the certificate that there was to be shown.
    QByteArray localCertificate;
    //! Which authorities the peer was judged by, as AuthorityFiles::generation() counts them.
    quint64 authorities = 0;
    //! The verdict was good. More authorities would not change that.
    bool verified = false;
    //! The server asked for a certificate. To one that did not, it makes no difference.
    bool certificateWasAsked = false;

    //! Returns whether a session made under these terms would be made again under \a current ones.
    bool hold(const SessionTerms& current) const
    {
        return current.securityLevel <= securityLevel
               && (!certificateWasAsked || current.localCertificate == localCertificate)
               && (verified || current.authorities == authorities);
    }
};

} // namespace vela

#endif

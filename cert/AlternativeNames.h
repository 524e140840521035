// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_ALTERNATIVENAMES_H
#define FERRULE_ALTERNATIVENAMES_H

#include <Ferrule/AlternativeName.h>

#include "support/OpenSslHandles.h"

#include <QtCore/QByteArray>
#include <QtCore/QVector>

#include <openssl/x509v3.h>

namespace vela {

//! The alternative names of the subject of a certificate, decoded once.
class AlternativeNames
{
public:
    //! Decodes what is in \a x509. Errors stay in OpenSSL's queue.
    explicit AlternativeNames(X509* x509);

    /*!
        Returns true if there is something that is no list of names: it cannot be decoded, has no
        element or octets after the last one, or there are several lists. Then no name counts.
    */
    bool isMalformed() const { return m_isMalformed; }

    //! Returns the names in their order.
    QVector<AlternativeName> values() const;

    //! Returns whether a pattern among the host names stands for \a name, the one of a HostName.
    bool matchName(const QByteArray& name) const;

    //! Returns whether the address of these \a octets is among the names.
    bool matchAddress(const QByteArray& octets) const;

    /*!
        Returns whether there is a name of a kind that says which hosts the certificate is for,
        valid or not: a host name, a URI or the name of a service.
    */
    bool nameHosts() const;

private:
    using Names = std::unique_ptr<GENERAL_NAMES, OpenSslDeleter<GENERAL_NAMES_free>>;

    int count() const;
    const GENERAL_NAME* at(int index) const;

    Names m_names;
    bool m_isMalformed = false;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTTRUST_H
#define FERRULE_CERTTRUST_H

#include <QtCore/qglobal.h>

namespace vela {

/*!
    How a certificate came to be accepted. For hosts: the library keeps the value and never acts on
    it. Registered with Qt as "vela::CertAccept" when the library is loaded.
*/
enum CertAccept : unsigned int {
    AcceptNever = 0,    //!< Refused.
    AcceptOnce = 1,     //!< For one connection.
    AcceptSession = 2,  //!< Until the host ends.
    AcceptAlways = 3,   //!< For good.
    AcceptUndecided = 4 //!< Nobody has been asked; what a fresh record says.
};

/*!
    What became of the comparison of a host name with a certificate. For hosts: the library uses
    none of the values. Registered with Qt as "vela::CertHostName" when the library is loaded.
*/
enum CertHostName : unsigned int {
    HostNameUnchecked = 0,
    HostNameMatched = 1,
    HostNameMismatched = 2
};

/*!
    What a store remembers about one certificate. A default constructed record is a fresh one.
    Registered with Qt as "vela::CertTrust" when the library is loaded; about `QVariant` see
    ::CertVerify.
*/
struct CertTrust
{
    quint32 state = 0;                   //!< For the host; the library only copies it.
    CertAccept accept = AcceptUndecided; //!< Set by GenericCertStore::importRootCerts() and hosts.
    qint32 mark = -1;                    //!< For the host; the library only copies it.
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_STORECERTIFICATES_H
#define FERRULE_TESTS_STORECERTIFICATES_H

#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificateChain.h>

#include <initializer_list>

namespace test {

/*! Parses \a pem; each call gives another object, which owns its handle. */
inline vela::SslCertificatePtr parse(const QByteArray& pem)
{
    return vela::SslCertificatePtr(new vela::SslCertificate(pem.constData(), pem.size()));
}

/*! Returns the certificate of \a identity; it does not need the identity any more. */
inline vela::SslCertificatePtr wrap(const Identity& identity)
{
    return parse(identity.certificatePem());
}

inline vela::SslCertificateChain wrapAll(std::initializer_list<Identity> identities)
{
    vela::SslCertificateChain chain;
    for (const Identity& identity : identities)
        chain << wrap(identity);
    return chain;
}

/*! Makes a certificate that is like no other, even under the same name. */
inline Identity makeNamed(const QString& commonName)
{
    CertificateSpec spec;
    spec.commonName = commonName;
    return makeIdentity(spec);
}

/*! Makes a certificate whose subject has no common name. */
inline Identity makeNameless()
{
    CertificateSpec spec;
    spec.subject = {{QByteArrayLiteral("O"), QByteArrayLiteral("Nameless")}};
    return makeIdentity(spec);
}

inline vela::SslCertificateChain chainOf(const QList<vela::SslCertificatePtr>& certificates)
{
    return vela::SslCertificateChain(certificates);
}

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATECONTEXT_H
#define FERRULE_CERTIFICATECONTEXT_H

#include "cert/CertificateOutline.h"
#include "store/platform/CryptoApi.h"

#include <QtCore/QByteArray>
#include <QtCore/qglobal.h>

namespace vela {

//! Returns a context for the encoding \a der, which must live as long.
CERT_CONTEXT certificateContext(const QByteArray& der);

/*!
    What a `PCCERT_CONTEXT` made by the platform points to. The certificate is not decoded before it
    is needed: chains may hold thousands that never are.
*/
class CertificateContext : public CERT_CONTEXT
{
public:
    CertificateContext(const QByteArray& der, const CertificateOutline& outline);

    const QByteArray& der() const { return m_der; }
    const CertificateOutline& outline() const { return m_outline; }

private:
    Q_DISABLE_COPY(CertificateContext)

    const QByteArray m_der;
    const CertificateOutline m_outline;
};

} // namespace vela

#endif

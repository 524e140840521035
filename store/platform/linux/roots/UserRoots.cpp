// SPDX-License-Identifier: BSD-3-Clause
#include "store/platform/linux/roots/UserRoots.h"

#include "cert/CertificateCoding.h"
#include "store/platform/linux/roots/PrivateDirectory.h"
#include "store/platform/linux/roots/RootLocations.h"
#include "store/validation/DecodedCertificate.h"

#include <QtCore/QCryptographicHash>

namespace vela {

DWORD addUserRoot(const QByteArray& der)
{
    const DecodedCertificatePtr certificate = DecodedCertificate::fromDer(der);
    if (!certificate)
        return static_cast<DWORD>(CRYPT_E_ASN1_ERROR);
    // Roots that others could have written are not trusted, so a directory that was theirs to write
    // is closed to them.
    const PrivateDirectory directory(RootLocations::fromEnvironment().userDataDirectory(),
                                     RootLocations::userSubdirectories());
    if (!directory.isOpen())
        return ERROR_ACCESS_DENIED;
    const QByteArray digest = QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex();
    const std::string name = digest.toStdString() + USER_ROOT_SUFFIX;
    const QByteArray pem = pemOf(certificate->x509());
    if (directory.holds(name, pem) || directory.replace(name, pem))
        return ERROR_SUCCESS;
    return ERROR_WRITE_FAULT;
}

} // namespace vela

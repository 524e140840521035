// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_GENERICCERTSTORE_H
#define FERRULE_GENERICCERTSTORE_H

#include <Ferrule/CertificateStore.h>

class QDomElement;
class QIODevice;

namespace vela {

/*!
    A store that is the same on every system. It is filled from a PEM bundle and judges nothing: the
    host reads the trust records and decides.

    \code
    QFile bundle(":/Certificates/RootCerts.pem"); // public roots that the library carries
    bundle.open(QIODevice::ReadOnly);
    vela::GenericCertStore store(nullptr);
    store.importRootCerts(&bundle, vela::AcceptAlways);

    const bool isKnown = store.indexOf(root) >= 0;
    const bool isAccepted = qAsConst(store).trustInfo(root).accept == vela::AcceptAlways;
    \endcode
*/
class FERRULE_EXPORT GenericCertStore : public CertificateStore
{
    Q_OBJECT

public:
    explicit GenericCertStore(QObject* parent);
    ~GenericCertStore() override;

    using CertificateStore::verify;

    //! Returns VerifyUnknown, whatever the chain.
    CertVerify verify(const SslCertificateChain& chain) override;

    //! Does nothing and returns false.
    bool importSystemRootCert(SslCertificatePtr cert) override;

    /*!
        Reads all that \a device, which must be open, has left and stores each certificate in it as
        a chain of its own, in place of an equal one; sets CertTrust::accept of each to \a accept.
        Text before, between and behind the PEM blocks does not matter, up to a NUL, which ends it.
        A damaged block is left out and the others are still read; count() before and after tells
        how many were new. Only blocks of "CERTIFICATE" are read, even where the marker does not
        begin a line; SslCertificateChain::readPem() wants it there, and takes "X509 CERTIFICATE",
        too.

        The text before the first block counts as a certificate without a handle, and so does a
        damaged block: the one trust record that all such certificates share is made, too.

        No other thread may use the store meanwhile.
    */
    virtual void importRootCerts(QIODevice* device, CertAccept accept);

    /*!
        \name The XML form
        It holds an empty element "CertificateStore" and nothing else.

        \warning These do not keep a store: saving writes neither chains nor trust records, and
        opening changes nothing, whatever it reads. Write the chains with
        SslCertificateChain::writePem() and read them with importRootCerts().

        With a \a second that is not empty nothing is read or written. A file is not truncated, so
        that a longer one keeps its tail, and it is created even if nothing is written. Failures
        are not reported.
        \{
    */
    void openRootCerts(const QString& fileName, const QString& second);
    void openRootCerts(QIODevice* device);
    void openRootCerts(const QDomElement& element);
    void saveRootCerts(const QString& fileName, const QString& second);
    void saveRootCerts(QIODevice* device);
    //! \}
};

} // namespace vela

#endif

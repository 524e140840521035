// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATESTORE_H
#define FERRULE_CERTIFICATESTORE_H

#include <Ferrule/CertTrust.h>
#include <Ferrule/CertVerify.h>
#include <Ferrule/Export.h>
#include <Ferrule/SslCertificateChain.h>

#include <QtCore/QMap>
#include <QtCore/QObject>

#include <memory>

namespace vela {

class ChainIndex;
class RecursiveMutex;

/*!
    Keeps certificate chains, each under its end certificate, and a trust record for each
    certificate that somebody has asked one for.

    A certificate is judged only through the chain that was stored for it: add the chain that a
    connection brought, then ask verify().

    \code
    void Client::judge(vela::CertVerify, bool, const QString&)
    {
        const vela::SslCertificateChain borrowed(m_socket->x509peerCertificateChain());
        const vela::SslCertificateChain chain = borrowed.ownedCopy();
        m_store->addCertificateChain(chain);
        if (m_store->verify(chain.endCert()) != vela::VerifyOk)
            m_socket->disconnectFromHost();
    }
    \endcode

    The copy is needed because the connection's chain goes with the connection, and the store's
    does not; see SslCertificateChain.

    Chains stand in the order in which they were added. Operations that find nothing return -1, or
    #EMPTY_CHAIN and #EMPTY_TRUST. Certificates are compared with SslCertificate::equals() and found
    by their fingerprints: a certificate must not change while a store holds it.

    The store emits none of added(), updated() and removed(): they are for subclasses and hosts,
    which know what a change means to them.

    \section store_threads Threads
    addCertificateChain(), addOneCertificate(), removeCertificate() and clear() may be called from
    several threads at once. Nothing else is locked: the queries and trustInfo() must not run while
    another thread changes the store, and removeCertificate() of a certificate looks for it before
    it locks. The store and its signals belong to the thread that made it.
*/
class FERRULE_EXPORT CertificateStore : public QObject
{
    Q_OBJECT

public:
    //! The record of a certificate that has none.
    static const CertTrust EMPTY_TRUST;
    //! The chain that is returned when none was found.
    static const SslCertificateChain EMPTY_CHAIN;
    //! Holds the id under which Qt knows "vela::CertTrust" while the library is loaded.
    static const int g_metaTypes[1];

    ~CertificateStore() override;

    //! Returns the verdict on \a chain, of which nothing need be stored.
    virtual CertVerify verify(const SslCertificateChain& chain) = 0;

    //! Returns the verdict on the chain stored for \a cert, and VerifyFailed when there is none.
    virtual CertVerify verify(SslCertificatePtr cert);

    //! Adds \a cert to the roots that the operating system trusts; returns false if it did not.
    virtual bool importSystemRootCert(SslCertificatePtr cert) = 0;

    /*!
        Stores \a chain, in the place of a chain with the same end certificate if there is one.
        Returns its index, or -1 when the chain has no end certificate.
    */
    int addCertificateChain(const SslCertificateChain& chain);

    //! As addCertificateChain(), with a chain of \a cert alone.
    int addOneCertificate(SslCertificatePtr cert);

    /*!
        Removes the chain at \a index, and the later ones move down. Returns \a index, or -1 when
        there is none. The trust record stays.
    */
    int removeCertificate(int index);
    //! As above, for the chain stored for \a cert.
    int removeCertificate(SslCertificatePtr cert);

    //! Removes all chains and all trust records.
    void clear();

    //! Returns the number of chains.
    int count() const;

    //! Returns the index of the chain whose end certificate is \a cert, or -1.
    int indexOf(SslCertificatePtr cert) const;

    /*!
        Returns the first chain whose end certificate has the common name \a commonName, upper and
        lower case told apart.

        References that this and the other operators return are good until the store changes.
    */
    SslCertificateChain operator[](const QString& commonName);
    const SslCertificateChain& operator[](const QString& commonName) const;

    //! Returns the chain at \a index. Undefined unless 0 <= \a index < count().
    SslCertificateChain operator[](int index);
    const SslCertificateChain& operator[](int index) const;

    //! Returns the chain stored for \a cert.
    SslCertificateChain operator[](SslCertificatePtr cert);
    const SslCertificateChain& operator[](SslCertificatePtr cert) const;

    /*!
        Returns the record of \a cert, which must not be null, to be read and changed; makes a fresh
        one if there is none. Keyed by the SHA-1 fingerprint: all certificates without a handle
        share one record. Good until clear() or the store's end.

        \warning On a store that is not const this is what a mere look calls, too, and it leaves a
        record behind. `qAsConst(store).trustInfo(cert)` only reads.
    */
    CertTrust& trustInfo(SslCertificatePtr cert);
    //! As above for the end certificate of \a chain, which must not be empty.
    CertTrust& trustInfo(const SslCertificateChain& chain);

    //! Returns a copy of the record, #EMPTY_TRUST if there is none or \a cert is null or empty.
    CertTrust trustInfo(SslCertificatePtr cert) const;
    CertTrust trustInfo(const SslCertificateChain& chain) const;

    /*!
        Returns the process's store for certificates of TLS peers, a WinCertStore without parent. It
        is made by the first call, which must not coincide with another first call, and belongs to
        the thread of that call. The library never deletes it. A host may; the next call makes a
        new one then.
    */
    static CertificateStore* sslCertStore();
    //! The same for certificates that sign data.
    static CertificateStore* signCertStore();

    //! Returns a new WinCertStore without parent, which belongs to the caller.
    static CertificateStore* newCertStore();

Q_SIGNALS:
    void added(SslCertificatePtr cert);
    void updated(SslCertificatePtr cert);
    void removed(SslCertificatePtr cert);

    //! The operating system's trust has changed: what verify() said may no longer hold.
    void systemUpdated();

protected:
    explicit CertificateStore(QObject* parent);

    //! The process's stores: for TLS and for signatures. Destroying a store takes it out.
    static CertificateStore* gGlobalInstance[2];

private:
    std::unique_ptr<RecursiveMutex> m_mutex;
    std::unique_ptr<ChainIndex> m_index;
    QList<SslCertificateChain> m_chains;
    QMap<QByteArray, CertTrust> m_trust;
};

} // namespace vela

#endif

// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_SSLCERTIFICATECHAIN_H
#define FERRULE_SSLCERTIFICATECHAIN_H

#include <Ferrule/Export.h>
#include <Ferrule/SslCertificate.h>

#include <QtCore/QList>

// Compiled once, in the library; other programs link to it.
extern template class FERRULE_TEMPLATE_DECLARATION QList<vela::SslCertificatePtr>;

namespace vela {

/*!
    A certificate chain: first the end certificate, which is the peer's own, last the root or the
    highest certificate that was to be had.

    \code
    QList<x509_st*> handles = vela::SslCertificateChain::readPem(pem.constData(), pem.size());
    const vela::SslCertificateChain chain(handles); // refers to the handles, does not own them
    for (const vela::SslCertificatePtr& certificate : chain)
        qDebug() << certificate->subjectCommonName();
    vela::SslCertificateChain::release(handles);    // and now the chain must not be used any more
    \endcode

    A value: copies share the certificates, and it is registered with Qt as
    "vela::SslCertificateChain" when the library is loaded, so that it travels through queued
    signals. There are no locks: one chain may be read from several threads while none changes it.

    \section chain_ownership Raw handles
    A chain made from handles (an `x509_st` is OpenSSL's `X509`) does not own them. They must stay
    alive while the chain, or a copy of it, or one of its certificates is in use, and are freed by
    whoever made them, with release(). A chain of a connection's handles must not outlive the
    connection, in a store neither. ownedCopy() is free of all that:

    \code
    store.addCertificateChain(
        vela::SslCertificateChain(socket->x509peerCertificateChain()).ownedCopy());
    \endcode

    Elements may be null pointers, and certificates without a handle. Where PEM is written, they
    are left out.
*/
class FERRULE_EXPORT SslCertificateChain : public QList<SslCertificatePtr>
{
public:
    //! Constructs an empty chain.
    SslCertificateChain();

    SslCertificateChain(const SslCertificateChain& other);
    SslCertificateChain& operator=(const SslCertificateChain& other);

    SslCertificateChain(const QList<SslCertificatePtr>& certificates);

    //! Wraps each handle without owning it; see \ref chain_ownership.
    SslCertificateChain(const QList<x509_st*>& handles);
    SslCertificateChain& operator=(const QList<x509_st*>& handles);

    virtual ~SslCertificateChain();

    //! Appends, for each handle, a certificate that wraps it without owning it.
    SslCertificateChain& operator<<(const QList<x509_st*>& handles);
    //! The same for one handle; null gives an empty certificate.
    SslCertificateChain& operator<<(x509_st* handle);
    //! Appends \a certificate, null included.
    SslCertificateChain& operator<<(const SslCertificatePtr& certificate);

    /*!
        Compares element by element with SslCertificate::equals(): a null element of this chain
        equals anything in its place. Different sizes are unequal.

        \warning Not symmetric, like SslCertificate::equals(). Where elements may be null, test
        `!chain.contains(SslCertificatePtr())` first. With a plain `QList` on the left, `QList`'s
        own comparison of the pointers runs instead: keep the chain on the left.
    */
    bool operator==(const QList<SslCertificatePtr>& other) const;
    bool operator!=(const QList<SslCertificatePtr>& other) const;

    /*!
        Returns true if there is no end certificate: no element, or a null pointer or a certificate
        without a handle in first place. Stricter than `QList::isEmpty()`, which it hides; size()
        counts all elements.
    */
    bool isEmpty() const;

    /*!
        Returns a chain of new certificates that own what they wrap: good for as long as anybody
        refers to them, whatever becomes of this chain's handles. The ciphers are not copied. Null
        elements stay null, empty ones empty.
    */
    SslCertificateChain ownedCopy() const;

    //! Returns the first element, or null if there is none.
    SslCertificatePtr endCert();
    SslCertificatePtr endCert() const;

    //! Returns the last element, or null if there is none.
    SslCertificatePtr rootCert();
    SslCertificatePtr rootCert() const;

    /*!
        Returns every certificate of the PEM text in its order, up to the first damaged block: good
        blocks behind it are not read. The handles belong to the caller; see release().
    */
    static QList<x509_st*> readPem(const char* data, int length);

    //! Frees every handle that is not null and empties \a handles.
    static void release(QList<x509_st*>& handles);

    //! \name Writing
    //! The PEM blocks of all elements, one after the other, as SslCertificate writes each; the
    //! forms for files do not truncate either, see SslCertificate::writePem().
    //! \{
    QString encodePem() const;
    void writePem(const QString& fileName) const;
    void writePem(QIODevice* device) const;
    void writePem(QTextStream* stream) const;

    static QString encodePem(QList<x509_st*> handles);
    static void writePem(QList<x509_st*> handles, const QString& fileName);
    static void writePem(QList<x509_st*> handles, QIODevice* device);
    static void writePem(QList<x509_st*> handles, QTextStream* stream);
    //! \}
};

} // namespace vela

#endif

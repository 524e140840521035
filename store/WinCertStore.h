// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_WINCERTSTORE_H
#define FERRULE_WINCERTSTORE_H

#include <Ferrule/CertificateStore.h>
#include <Ferrule/CryptoHandles.h>
#include <Ferrule/Export.h>

namespace vela {

/*!
    The store that judges chains by what the operating system trusts, and that notices when this
    changes.

    \code
    vela::CertificateStore* store = vela::CertificateStore::sslCertStore();
    connect(store, &vela::CertificateStore::systemUpdated, this, &Host::judgeAgain);
    if (store->verify(chain) != vela::VerifyOk)
        giveUp();
    \endcode

    The system's own roots are in force, none beside them. Chains and trust records that the host
    keeps in the store have no part in verdicts.

    Nothing fails loudly: a store that could not be set up still answers, with the system's default
    rules or VerifyFailed, and does not notice changes. The log says what went wrong; see Log. Where
    the roots are files, those that cannot be read are passed over, and the log gets one line each
    time the roots are read.

    \section wincertstore_changes Changes of the system's roots
    After each change the store prepares itself anew and emits systemUpdated(): from the event loop
    of its thread, which must have one, or within a verification that finds the change first. The
    host may destroy the store in a slot connected to it.

    \warning A change that arrives while a store is being destroyed, or afterwards, may still call
    into it, because the system's wait is not taken back but merely closed. Keep a store until the
    process ends, as sslCertStore() and signCertStore() do, rather than make one for each use.

    \section wincertstore_threads Threads
    A store serves one thread at a time. Nothing guards a verification against the preparation that
    follows a change of the system's roots: verify on the store's own thread. Where several threads
    verify, give each a store of its own, made and used there.

    \section wincertstore_memory Memory
    The store keeps the certificates of every chain it verifies, but the first of each, so that
   later chains may lack them. On Linux that is bounded: certificates that have stood in a valid
   chain, at most 700 of them and about 10 MiB of memory, and at most 400 others and about 6 MiB;
   the oldest go first, and strangers' never take the place of those that have proven themselves. On
   Windows the system keeps them all, so that a server that verifies chains from strangers grows
   with every new one.

    \section wincertstore_windows On Windows
    The system may fetch missing issuers over the network, so that a verification can take seconds.
    A debugger stops when a store is destroyed, at the closing of the wait for changes.
*/
class FERRULE_EXPORT WinCertStore : public CertificateStore
{
    Q_OBJECT

public:
    explicit WinCertStore(QObject* parent);
    ~WinCertStore() override;

    using CertificateStore::verify;

    /*!
        Returns the system's verdict on \a chain, whose first certificate is judged; the others are
        offered as intermediates and make nothing trusted. Null and empty ones among them are
        skipped.

        - VerifyOk: trusted, now.
        - VerifySelfSigned: not trusted, and the chain ends in a self-signed certificate or has one
          in first place, whatever else is wrong with it.
        - VerifyExpired: outside its validity period, \e before its beginning too.
        - VerifyFailed: anything else, also for an empty chain.

        Neither the host name, nor revocation, nor what the certificate is for is looked at.
    */
    CertVerify verify(const SslCertificateChain& chain) override;

    /*!
        Adds \a cert to the roots that the system trusts, for the user and so for \e other programs
        too. The system may ask the user first. Returns false, with the reason in the log, if it was
        not added; nothing has changed then. The store itself follows with its next systemUpdated().
    */
    bool importSystemRootCert(SslCertificatePtr cert) override;

protected:
    //! Returns a new engine that looks for intermediates in \a additionalStore, too; null if none
    //! could be made. The caller frees it.
    HCERTCHAINENGINE createChainEngine(HCERTSTORE* additionalStore);

    //! Returns \a cert as the system's own kind of certificate, null if there is none or the system
    //! does not take it. The caller frees it.
    PCCERT_CONTEXT createWinCryptCert(SslCertificatePtr cert);

    //! Returns the chain that the system builds for the first certificate of \a chain, trusted or
    //! not; null if it builds none. The caller frees it.
    PCCERT_CHAIN_CONTEXT createWinCryptChain(const SslCertificateChain& chain);

    //! Returns the certificates of all simple chains of \a chainContext, which may be null, in
    //! their order. They own what they wrap.
    SslCertificateChain toCertChain(PCCERT_CHAIN_CONTEXT chainContext);

    //! Called by the system, on a thread of its own, when its roots have changed; \a context is the
    //! store.
    static void storeModifiedCallback(void* context, BOOLEAN timedOut);

protected Q_SLOTS:
    //! Takes in what has changed, waits for the next change and emits systemUpdated().
    void resetChainEngine();

private:
    void offerIntermediates(const SslCertificateChain& chain);

    HCERTCHAINENGINE m_chainEngine = nullptr;
    HCERTSTORE m_rootStore = nullptr;
    HANDLE m_changeEvent = nullptr;
    HANDLE m_waitHandle = nullptr;
    HCERTSTORE m_extraStore = nullptr;
};

} // namespace vela

#endif

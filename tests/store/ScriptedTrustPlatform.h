// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SCRIPTEDTRUSTPLATFORM_H
#define FERRULE_TESTS_SCRIPTEDTRUSTPLATFORM_H

#include "ScriptedChain.h"

#include "store/platform/TrustPlatform.h"

#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <map>
#include <memory>
#include <string>

namespace test {

/*!
    Takes the place of the operating system while it lives: writes down what it is asked, and
    answers as it was told to. Not for use from several threads.

    A call is written as "operation argument argument ... -> result". Handles have names ("root",
    "extra", "event", "wait"; "engine 1" and "engine 2" for the first and the second that was made;
    "context of leaf" and "chain of leaf" for what belongs to the certificate called that in
    nameCertificate()). A handle that was given back already is written as "dangling".
*/
class ScriptedTrustPlatform : public vela::TrustPlatform
{
public:
    ScriptedTrustPlatform();
    ~ScriptedTrustPlatform() override;

    //! Returns what was called since the last time, in order.
    QStringList takeCalls();

    //! Returns the names of the handles that were not given back.
    QStringList openHandles() const;

    void nameCertificate(const QByteArray& der, const QString& name);

    /*!
        Lets the operation fail from now on with error \a code. Creating the context of one
        certificate only is "createCertificateContext leaf".
    */
    void fail(const QString& operation, DWORD code);
    //! Lets the operation work again.
    void repair(const QString& operation);

    //! What the system says about every chain.
    void setReport(const ChainReport& report);

    //! What formatMessage() leaves in the buffer, its end included; by default nothing.
    void setMessage(const std::wstring& message);

    //! Lets the next pollEvent() find the event signalled, and no later one.
    void signalEvent();

    //! Calls back, from another thread, what was registered to wait. Returns after the call.
    void fireWait(bool timedOut = false);
    //! What is handed to the callback.
    void* waitContext() const;

    HCERTSTORE openSystemStore(HCRYPTPROV_LEGACY provider, LPCWSTR name) override;
    HCERTSTORE openStore(LPCSTR storeProvider, DWORD encodingType, HCRYPTPROV_LEGACY provider,
                         DWORD flags, const void* parameter) override;
    BOOL controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) override;
    BOOL closeStore(HCERTSTORE store, DWORD flags) override;
    HANDLE createEvent(BOOL manualReset, BOOL initiallySignalled) override;
    BOOL registerWait(HANDLE* waitHandle, HANDLE event, WAITORTIMERCALLBACK callback, void* context,
                      DWORD milliseconds, DWORD flags) override;
    DWORD pollEvent(HANDLE event) override;
    BOOL closeHandle(HANDLE handle) override;
    BOOL createChainEngine(CERT_CHAIN_ENGINE_CONFIG* config, HCERTCHAINENGINE* engine) override;
    void freeChainEngine(HCERTCHAINENGINE engine) override;
    PCCERT_CONTEXT createCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD length) override;
    BOOL freeCertificateContext(PCCERT_CONTEXT context) override;
    BOOL addCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context, DWORD disposition,
                                      PCCERT_CONTEXT* added) override;
    BOOL getCertificateChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT context, FILETIME* time,
                             HCERTSTORE additionalStore, CERT_CHAIN_PARA* para, DWORD flags,
                             void* reserved, PCCERT_CHAIN_CONTEXT* chainContext) override;
    void freeCertificateChain(PCCERT_CHAIN_CONTEXT chainContext) override;
    BOOL addEncodedCertificateToSystemStore(LPCWSTR storeName, const BYTE* encoded,
                                            DWORD length) override;
    DWORD lastError() override;
    DWORD formatMessage(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                        LPWSTR buffer, DWORD size) override;

private:
    struct Handle
    {
        QString name;
        std::shared_ptr<void> object; //!< What the handle points to.
    };

    //! Writes down a call; the result follows.
    void note(const QString& operation, const QStringList& arguments);
    void noteResult(const QString& result);
    //! Writes down whether the call worked, which it does unless it was told to fail.
    BOOL noteOutcome(const QString& operation, bool handlesAreOpen = true);

    template <typename T>
    T* add(const QString& name, std::shared_ptr<T> object);
    void* addOpaque(const QString& operation, const QString& name);
    bool isOpen(const void* handle) const;
    BOOL close(const void* handle);
    QString nameOf(const void* handle) const;
    QString nameAt(const void* handlePointer) const;
    QString certificateName(const BYTE* encoded, DWORD length) const;

    TrustPlatform* m_replaced;
    QStringList m_calls;
    std::map<const void*, Handle> m_open;
    std::vector<Handle> m_closed; //!< Kept, so that no handle is given out twice.
    QMap<QByteArray, QString> m_certificates;
    QMap<QString, DWORD> m_failures;
    DWORD m_lastError = 0;
    int m_engines = 0;
    ChainReport m_report;
    std::wstring m_message;
    bool m_signalled = false;
    WAITORTIMERCALLBACK m_callback = nullptr;
    void* m_waitContext = nullptr;
};

} // namespace test

#endif

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/store/platform/ImportedRoots.h"

#include <csignal>

namespace test {

namespace {

//! Calls \a use with the certificate \a der in the user's "ROOT" store, null if it is not there.
template <typename Use>
void withStored(const QByteArray& der, Use use)
{
    const HCERTSTORE store = CertOpenSystemStoreW(0, L"ROOT");
    const PCCERT_CONTEXT wanted =
        CertCreateCertificateContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.data()),
                                     static_cast<DWORD>(der.size()));
    use(CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, wanted,
                                   nullptr));
    CertFreeCertificateContext(wanted);
    CertControlStore(store, 0, CERT_STORE_CTRL_COMMIT, nullptr); // Wine forgets it when closing.
    CertCloseStore(store, 0);
}

} // namespace

ImportedRoots* ImportedRoots::current = nullptr;

ImportedRoots::ImportedRoots()
{
    current = this;
    std::signal(SIGABRT, removeAndAbort);
}

ImportedRoots::~ImportedRoots()
{
    remove();
    current = nullptr;
}

void ImportedRoots::removeAndAbort(int)
{
    if (current)
        current->remove();
}

void ImportedRoots::removeLeftovers(const QByteArray& text)
{
    const HCERTSTORE store = CertOpenSystemStoreW(0, L"ROOT");
    while (PCCERT_CONTEXT const found = CertFindCertificateInStore(
               store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_A, text.constData(), nullptr)) {
        if (!CertDeleteCertificateFromStore(found))
            break;
    }
    CertControlStore(store, 0, CERT_STORE_CTRL_COMMIT, nullptr);
    CertCloseStore(store, 0);
}

void ImportedRoots::remove()
{
    for (const QByteArray& der : qAsConst(m_expected)) {
        withStored(der, [](PCCERT_CONTEXT found) {
            if (found)
                CertDeleteCertificateFromStore(found); // Frees it, too.
        });
    }
}

bool ImportedRoots::contains(const QByteArray& der)
{
    bool isThere = false;
    withStored(der, [&isThere](PCCERT_CONTEXT found) {
        isThere = found != nullptr;
        CertFreeCertificateContext(found);
    });
    return isThere;
}

} // namespace test

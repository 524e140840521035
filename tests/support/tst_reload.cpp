// SPDX-License-Identifier: BSD-3-Clause

/*
    A host that loads the library while it runs, and unloads it again. It does not link to it, but
    to Qt and to OpenSSL, which stay and must not keep anything that points into what has gone.

    Qt Network in particular has to be the host's own: once a host name was looked up, Qt Network
    waits for the end of the application object, and must not be unloaded together with the library.
*/

#include "tests/support/HostModule.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMetaType>
#include <QtNetwork/QHostInfo>
#include <QtTest/QtTest>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>

using test::HostModule;

namespace {

constexpr int ROUNDS = 3;
constexpr int BUNDLE_SIZE = 168;

const QList<QByteArray> TYPE_NAMES = {"SslCertificatePtr",  "vela::SslCertificateChain",
                                      "vela::CertVerify",   "vela::CertAccept",
                                      "vela::CertHostName", "vela::CertTrust"};

const QStringList RESOURCES = {QStringLiteral(":/Certificates/RootCerts.pem"),
                               QStringLiteral(":/Translations/Ferrule_de.qm"),
                               QStringLiteral(":/Translations/Ferrule_fr.qm")};

//! Returns the names of all that lies at the top of Qt's resources.
QStringList resourceRoots()
{
    return QDir(QStringLiteral(":/")).entryList();
}

int knownTypes()
{
    int known = 0;
    for (const QByteArray& name : TYPE_NAMES)
        known += QMetaType::type(name.constData()) != QMetaType::UnknownType ? 1 : 0;
    return known;
}

int existingResources()
{
    int existing = 0;
    for (const QString& path : RESOURCES)
        existing += QFile::exists(path) ? 1 : 0;
    return existing;
}

//! Does with OpenSSL what takes its locks, its random numbers and its error queue.
bool engineWorks()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest("text", 4, digest, &length, EVP_sha256(), nullptr) != 1)
        return false;
    SSL_CTX* const context = SSL_CTX_new(SSLv23_method());
    SSL* const ssl = SSL_new(context);
    SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(ssl);
    const bool waits = SSL_get_error(ssl, SSL_do_handshake(ssl)) == SSL_ERROR_WANT_READ;
    const bool wrote = BIO_pending(SSL_get_wbio(ssl)) > 0;
    SSL_free(ssl);
    SSL_CTX_free(context);
    return waits && wrote;
}

} // namespace

class ReloadTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void libraryWorksAfterEachLoad();
    void libraryLeavesNothingBehind();

private:
    void checkGone() const;

    QStringList m_resourceRoots;
};

void ReloadTest::initTestCase()
{
    SSL_library_init();
    QVERIFY(!QHostInfo::localHostName().isEmpty()); // Makes the linker keep Qt Network.
    m_resourceRoots = resourceRoots();
    QVERIFY(engineWorks());
    checkGone();
}

void ReloadTest::checkGone() const
{
    QVERIFY(!HostModule::isFerruleMapped());
    QCOMPARE(existingResources(), 0);
    QCOMPARE(resourceRoots(), m_resourceRoots);
    QCOMPARE(knownTypes(), 0);
    QVERIFY(CRYPTO_get_locking_callback() == nullptr);
    QVERIFY(CRYPTO_THREADID_get_callback() == nullptr);
    QVERIFY(engineWorks());
}

void ReloadTest::libraryWorksAfterEachLoad()
{
    for (int round = 0; round < ROUNDS; ++round) {
        HostModule plugin(QStringLiteral(RELOAD_PLUGIN));
        QVERIFY(plugin.isLoaded());
        QVERIFY(HostModule::isFerruleMapped());
        const auto call = [&plugin](const char* name) { return plugin.function(name)(); };
        QCOMPARE(call("reloadQueuedSignals"), TYPE_NAMES.size());
        QCOMPARE(call("reloadImportedRoots"), BUNDLE_SIZE);
        QCOMPARE(call("reloadConversations"), 3);
        QCOMPARE(call("reloadQueuedSignals"), TYPE_NAMES.size());
        QVERIFY(!test::hasLeaks());
        test::endLeakCheck();
        QVERIFY(plugin.unload());
        checkGone();
    }
}

void ReloadTest::libraryLeavesNothingBehind()
{
    for (int round = 0; round < ROUNDS; ++round) {
        HostModule library(QStringLiteral(FERRULE_LIBRARY));
        QVERIFY(library.isLoaded());
        QVERIFY(HostModule::isFerruleMapped());
        QCOMPARE(existingResources(), RESOURCES.size());
        QCOMPARE(knownTypes(), TYPE_NAMES.size());
        QVERIFY(engineWorks());
        test::endLeakCheck();
        QVERIFY(library.unload());
        checkGone();
    }
}

QTEST_GUILESS_MAIN(ReloadTest)
#include "tst_reload.moc"

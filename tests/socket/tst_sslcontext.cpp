// SPDX-License-Identifier: BSD-3-Clause
// Whose the cipher lists are: the shared context's, or a connection's own.
#include "socket/AuthorityFiles.h"
#include "socket/AuthorityReader.h"
#include "socket/SslContext.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

using vela::AuthorityFiles;
using vela::AuthorityReader;
using vela::SslContext;
using vela::SslHandle;

namespace {

const QByteArray FIRST = QByteArrayLiteral("AES256-GCM-SHA384");
const QByteArray SECOND = QByteArrayLiteral("AES128-GCM-SHA256");

//! The ciphers that the protocol versions with lists choose from; TLS 1.3 has suites of its own.
QList<QByteArray> namesOf(STACK_OF(SSL_CIPHER) * ciphers)
{
    QList<QByteArray> names;
    for (int i = 0; i < sk_SSL_CIPHER_num(ciphers); ++i) {
        const QByteArray name = SSL_CIPHER_get_name(sk_SSL_CIPHER_value(ciphers, i));
        if (!name.startsWith("TLS_"))
            names.append(name);
    }
    return names;
}

//! What the context itself would give to a connection.
QList<QByteArray> ciphersOfContext()
{
    const SslHandle ssl(SSL_new(SslContext::get()));
    return namesOf(SSL_get_ciphers(ssl.get()));
}

QList<QByteArray> ciphersOfNewConnection()
{
    const SslHandle ssl(SslContext::newConnection());
    return namesOf(SSL_get_ciphers(ssl.get()));
}

} // namespace

// One context lives as long as the process, so these run in their order and only once.
class SslContextTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unknownListChangesNothing();
    void listsAreTheContextsBeforeTheFirstConnection();
    void laterListsAreTheConnectionsOwn();
    void contextsListComesBackIntoForce();
    void newDirectoriesDoNotChangeTheStoreOfConnections();
};

void SslContextTest::unknownListChangesNothing()
{
    const QList<QByteArray> own = ciphersOfContext();
    QVERIFY(own.size() > 1);
    QVERIFY(!SslContext::setCipherList("no such cipher"));
    QCOMPARE(ciphersOfContext(), own);
}

void SslContextTest::listsAreTheContextsBeforeTheFirstConnection()
{
    for (const QByteArray& list : {SECOND, FIRST}) {
        QVERIFY(SslContext::setCipherList(list));
        QCOMPARE(ciphersOfContext(), QList<QByteArray>{list});
    }
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{FIRST});
}

void SslContextTest::laterListsAreTheConnectionsOwn()
{
    QVERIFY(SslContext::setCipherList(SECOND));
    QCOMPARE(ciphersOfContext(), QList<QByteArray>{FIRST});
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{SECOND});
    QVERIFY(!SslContext::setCipherList("no such cipher"));
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{SECOND});
}

void SslContextTest::contextsListComesBackIntoForce()
{
    QVERIFY(SslContext::setCipherList(FIRST));
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{FIRST});
}

// OpenSSL reads the list of directories without a lock while it verifies.
void SslContextTest::newDirectoriesDoNotChangeTheStoreOfConnections()
{
    const auto store = [] { return SSL_CTX_get_cert_store(SslContext::get()); };
    const auto count = [&] { return sk_X509_OBJECT_num(X509_STORE_get0_objects(store())); };
    const auto load = [](const QString& file, const QString& directory) {
        return AuthorityFiles::load(SslContext::get(), QFile::encodeName(file),
                                    QFile::encodeName(directory));
    };
    const test::Authority authority;
    const test::PemDirectory first;
    const test::PemDirectory second;
    QVERIFY(load(authority.caFile, QString()));
    QCOMPARE(count(), 1);
    QVERIFY(load(QString(), first.path()));
    X509_STORE* const before = store();
    const SslHandle connection(SslContext::newConnection());
    const quint64 generation = AuthorityFiles::generation();

    QVERIFY(load(authority.caFile, first.path()));
    QCOMPARE(store(), before);
    QCOMPARE(AuthorityFiles::generation(), generation);

    QVERIFY(load(QString(), second.path()));
    QCOMPARE(store() == before, AuthorityReader::takesDirectoriesInUse());
    QCOMPARE(count(), 1);
    QVERIFY(AuthorityFiles::generation() > generation);

    // A directory from before is still looked at.
    const test::Authority late(QStringLiteral("Late authority"));
    const unsigned long hash = X509_subject_name_hash(late.root.x509());
    first.write(QStringLiteral("%1.0").arg(hash, 8, 16, QLatin1Char('0')),
                late.root.certificatePem());
    std::unique_ptr<X509_STORE_CTX, vela::OpenSslDeleter<X509_STORE_CTX_free>> verification(
        X509_STORE_CTX_new());
    const test::Identity end = late.issue();
    X509_STORE_CTX_init(verification.get(), store(), end.x509(), nullptr);
    QCOMPARE(X509_verify_cert(verification.get()), 1);
}

QTEST_GUILESS_MAIN(SslContextTest)
#include "tst_sslcontext.moc"

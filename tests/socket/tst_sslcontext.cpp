// SPDX-License-Identifier: BSD-3-Clause
// Whose the cipher lists are: the shared context's, or a connection's own.
#include "socket/AuthorityReader.h"
#include "socket/SslContext.h"
#include "support/OpenSslCompat.h"
#include "support/OpenSslHandles.h"
#include "tests/common/TlsServer.h"

#include <QtTest/QtTest>

#include <type_traits>

using vela::AuthorityReader;
using vela::ContextLock;
using vela::RecursiveMutex;
using vela::SslContext;
using vela::SslHandle;

namespace {

const QByteArray FIRST = QByteArrayLiteral("AES256-GCM-SHA384");
const QByteArray SECOND = QByteArrayLiteral("AES128-GCM-SHA256");

SslContext& context = SslContext::shared();

// Nobody but the context makes its lock.
static_assert(!std::is_default_constructible_v<ContextLock>);
static_assert(!std::is_copy_constructible_v<ContextLock>);
static_assert(!std::is_constructible_v<ContextLock, RecursiveMutex&, std::atomic<SSL_CTX*>&>);

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
    const SslHandle ssl(context.newConnection(context.lock()));
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
    QVERIFY(!context.setCipherList(context.lock(), "no such cipher"));
    QCOMPARE(ciphersOfContext(), own);
}

void SslContextTest::listsAreTheContextsBeforeTheFirstConnection()
{
    for (const QByteArray& list : {SECOND, FIRST}) {
        QVERIFY(context.setCipherList(context.lock(), list));
        QCOMPARE(ciphersOfContext(), QList<QByteArray>{list});
    }
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{FIRST});
}

void SslContextTest::laterListsAreTheConnectionsOwn()
{
    QVERIFY(context.setCipherList(context.lock(), SECOND));
    QCOMPARE(ciphersOfContext(), QList<QByteArray>{FIRST});
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{SECOND});
    QVERIFY(!context.setCipherList(context.lock(), "no such cipher"));
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{SECOND});
}

void SslContextTest::contextsListComesBackIntoForce()
{
    QVERIFY(context.setCipherList(context.lock(), FIRST));
    QCOMPARE(ciphersOfNewConnection(), QList<QByteArray>{FIRST});
}

// OpenSSL reads the list of directories without a lock while it verifies.
void SslContextTest::newDirectoriesDoNotChangeTheStoreOfConnections()
{
    const auto store = [] { return SSL_CTX_get_cert_store(SslContext::get()); };
    const auto count = [&] { return sk_X509_OBJECT_num(X509_STORE_get0_objects(store())); };
    const auto load = [](const QString& file, const QString& directory) {
        return context.authorities().load(context.lock(), QFile::encodeName(file),
                                          QFile::encodeName(directory));
    };
    const test::Authority authority;
    const test::PemDirectory first;
    const test::PemDirectory second;
    QVERIFY(load(authority.caFile, QString()));
    QCOMPARE(count(), 1);
    QVERIFY(load(QString(), first.path()));
    X509_STORE* const before = store();
    const SslHandle connection(context.newConnection(context.lock()));
    const quint64 generation = context.authorities().generation(context.lock());

    QVERIFY(load(authority.caFile, first.path()));
    QCOMPARE(store(), before);
    QCOMPARE(context.authorities().generation(context.lock()), generation);

    QVERIFY(load(QString(), second.path()));
    QCOMPARE(store() == before, AuthorityReader::takesDirectoriesInUse());
    QCOMPARE(count(), 1);
    QVERIFY(context.authorities().generation(context.lock()) > generation);

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

// SPDX-License-Identifier: BSD-3-Clause
// Whose the cipher lists are: the shared context's, or a connection's own.
#include "socket/SslContext.h"
#include "support/OpenSslHandles.h"

#include <QtTest/QtTest>

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

QTEST_GUILESS_MAIN(SslContextTest)
#include "tst_sslcontext.moc"

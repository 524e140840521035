// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SessionPool.h"
#include "support/OpenSslHandles.h"

#include <QtTest/QtTest>

using vela::SessionPool;

namespace {

const QString KEY = QStringLiteral("example.org:443");
const QString OTHER_KEY = QStringLiteral("example.org:444");

using SessionHandle = std::unique_ptr<SSL_SESSION, vela::OpenSslDeleter<SSL_SESSION_free>>;

SessionHandle makeSession()
{
    return SessionHandle(SSL_SESSION_new());
}

} // namespace

class SessionPoolTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takeFromAnEmptyPoolGivesNull();
    void sessionsAreHandedOutOldestFirst();
    void sessionsOfOneKeyAreNotHandedOutUnderAnother();
    void aSessionInUseIsNotHandedOutAgain();
    void aSessionGivenBackIsAvailableAgain();
    void addingTwiceKeepsOneEntry();
    void removeForgetsAnAvailableSession();
    void removeForgetsASessionInUse();
    void removeUnderAnUnknownKeyDoesNothing();
    void theEmptyKeyIsAKeyLikeOthers();
    void sessionsOutliveTheirConnections();
    void adoptedReferencesBelongToThePool();
    void equalKeysShareOneCopy();
};

void SessionPoolTest::takeFromAnEmptyPoolGivesNull()
{
    SessionPool pool;
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::sessionsAreHandedOutOldestFirst()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    const SessionHandle third = makeSession();
    for (const SessionHandle* session : {&first, &second, &third})
        pool.add(KEY, session->get());
    QCOMPARE(pool.take(KEY), first.get());
    QCOMPARE(pool.take(KEY), second.get());
    QCOMPARE(pool.take(KEY), third.get());
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::sessionsOfOneKeyAreNotHandedOutUnderAnother()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    QVERIFY(!pool.take(OTHER_KEY));
    QCOMPARE(pool.take(KEY), session.get());
}

void SessionPoolTest::aSessionInUseIsNotHandedOutAgain()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    QCOMPARE(pool.take(KEY), session.get());
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::aSessionGivenBackIsAvailableAgain()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    pool.add(KEY, first.get());
    pool.add(KEY, second.get());
    QCOMPARE(pool.take(KEY), first.get());
    pool.add(KEY, first.get());
    QCOMPARE(pool.take(KEY), second.get());
    QCOMPARE(pool.take(KEY), first.get());
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::addingTwiceKeepsOneEntry()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    pool.add(KEY, session.get());
    QCOMPARE(pool.take(KEY), session.get());
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::removeForgetsAnAvailableSession()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    pool.remove(KEY, session.get());
    QVERIFY(!pool.take(KEY));
}

void SessionPoolTest::removeForgetsASessionInUse()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    pool.take(KEY);
    pool.remove(KEY, session.get());
    QVERIFY(!pool.take(KEY));
    pool.add(KEY, session.get());
    QCOMPARE(pool.take(KEY), session.get());
}

void SessionPoolTest::removeUnderAnUnknownKeyDoesNothing()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(KEY, session.get());
    pool.remove(OTHER_KEY, session.get());
    QCOMPARE(pool.take(KEY), session.get());
}

void SessionPoolTest::theEmptyKeyIsAKeyLikeOthers()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(QString(), session.get());
    QCOMPARE(pool.take(QStringLiteral("")), session.get());
}

// The pointer taken must be good although nobody but the pool holds the session: a memory checker
// sees it otherwise.
void SessionPoolTest::sessionsOutliveTheirConnections()
{
    SessionPool pool;
    SessionHandle session = makeSession();
    SSL_SESSION_set_timeout(session.get(), 4711);
    pool.add(KEY, session.get());
    session.reset();

    SSL_SESSION* taken = pool.take(KEY);
    QVERIFY(taken);
    QCOMPARE(SSL_SESSION_get_timeout(taken), 4711L);
    pool.remove(KEY, taken);
    QCOMPARE(SSL_SESSION_get_timeout(taken), 4711L);
}

void SessionPoolTest::adoptedReferencesBelongToThePool()
{
    SessionPool pool;
    SessionHandle session = makeSession();
    SSL_SESSION_set_timeout(session.get(), 4711);
    pool.adopt(KEY, session.release());
    SSL_SESSION* taken = pool.take(KEY);
    pool.add(KEY, taken);
    QCOMPARE(SSL_SESSION_get_timeout(pool.take(KEY)), 4711L);
}

void SessionPoolTest::equalKeysShareOneCopy()
{
    SessionPool pool;
    const QString* interned = pool.internKey(KEY);
    QCOMPARE(*interned, KEY);
    QCOMPARE(pool.internKey(QString::fromLatin1("example.org:443")), interned);
    QVERIFY(pool.internKey(OTHER_KEY) != interned);
}

QTEST_GUILESS_MAIN(SessionPoolTest)
#include "tst_sessionpool.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/SessionPool.h"
#include "support/OpenSslCompat.h"

#include <QtTest/QtTest>

#include <ctime>

using vela::PooledSession;
using vela::SessionHandle;
using vela::SessionOrigin;
using vela::SessionPool;
using vela::SessionTerms;

namespace {

const SessionOrigin SERVER{QStringLiteral("example.org:443"), QStringLiteral("example.org:443")};
const SessionOrigin OTHER_SERVER{QStringLiteral("example.org:444"),
                                 QStringLiteral("example.org:444")};
constexpr int MOST = static_cast<int>(SessionPool::MOST_SESSIONS_OF_A_SERVER);

SessionHandle makeSession()
{
    return SessionHandle(SSL_SESSION_new());
}

PooledSession pooled(const SessionHandle& session, qint64 size = 1000)
{
    PooledSession result;
    SSL_SESSION_up_ref(session.get());
    result.session.reset(session.get());
    result.size = size;
    return result;
}

bool anySuits(SSL_SESSION*, const SessionTerms&)
{
    return true;
}

//! Takes the next session and lets go of it.
SSL_SESSION* next(SessionPool& pool, const SessionOrigin& origin = SERVER)
{
    return pool.take(origin, anySuits).session.get();
}

} // namespace

class SessionPoolTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takeFromAnEmptyPoolGivesNull();
    void sessionsAreHandedOutOldestFirst();
    void sessionsOfOneServerAreNotHandedOutForAnother_data();
    void sessionsOfOneServerAreNotHandedOutForAnother();
    void aSessionTakenIsNotHandedOutAgain();
    void aSessionGivenBackIsBehindTheOthers();
    void addingTwiceKeepsThePlace();
    void sessionsThatDoNotSuitAreLeft();
    void removeForgetsAnAvailableSession();
    void removeOfAnUnknownSessionDoesNothing();
    void whatIsTakenOutlivesThePoolsInterest();
    void nothingIsKeptOfWhatHasGone();
    void theOldestOfAServerGoFirst();
    void theOldestOfAllGoWhenTheyAreTooLarge();
    void expiredSessionsAreTakenOutAFewAtATime();
    void termsDecideWhatStillHolds_data();
    void termsDecideWhatStillHolds();
};

void SessionPoolTest::takeFromAnEmptyPoolGivesNull()
{
    SessionPool pool;
    QVERIFY(!next(pool));
}

void SessionPoolTest::sessionsAreHandedOutOldestFirst()
{
    SessionPool pool;
    const SessionHandle sessions[] = {makeSession(), makeSession(), makeSession()};
    for (const SessionHandle& session : sessions)
        QVERIFY(pool.add(SERVER, pooled(session)).empty());
    for (const SessionHandle& session : sessions)
        QCOMPARE(next(pool), session.get());
    QVERIFY(!next(pool));
}

void SessionPoolTest::sessionsOfOneServerAreNotHandedOutForAnother_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("server");
    QTest::addColumn<QByteArray>("name");
    const QString other = QStringLiteral("example.org:444");
    QTest::newRow("of another key") << other << SERVER.server << QByteArray();
    QTest::newRow("of another server") << SERVER.key << other << QByteArray();
    QTest::newRow("without a key") << QString() << SERVER.server << QByteArray();
    QTest::newRow("of another name") << SERVER.key << SERVER.server << QByteArray("example.net");
}

void SessionPoolTest::sessionsOfOneServerAreNotHandedOutForAnother()
{
    QFETCH(QString, key);
    QFETCH(QString, server);
    QFETCH(QByteArray, name);
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(SERVER, pooled(session));
    QVERIFY(!next(pool, {key, server, name}));
    QCOMPARE(next(pool), session.get());
}

void SessionPoolTest::aSessionTakenIsNotHandedOutAgain()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(SERVER, pooled(session));
    QVERIFY(pool.contains(session.get()));
    QCOMPARE(next(pool), session.get());
    QVERIFY(!pool.contains(session.get()));
    QVERIFY(!next(pool));
}

void SessionPoolTest::aSessionGivenBackIsBehindTheOthers()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    pool.add(SERVER, pooled(first));
    pool.add(SERVER, pooled(second));
    pool.add(SERVER, pool.take(SERVER, anySuits));
    QCOMPARE(next(pool), second.get());
    QCOMPARE(next(pool), first.get());
    QVERIFY(!next(pool));
}

void SessionPoolTest::addingTwiceKeepsThePlace()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    pool.add(SERVER, pooled(first));
    pool.add(SERVER, pooled(second));
    pool.add(SERVER, pooled(first));
    QCOMPARE(next(pool), first.get());
    QCOMPARE(next(pool), second.get());
    QVERIFY(!next(pool));
}

void SessionPoolTest::sessionsThatDoNotSuitAreLeft()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    PooledSession strong = pooled(first);
    strong.terms.securityLevel = 2;
    pool.add(SERVER, std::move(strong));
    pool.add(SERVER, pooled(second));
    const auto isWeak = [](SSL_SESSION*, const SessionTerms& terms) {
        return terms.securityLevel == 0;
    };
    QCOMPARE(pool.take(SERVER, isWeak).session.get(), second.get());
    QVERIFY(!pool.take(SERVER, isWeak).session);
    QCOMPARE(next(pool), first.get());
}

void SessionPoolTest::removeForgetsAnAvailableSession()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    pool.add(SERVER, pooled(session));
    pool.remove(session.get());
    QVERIFY(!next(pool));
    QCOMPARE(pool.size(), 0);
}

void SessionPoolTest::removeOfAnUnknownSessionDoesNothing()
{
    SessionPool pool;
    const SessionHandle session = makeSession();
    const SessionHandle unknown = makeSession();
    pool.add(SERVER, pooled(session));
    pool.remove(unknown.get());
    QCOMPARE(next(pool), session.get());
}

// The pointer taken must be good although nobody else holds the session: a memory checker sees it
// otherwise.
void SessionPoolTest::whatIsTakenOutlivesThePoolsInterest()
{
    SessionPool pool;
    SessionHandle session = makeSession();
    SSL_SESSION_set_timeout(session.get(), 4711);
    pool.add(SERVER, pooled(session));
    session.reset();

    const PooledSession taken = pool.take(SERVER, anySuits);
    QVERIFY(taken.session);
    pool.remove(taken.session.get());
    QCOMPARE(SSL_SESSION_get_timeout(taken.session.get()), 4711L);
}

// Counts what is freed: the pool's was the last reference.
void SessionPoolTest::nothingIsKeptOfWhatHasGone()
{
    static int freed;
    freed = 0;
    const auto countFreed = [](void*, void* mark, CRYPTO_EX_DATA*, int, long, void*) {
        freed += mark ? 1 : 0;
    };
    const int index = SSL_SESSION_get_ex_new_index(0, nullptr, nullptr, nullptr, countFreed);
    SessionPool pool;
    const auto add = [&] {
        SessionHandle session = makeSession();
        SSL_SESSION_set_ex_data(session.get(), index, &freed);
        SSL_SESSION* const pointer = session.get();
        PooledSession owned;
        owned.session = std::move(session);
        pool.add(SERVER, std::move(owned));
        return pointer;
    };
    pool.remove(add());
    QCOMPARE(freed, 1);
    add();
    next(pool);
    QCOMPARE(freed, 2);
    for (int i = 0; i < MOST + 3; ++i)
        add();
    QCOMPARE(freed, 5);
    QCOMPARE(int(pool.takeExpired(std::time(nullptr) + 100000, 1000).size()), MOST);
    QCOMPARE(freed, 5 + MOST);
}

void SessionPoolTest::theOldestOfAServerGoFirst()
{
    SessionPool pool;
    const SessionHandle other = makeSession();
    pool.add(OTHER_SERVER, pooled(other));
    std::vector<SessionHandle> sessions;
    for (int i = 0; i < MOST + 5; ++i) {
        sessions.push_back(makeSession());
        const SessionPool::Sessions gone = pool.add(SERVER, pooled(sessions.back()));
        QCOMPARE(int(gone.size()), i < MOST ? 0 : 1);
        if (i >= MOST)
            QCOMPARE(gone.front().get(), sessions.at(std::size_t(i - MOST)).get());
    }
    for (int i = 5; i < MOST + 5; ++i)
        QCOMPARE(next(pool), sessions.at(std::size_t(i)).get());
    QVERIFY(!next(pool));
    QCOMPARE(next(pool, OTHER_SERVER), other.get());
}

void SessionPoolTest::theOldestOfAllGoWhenTheyAreTooLarge()
{
    SessionPool pool;
    const SessionHandle first = makeSession();
    const SessionHandle second = makeSession();
    const SessionHandle third = makeSession();
    pool.add(OTHER_SERVER, pooled(first, SessionPool::MOST_BYTES / 2));
    pool.add(SERVER, pooled(second, SessionPool::MOST_BYTES / 2));
    const SessionPool::Sessions gone = pool.add(SERVER, pooled(third, 1));
    QCOMPARE(int(gone.size()), 1);
    QCOMPARE(gone.front().get(), first.get());
    QVERIFY(!next(pool, OTHER_SERVER));
    QCOMPARE(pool.size(), SessionPool::MOST_BYTES / 2 + 1);

    const SessionHandle monster = makeSession();
    QCOMPARE(int(pool.add(SERVER, pooled(monster, SessionPool::MOST_BYTES + 1)).size()), 3);
    QVERIFY(!next(pool));
    QCOMPARE(pool.size(), 0);
}

void SessionPoolTest::expiredSessionsAreTakenOutAFewAtATime()
{
    constexpr long NOW = 1000000;
    SessionPool pool;
    std::vector<SessionHandle> sessions;
    for (int i = 0; i < 10; ++i) {
        sessions.push_back(makeSession());
        SSL_SESSION_set_time(sessions.back().get(), NOW - 600 - (i < 7 ? 10 - i : 0));
        SSL_SESSION_set_timeout(sessions.back().get(), 600);
        pool.add(SERVER, pooled(sessions.back()));
    }
    QCOMPARE(int(pool.takeExpired(NOW, 4).size()), 4);
    QCOMPARE(int(pool.takeExpired(NOW, 4).size()), 3);
    QVERIFY(pool.takeExpired(NOW, 4).empty()); // The last second counts.
    QCOMPARE(next(pool), sessions.at(7).get());
    QCOMPARE(int(pool.takeExpired(NOW + 1, 4).size()), 2);
    QVERIFY(!next(pool));
}

void SessionPoolTest::termsDecideWhatStillHolds_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QByteArray>("certificate");
    QTest::addColumn<quint64>("authorities");
    QTest::addColumn<bool>("verified");
    QTest::addColumn<bool>("holds");
    const QByteArray own("own");
    QTest::newRow("nothing changed") << 1 << own << quint64(7) << false << true;
    QTest::newRow("more security asked for") << 2 << own << quint64(7) << true << false;
    QTest::newRow("less security asked for") << 0 << own << quint64(7) << true << true;
    QTest::newRow("other certificate") << 1 << QByteArray("new") << quint64(7) << true << false;
    QTest::newRow("no certificate any more") << 1 << QByteArray() << quint64(7) << true << false;
    QTest::newRow("more authorities, bad verdict") << 1 << own << quint64(8) << false << false;
    QTest::newRow("more authorities, good verdict") << 1 << own << quint64(8) << true << true;
}

void SessionPoolTest::termsDecideWhatStillHolds()
{
    QFETCH(int, level);
    QFETCH(QByteArray, certificate);
    QFETCH(quint64, authorities);
    QFETCH(bool, verified);
    SessionTerms made{1, QByteArray("own"), 7, verified, true};
    const SessionTerms current{level, certificate, authorities, false, false};
    QTEST(made.hold(current), "holds");
    // A server that did not ask for a certificate does not care which there is.
    made.certificateWasAsked = false;
    const bool otherThingsHold = level <= 1 && (verified || authorities == 7);
    QCOMPARE(made.hold(current), otherThingsHold);
}

QTEST_GUILESS_MAIN(SessionPoolTest)
#include "tst_sessionpool.moc"

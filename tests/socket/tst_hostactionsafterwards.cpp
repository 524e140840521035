// SPDX-License-Identifier: BSD-3-Clause
#include "HostConversation.h"

#include <QtTest/QtTest>

#include <openssl/err.h>

using namespace test;
using vela::SslSocket;

namespace {

enum class Ending {
    HangUp,
    CloseNotify,
    Garbage,
    Disconnect,
    Abort,
    Close
};

void leaveStaleError()
{
#ifdef ERR_raise
    ERR_raise(ERR_LIB_RSA, ERR_R_INTERNAL_ERROR);
#else
    ERR_put_error(ERR_LIB_RSA, 0, ERR_R_INTERNAL_ERROR, __FILE__, __LINE__);
#endif
}

//! A host that leaves an error behind in each event and in each of the socket's signals.
class CarelessHost : public QObject
{
    Q_OBJECT

public:
    explicit CarelessHost(SslSocket* socket)
    {
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("leaveError()"));
        const QMetaObject* meta = socket->metaObject();
        for (int i = 0; i < meta->methodCount(); ++i) {
            if (meta->method(i).methodType() == QMetaMethod::Signal)
                connect(socket, meta->method(i), this, slot);
        }
        qApp->installEventFilter(this);
    }

private:
    Q_SLOT void leaveError() { leaveStaleError(); }

    bool eventFilter(QObject*, QEvent*) override
    {
        leaveStaleError();
        return false;
    }
};

const char* nameOf(Role role)
{
    return role == Role::Client ? "client" : role == Role::Server ? "server" : "proxied client";
}

PeerDeed deedFor(Ending ending)
{
    switch (ending) {
    case Ending::HangUp:
        return PeerDeed::HangUp;
    case Ending::CloseNotify:
        return PeerDeed::CloseNotify;
    case Ending::Garbage:
        return PeerDeed::Garbage;
    default:
        return PeerDeed::Nothing;
    }
}

} // namespace

Q_DECLARE_METATYPE(Ending)

//! What a socket is like after something has happened to it or around it.
class TestHostActionsAfterwards : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachErrorIsSeenOnceOnBothSignals_data();
    void eachErrorIsSeenOnceOnBothSignals();
    void connectionUsedAgainIsLikeNew_data();
    void connectionUsedAgainIsLikeNew();
    void staleErrorsChangeNothing_data();
    void staleErrorsChangeNothing();
};

void TestHostActionsAfterwards::eachErrorIsSeenOnceOnBothSignals_data()
{
    QTest::addColumn<test::Role>("role");
    QTest::addColumn<bool>("adopted");
    QTest::addColumn<Ending>("ending");
    QTest::newRow("client, transport") << Role::Client << false << Ending::HangUp;
    QTest::newRow("client, TLS") << Role::Client << false << Ending::Garbage;
    QTest::newRow("adopted client, transport") << Role::Client << true << Ending::HangUp;
    QTest::newRow("adopted client, TLS") << Role::Client << true << Ending::Garbage;
    QTest::newRow("proxied client, transport") << Role::ProxiedClient << false << Ending::HangUp;
    QTest::newRow("proxied client, TLS") << Role::ProxiedClient << false << Ending::Garbage;
    QTest::newRow("server, transport") << Role::Server << true << Ending::HangUp;
    QTest::newRow("server, TLS") << Role::Server << true << Ending::Garbage;
}

void TestHostActionsAfterwards::eachErrorIsSeenOnceOnBothSignals()
{
    QFETCH(test::Role, role);
    QFETCH(bool, adopted);
    QFETCH(Ending, ending);
    HostConversation conversation(role);
    const EmissionLog log(conversation.socket());
    if (adopted) {
        conversation.prepareConnection();
        conversation.adoptPrepared();
    } else {
        conversation.connectAnew();
    }
    QVERIFY(conversation.becomesConnected(log));
    QVERIFY(waitFor([&] { return conversation.peer()->isSecured(); }));
    conversation.doNow(deedFor(ending));
    QVERIFY(waitFor([&] { return log.count("errorOccurred") > 0; }));
    if (ending == Ending::HangUp)
        QVERIFY(conversation.becomesUnconnected());
    settle();
    QCOMPARE(log.count("connected"), 1);
    QCOMPARE(log.count("error"), 1);
    QCOMPARE(log.count("errorOccurred"), 1);
    QCOMPARE(conversation.socket()->error(), ending == Ending::HangUp
                                                 ? QAbstractSocket::RemoteHostClosedError
                                                 : QAbstractSocket::UnknownSocketError);
}

void TestHostActionsAfterwards::connectionUsedAgainIsLikeNew_data()
{
    QTest::addColumn<test::Role>("role");
    QTest::addColumn<Ending>("ending");
    QTest::addColumn<bool>("disconnecting");
    const std::pair<const char*, Ending> endings[] = {
        {"the peer hung up", Ending::HangUp}, {"close-notify", Ending::CloseNotify},
        {"garbage", Ending::Garbage},         {"disconnected", Ending::Disconnect},
        {"aborted", Ending::Abort},           {"closed", Ending::Close},
    };
    for (const auto role : {Role::Client, Role::Server, Role::ProxiedClient}) {
        for (const auto& ending : endings) {
            for (const bool disconnecting : {false, true}) {
                QTest::addRow("%s, %s%s", nameOf(role), ending.first,
                              disconnecting ? ", disconnectFromHost()" : "")
                    << role << ending.second << disconnecting;
            }
        }
    }
}

void TestHostActionsAfterwards::connectionUsedAgainIsLikeNew()
{
    QFETCH(test::Role, role);
    QFETCH(Ending, ending);
    QFETCH(bool, disconnecting);
    HostConversation conversation(role);
    SslSocket* socket = conversation.socket();
    QSignalSpy verdict(socket, &SslSocket::connectionVerificationDone);
    const auto first = std::make_unique<EmissionLog>(socket);
    conversation.connectAnew();
    QVERIFY(conversation.becomesConnected(*first));
    const QByteArrayList story = first->story();

    QVERIFY(waitFor([&] { return conversation.peer()->isSecured(); }));
    // Left unread and unsent, to be forgotten with the connection.
    conversation.peer()->write("of the first connection");
    QVERIFY(waitFor([&] { return socket->bytesAvailable() > 0; }));
    if (ending == Ending::Abort || ending == Ending::Disconnect)
        socket->write("never sent");
    conversation.doNow(deedFor(ending));
    if (ending == Ending::Disconnect)
        socket->disconnectFromHost();
    else if (ending == Ending::Abort)
        socket->abort();
    else if (ending == Ending::Close)
        socket->close();
    if (ending == Ending::Garbage) {
        QVERIFY(waitFor([&] { return first->count("error") > 0; }));
        socket->close(); // What hosts are to do after an error of TLS.
    }
    QVERIFY(conversation.becomesUnconnected());
    if (disconnecting)
        socket->disconnectFromHost();
    settle();

    const EmissionLog second(socket);
    conversation.connectAnew();
    QVERIFY(conversation.becomesConnected(second));
    QCOMPARE(second.story(), story);
    QCOMPARE(verdict.count(), 2);
    QCOMPARE(verdict.at(1), verdict.at(0));
    QCOMPARE(socket->bytesAvailable(), qint64(0));
    QVERIFY(conversation.exchanges("of the second connection"));
    QCOMPARE(conversation.peer()->received(), QByteArray("of the second connection"));
}

void TestHostActionsAfterwards::staleErrorsChangeNothing_data()
{
    QTest::addColumn<test::Role>("role");
    QTest::newRow("client") << Role::Client;
    QTest::newRow("server") << Role::Server;
    QTest::newRow("proxied client") << Role::ProxiedClient;
}

void TestHostActionsAfterwards::staleErrorsChangeNothing()
{
    QFETCH(test::Role, role);
    HostConversation conversation(role);
    const CarelessHost host(conversation.socket());
    for (int round = 0; round < 2; ++round) {
        const EmissionLog log(conversation.socket());
        leaveStaleError();
        conversation.connectAnew();
        QVERIFY(conversation.becomesConnected(log));
        leaveStaleError();
        QVERIFY(waitFor([&] { return conversation.peer()->isSecured(); }));
        QVERIFY(conversation.exchanges(QByteArray(20000, 'x')));
        QCOMPARE(log.count("connected"), 1);
        QCOMPARE(log.count("connectionVerificationDone"), 1);
        leaveStaleError();
        conversation.doNow(PeerDeed::CloseNotify);
        QVERIFY(conversation.becomesUnconnected());
        QCOMPARE(log.count("error"), 0);
        QCOMPARE(log.count("disconnected"), 1);
    }
    ERR_clear_error();
}

QTEST_GUILESS_MAIN(TestHostActionsAfterwards)
#include "tst_hostactionsafterwards.moc"

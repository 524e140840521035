// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedSystem.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

using namespace test;

namespace {

// How a store is set up.
const QString OPEN_ROOT = QStringLiteral("openSystemStore 0 ROOT -> done");
const QString CREATE_EVENT = QStringLiteral("createEvent 0 0 -> done");
const QString NOTIFY = QStringLiteral("controlStore root 2 2 &event -> done");
const QString WAIT = QStringLiteral("registerWait &null event 4294967295 0 -> done");
const QString OPEN_EXTRA = QStringLiteral("openStore 2 1 0 8192 null -> done");
const QString CREATE_ENGINE = QStringLiteral("createChainEngine 88 1 &extra unrestricted -> done");

// How it is taken down.
const QString FREE_ENGINE = QStringLiteral("freeChainEngine engine 1");
const QString CLOSE_EXTRA = QStringLiteral("closeStore extra 1");
const QString CANCEL = QStringLiteral("controlStore root 2 5 &event -> done");
const QString CLOSE_ROOT = QStringLiteral("closeStore root 1");
const QString CLOSE_EVENT = QStringLiteral("closeHandle event");
const QString CLOSE_WAIT = QStringLiteral("closeHandle wait");

// How it is prepared anew.
const QString RESYNC_ROOT = QStringLiteral("controlStore root 2 1 &event -> done");
const QString RESYNC_EXTRA = QStringLiteral("controlStore extra 2 1 &event -> done");

QString failed(const char* call)
{
    return QString::fromLatin1(call) + QStringLiteral(" -> failed");
}

QString done(const char* call)
{
    return QString::fromLatin1(call) + QStringLiteral(" -> done");
}

QString engineFailure(int code)
{
    return failureLine(
        "createChainEngine",
        QStringLiteral("Initialisation of Certificiate Chain Engine failed: %1").arg(code));
}

} // namespace

class WinCertStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void describesItself();
    void setsUpInThisOrder();
    void setsUpTheRestWhenAStepFails_data();
    void setsUpTheRestWhenAStepFails();
    void takesDownInThisOrder();
    void takesDownOnlyWhatIsThere_data();
    void takesDownOnlyWhatIsThere();
    void canOnlyBeWaitedForByItself();
    void engineFailureIsLogged_data();
    void engineFailureIsLogged();
    void engineLooksIntoTheStoreItIsGiven();
    void preparesAnewInThisOrder();
    void preparesAnewWithoutAnEngine();
    void failedPreparationLeavesNoEngine();
    void notificationIsTakenUpByTheEventLoop();
    void eachNotificationIsAnnouncedOnce();
    void timedOutWaitMeansNothing();
    void notificationReachesTheStoresThread();
    void notificationForADestroyedStoreIsDropped();
};

void WinCertStoreTest::describesItself()
{
    const ScriptedSystem system;
    const vela::WinCertStore store(nullptr);
    const QMetaObject* meta = store.metaObject();
    QCOMPARE(meta->className(), "vela::WinCertStore");
    QCOMPARE(meta->superClass()->className(), "vela::CertificateStore");
    QCOMPARE(meta->methodCount() - meta->methodOffset(), 1);
    const QMetaMethod slot = meta->method(meta->methodOffset());
    QCOMPARE(slot.methodSignature(), QByteArray("resetChainEngine()"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.access(), QMetaMethod::Protected);

    QObject parent;
    QCOMPARE(vela::WinCertStore(&parent).parent(), &parent);
}

void WinCertStoreTest::setsUpInThisOrder()
{
    ScriptedSystem system;
    const vela::WinCertStore store(nullptr);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({OPEN_ROOT, CREATE_EVENT, NOTIFY, WAIT, OPEN_EXTRA, CREATE_ENGINE}));
    QCOMPARE(system.log.text(), QString());
    QCOMPARE(store.count(), 0);
}

void WinCertStoreTest::setsUpTheRestWhenAStepFails_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char* operation, const QStringList& expected) {
        QTest::newRow(operation) << QString::fromLatin1(operation) << expected;
    };
    row("openSystemStore",
        {failed("openSystemStore 0 ROOT"), CREATE_EVENT, failed("controlStore null 2 2 &event"),
         WAIT, OPEN_EXTRA, CREATE_ENGINE});
    row("createEvent", {OPEN_ROOT, failed("createEvent 0 0"), done("controlStore root 2 2 &null"),
                        failed("registerWait &null null 4294967295 0"), OPEN_EXTRA, CREATE_ENGINE});
    row("controlStore", {OPEN_ROOT, CREATE_EVENT, failed("controlStore root 2 2 &event"), WAIT,
                         OPEN_EXTRA, CREATE_ENGINE});
    row("registerWait",
        {OPEN_ROOT, CREATE_EVENT, NOTIFY, failed("registerWait &null event 4294967295 0"),
         OPEN_EXTRA, CREATE_ENGINE});
    row("openStore", {OPEN_ROOT, CREATE_EVENT, NOTIFY, WAIT, failed("openStore 2 1 0 8192 null"),
                      done("createChainEngine 88 1 &null unrestricted")});
    row("createChainEngine",
        {OPEN_ROOT, CREATE_EVENT, NOTIFY, WAIT, OPEN_EXTRA,
         failed("createChainEngine 88 1 &extra unrestricted"), QStringLiteral("lastError -> 8")});
}

void WinCertStoreTest::setsUpTheRestWhenAStepFails()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, expected);
    ScriptedSystem system;
    system.platform.fail(operation, 8);
    const vela::WinCertStore store(nullptr);
    QCOMPARE(system.platform.takeCalls(), expected);
    const bool isEngine = operation == QLatin1String("createChainEngine");
    QCOMPARE(system.log.text(), isEngine ? engineFailure(8) : QString());
}

void WinCertStoreTest::takesDownInThisOrder()
{
    ScriptedSystem system;
    {
        const vela::WinCertStore store(nullptr);
        system.platform.takeCalls();
    }
    QCOMPARE(system.platform.takeCalls(),
             QStringList({FREE_ENGINE, CLOSE_EXTRA, CANCEL, CLOSE_ROOT, CLOSE_EVENT, CLOSE_WAIT}));
    QCOMPARE(system.platform.openHandles(), QStringList());
}

void WinCertStoreTest::takesDownOnlyWhatIsThere_data()
{
    QTest::addColumn<QString>("missing");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char* missing, const QStringList& expected) {
        QTest::newRow(missing) << QString::fromLatin1(missing) << expected;
    };
    row("createChainEngine", {CLOSE_EXTRA, CANCEL, CLOSE_ROOT, CLOSE_EVENT, CLOSE_WAIT});
    row("openStore", {FREE_ENGINE, CANCEL, CLOSE_ROOT, CLOSE_EVENT, CLOSE_WAIT});
    row("openSystemStore", {FREE_ENGINE, CLOSE_EXTRA, CLOSE_EVENT, CLOSE_WAIT});
    row("registerWait", {FREE_ENGINE, CLOSE_EXTRA, CANCEL, CLOSE_ROOT, CLOSE_EVENT});
    row("createEvent", {FREE_ENGINE, CLOSE_EXTRA, done("controlStore root 2 5 &null"), CLOSE_ROOT});
}

void WinCertStoreTest::takesDownOnlyWhatIsThere()
{
    QFETCH(QString, missing);
    QFETCH(QStringList, expected);
    ScriptedSystem system;
    system.platform.fail(missing, 8);
    {
        const vela::WinCertStore store(nullptr);
        system.platform.takeCalls();
    }
    QCOMPARE(system.platform.takeCalls(), expected);
    QCOMPARE(system.platform.openHandles(), QStringList());
}

void WinCertStoreTest::canOnlyBeWaitedForByItself()
{
    const ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    QCOMPARE(system.platform.waitContext(), static_cast<void*>(&store));
}

void WinCertStoreTest::engineFailureIsLogged_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("expected");
    QTest::newRow("log level 0") << 0 << engineFailure(87);
    QTest::newRow("log level 3") << 3 << engineFailure(87);
    QTest::newRow("log level 4") << 4 << QString();
}

void WinCertStoreTest::engineFailureIsLogged()
{
    QFETCH(int, level);
    QFETCH(QString, expected);
    ScriptedSystem system;
    vela::Log::instance().setLogLevel(static_cast<vela::Log::Level>(level));
    system.platform.fail(QStringLiteral("createChainEngine"), 87);
    const vela::WinCertStore store(nullptr);
    QCOMPARE(system.log.text(), expected);
}

void WinCertStoreTest::engineLooksIntoTheStoreItIsGiven()
{
    ScriptedSystem system;
    ExposedStore store;
    system.platform.takeCalls();
    vela::HCERTSTORE additional = system.platform.openSystemStore(0, L"other");
    vela::HCERTCHAINENGINE engine = store.createChainEngine(&additional);
    QVERIFY(engine);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({done("openSystemStore 0 other"),
                          done("createChainEngine 88 1 &root unrestricted")}));
    system.platform.fail(QStringLiteral("createChainEngine"), 14);
    QVERIFY(!store.createChainEngine(&additional));
    QCOMPARE(system.log.text(), engineFailure(14));
}

void WinCertStoreTest::preparesAnewInThisOrder()
{
    ScriptedSystem system;
    ExposedStore store;
    system.platform.takeCalls();
    QStringList callsBeforeTheSignal;
    connect(&store, &vela::WinCertStore::systemUpdated, &store,
            [&] { callsBeforeTheSignal = system.platform.takeCalls(); });
    store.resetChainEngine();
    QCOMPARE(callsBeforeTheSignal,
             QStringList({RESYNC_ROOT, RESYNC_EXTRA, FREE_ENGINE, CREATE_ENGINE}));
    QCOMPARE(system.platform.takeCalls(), QStringList());
}

void WinCertStoreTest::preparesAnewWithoutAnEngine()
{
    ScriptedSystem system;
    system.platform.fail(QStringLiteral("createChainEngine"), 8);
    ExposedStore store;
    system.platform.repair(QStringLiteral("createChainEngine"));
    system.platform.takeCalls();
    QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
    store.resetChainEngine();
    QCOMPARE(system.platform.takeCalls(), QStringList({RESYNC_ROOT, RESYNC_EXTRA, CREATE_ENGINE}));
    QCOMPARE(updated.size(), 1);
}

void WinCertStoreTest::failedPreparationLeavesNoEngine()
{
    ScriptedSystem system;
    {
        ExposedStore store;
        QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
        system.platform.fail(QStringLiteral("createChainEngine"), 8);
        store.resetChainEngine();
        QCOMPARE(system.log.text(), engineFailure(8));
        QCOMPARE(updated.size(), 1);
        system.platform.takeCalls();
        store.verify(wrapAll({system.certificates.leaf}));
        QVERIFY(system.platform.takeCalls()
                    .join(QLatin1Char('\n'))
                    .contains(QLatin1String("getCertificateChain null context of leaf")));
    }
    QCOMPARE(system.platform.takeCalls(),
             QStringList({CLOSE_EXTRA, CANCEL, CLOSE_ROOT, CLOSE_EVENT, CLOSE_WAIT}));
}

void WinCertStoreTest::notificationIsTakenUpByTheEventLoop()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
    system.platform.fireWait();
    QCOMPARE(system.platform.takeCalls(), QStringList());
    QCOMPARE(updated.size(), 0);
    QCoreApplication::sendPostedEvents(&store);
    QCOMPARE(system.platform.takeCalls(),
             QStringList({RESYNC_ROOT, RESYNC_EXTRA, FREE_ENGINE, CREATE_ENGINE}));
    QCOMPARE(updated.size(), 1);
}

void WinCertStoreTest::eachNotificationIsAnnouncedOnce()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
    for (int round = 1; round <= 3; ++round) {
        system.platform.fireWait();
        QCoreApplication::sendPostedEvents(&store);
        QCOMPARE(updated.size(), round);
    }
    system.platform.fireWait();
    system.platform.fireWait();
    QCoreApplication::sendPostedEvents(&store);
    QCOMPARE(updated.size(), 5);
}

void WinCertStoreTest::timedOutWaitMeansNothing()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
    system.platform.fireWait(true);
    QCoreApplication::sendPostedEvents(&store);
    QCOMPARE(system.platform.takeCalls(), QStringList());
    QCOMPARE(updated.size(), 0);
}

void WinCertStoreTest::notificationReachesTheStoresThread()
{
    ScriptedSystem system;
    QThread thread; // Outlives the store that is moved to it.
    vela::WinCertStore store(nullptr);
    QThread* emittingThread = nullptr;
    int emissions = 0;
    connect(
        &store, &vela::WinCertStore::systemUpdated, &store,
        [&] {
            emittingThread = QThread::currentThread();
            ++emissions;
            thread.quit();
        },
        Qt::DirectConnection);
    store.moveToThread(&thread);
    system.platform.fireWait();
    thread.start();
    QVERIFY(thread.wait(10000));
    QCOMPARE(emissions, 1);
    QCOMPARE(emittingThread, &thread);
}

void WinCertStoreTest::notificationForADestroyedStoreIsDropped()
{
    ScriptedSystem system;
    {
        const vela::WinCertStore store(nullptr);
        system.platform.fireWait();
    }
    system.platform.takeCalls();
    QCoreApplication::sendPostedEvents();
    QCOMPARE(system.platform.takeCalls(), QStringList());
}

QTEST_GUILESS_MAIN(WinCertStoreTest)
#include "tst_wincertstore.moc"

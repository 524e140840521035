// SPDX-License-Identifier: BSD-3-Clause

/*
    How a store learns that the trusted roots have changed.

    That something is not signalled is shown without waiting in vain: a second store, which is armed
    again, is signalled for two later changes, and by then the first would have been as well.
*/

#include "PlannedCertificate.h"
#include "SignalCounter.h"
#include "TrustedRoots.h"

#include "store/platform/linux/roots/ChangeWatcher.h"
#include "store/platform/linux/roots/RootLocations.h"
#include "tests/store/StoreCertificates.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <cstdio>
#include <functional>
#include <memory>

using test::leafPlan;
using test::PlannedCertificate;
using test::WatchedStore;

namespace {

using Action = std::function<void(test::TrustedRoots&)>;

QByteArray newRoot()
{
    static int number = 0;
    return PlannedCertificate(leafPlan(QString::number(++number))).der();
}

void replaceBundle(test::TrustedRoots& roots)
{
    roots.setRoots({newRoot()});
}

void import(test::TrustedRoots&)
{
    const QByteArray der = newRoot();
    if (!vela::systemTrustPlatform().addEncodedCertificateToSystemStore(
            L"ROOT", reinterpret_cast<const BYTE*>(der.constData()), DWORD(der.size()))) {
        qFatal("the import failed");
    }
}

QString certificateDirectory(const test::TrustedRoots& roots)
{
    return roots.path(QStringLiteral("certs"));
}

void addToDirectory(test::TrustedRoots& roots)
{
    static int number = 0;
    const QString name = QStringLiteral("/%1.pem").arg(++number);
    test::writeFile(certificateDirectory(roots) + name, test::toPem(newRoot()));
}

//! Roots that are reached by a link two directories above them.
void linkHigherUp(test::TrustedRoots& roots)
{
    for (const char* name : {"one", "other"}) {
        test::writeFile(roots.path(QStringLiteral("deep/") + QLatin1String(name)
                                   + QStringLiteral("/certs/ca.pem")),
                        test::toPem(newRoot()));
    }
    QVERIFY(QFile::link(QStringLiteral("one"), roots.path(QStringLiteral("deep/current"))));
}

//! In one step, as tools for the purpose do.
void switchLinkHigherUp(test::TrustedRoots& roots)
{
    const QString next = roots.path(QStringLiteral("deep/next"));
    QVERIFY(QFile::link(QStringLiteral("other"), next));
    QCOMPARE(std::rename(QFile::encodeName(next).constData(),
                         QFile::encodeName(roots.path(QStringLiteral("deep/current"))).constData()),
             0);
}

void nothing(test::TrustedRoots&)
{
}

int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

Q_DECLARE_METATYPE(Action)

class RootChangesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void changeIsSignalledOnce_data();
    void changeIsSignalledOnce();
    void severalWritesAreOneChange();
    void otherFilesAreNoChange();
    void eachStoreIsSignalled();
    void changeBeforeItIsReadIsNoChangeAfterwards();
    void cancelledStoreIsNotSignalled();
    void closedStoreIsNotSignalled();
    void lastStoreTakesItsThreadsAlong();
    void notificationNeedsAnEvent();
    void otherControlsAreRefused();
    void changeRightAfterReadingShows();
    void changeThatNobodyAnnouncesIsFoundByAQuestion();

private:
    //! The watcher compares once after it was armed, which would find a change that nobody watches.
    //! Too short a wait can only let a test pass.
    static void letTheFirstLookPass();
    //! Lets the watcher pass twice over all that has happened so far.
    void letTheWatcherPass();

    std::unique_ptr<test::TrustedRoots> m_roots;
};

void RootChangesTest::init()
{
    m_roots = std::make_unique<test::TrustedRoots>();
    m_roots->environment().set("SSL_CERT_DIR", QFile::encodeName(certificateDirectory(*m_roots)));
    replaceBundle(*m_roots);
}

void RootChangesTest::cleanup()
{
    m_roots.reset();
}

void RootChangesTest::letTheFirstLookPass()
{
    QTest::qWait(int(3 * vela::ChangeWatcher::SETTLE_TIME.count()));
}

void RootChangesTest::letTheWatcherPass()
{
    WatchedStore witness;
    for (int pass = 1; pass <= 2; ++pass) {
        replaceBundle(*m_roots);
        QVERIFY(witness.waitFor(pass));
        witness.resynchronise();
    }
}

void RootChangesTest::changeIsSignalledOnce_data()
{
    QTest::addColumn<Action>("prepare");
    QTest::addColumn<Action>("change");
    const auto row = [](const char* name, const Action& prepare, const Action& change) {
        QTest::newRow(name) << prepare << change;
    };

    row("bundle replaced", nothing, replaceBundle);
    row("bundle written in place", nothing, [](test::TrustedRoots& roots) {
        test::writeFile(roots.bundlePath(), test::toPem(newRoot()));
    });
    row("bundle removed", nothing,
        [](test::TrustedRoots& roots) { QFile::remove(roots.bundlePath()); });
    row(
        "bundle appears", [](test::TrustedRoots& roots) { QFile::remove(roots.bundlePath()); },
        replaceBundle);
    row("directory appears", nothing, addToDirectory);
    row("file added to the directory", addToDirectory, addToDirectory);
    row("file removed from the directory", addToDirectory, [](test::TrustedRoots& roots) {
        QDir directory(certificateDirectory(roots));
        QVERIFY(directory.remove(directory.entryList(QDir::Files).value(0)));
    });
    row("directory moved away", addToDirectory, [](test::TrustedRoots& roots) {
        QVERIFY(QDir().rename(certificateDirectory(roots), roots.path(QStringLiteral("away"))));
    });
    row(
        "other target for a link to the bundle",
        [](test::TrustedRoots& roots) {
            for (const char* name : {"one", "other"}) {
                test::writeFile(roots.path(QLatin1String(name)) + QStringLiteral("/bundle.pem"),
                                test::toPem(newRoot()));
            }
            QFile::remove(roots.bundlePath());
            QVERIFY(QFile::link(roots.path(QStringLiteral("one")),
                                roots.path(QStringLiteral("current"))));
            QVERIFY(
                QFile::link(roots.path(QStringLiteral("current/bundle.pem")), roots.bundlePath()));
        },
        [](test::TrustedRoots& roots) {
            QFile::remove(roots.path(QStringLiteral("current")));
            QVERIFY(QFile::link(roots.path(QStringLiteral("other")),
                                roots.path(QStringLiteral("current"))));
        });
    row(
        "other target for a link higher up on the way to a bundle",
        [](test::TrustedRoots& roots) {
            linkHigherUp(roots);
            QFile::remove(roots.bundlePath());
            QVERIFY(QFile::link(roots.path(QStringLiteral("deep/current/certs/ca.pem")),
                                roots.bundlePath()));
        },
        switchLinkHigherUp);
    row(
        "other target for a link higher up on the way to a directory",
        [](test::TrustedRoots& roots) {
            linkHigherUp(roots);
            roots.environment().set("SSL_CERT_DIR", QFile::encodeName(roots.path(
                                                        QStringLiteral("deep/current/certs"))));
        },
        switchLinkHigherUp);
    row(
        "file behind a link replaced",
        [](test::TrustedRoots& roots) {
            test::writeFile(roots.path(QStringLiteral("elsewhere/file.pem")),
                            test::toPem(newRoot()));
            QFile::remove(roots.bundlePath());
            QVERIFY(
                QFile::link(roots.path(QStringLiteral("elsewhere/file.pem")), roots.bundlePath()));
        },
        [](test::TrustedRoots& roots) {
            test::writeFile(roots.path(QStringLiteral("elsewhere/file.pem")),
                            test::toPem(newRoot()));
        });
    row("first import of the user", nothing, import);
    row("second import of the user", import, import);
    row("user's directory removed", import, [](test::TrustedRoots& roots) {
        QVERIFY(QDir(roots.path(QStringLiteral("data"))).removeRecursively());
    });
}

void RootChangesTest::changeIsSignalledOnce()
{
    QFETCH(Action, prepare);
    QFETCH(Action, change);
    prepare(*m_roots);
    WatchedStore store;
    letTheFirstLookPass();
    change(*m_roots);
    QVERIFY(store.waitFor(1));
    letTheWatcherPass();
    QCOMPARE(store.count(), 1);

    // Armed again it is signalled again.
    store.resynchronise();
    import(*m_roots);
    QVERIFY(store.waitFor(2));
    letTheWatcherPass();
    QCOMPARE(store.count(), 2);
}

void RootChangesTest::severalWritesAreOneChange()
{
    WatchedStore store;
    for (int i = 0; i < 10; ++i) {
        replaceBundle(*m_roots);
        addToDirectory(*m_roots);
        import(*m_roots);
    }
    QVERIFY(store.waitFor(1));
    letTheWatcherPass();
    QCOMPARE(store.count(), 1);
}

void RootChangesTest::otherFilesAreNoChange()
{
    import(*m_roots);
    WatchedStore store;
    test::writeFile(m_roots->path(QStringLiteral("other")), "something");
    test::writeFile(m_roots->userDirectory() + QStringLiteral("/other.txt"), "something");
    QDir().mkpath(certificateDirectory(*m_roots) + QStringLiteral("/empty"));
    {
        // Looks at the directories after what has happened, without a change of the roots.
        WatchedStore later;
        import(*m_roots);
        QVERIFY(later.waitFor(1));
    }
    QVERIFY(store.waitFor(1));
    QCOMPARE(store.count(), 1);
}

void RootChangesTest::eachStoreIsSignalled()
{
    WatchedStore one;
    WatchedStore other;
    replaceBundle(*m_roots);
    QVERIFY(one.waitFor(1));
    QVERIFY(other.waitFor(1));
    one.resynchronise();
    letTheWatcherPass();
    QVERIFY(one.waitFor(2));
    QCOMPARE(other.count(), 1);
}

void RootChangesTest::changeBeforeItIsReadIsNoChangeAfterwards()
{
    WatchedStore store;
    replaceBundle(*m_roots);
    QVERIFY(store.waitFor(1));
    replaceBundle(*m_roots);
    store.resynchronise();
    WatchedStore witness;
    import(*m_roots);
    QVERIFY(witness.waitFor(1));
    QVERIFY(store.waitFor(2));
    letTheWatcherPass();
    QCOMPARE(store.count(), 2);
}

void RootChangesTest::cancelledStoreIsNotSignalled()
{
    WatchedStore store;
    store.control(CERT_STORE_CTRL_CANCEL_NOTIFY);
    letTheWatcherPass();
    QCOMPARE(store.count(), 0);
    store.control(CERT_STORE_CTRL_NOTIFY_CHANGE);
    replaceBundle(*m_roots);
    QVERIFY(store.waitFor(1));
}

void RootChangesTest::closedStoreIsNotSignalled()
{
    test::SignalCounter counter;
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    const HCERTSTORE store = platform.openSystemStore(0, L"ROOT");
    const HANDLE event = counter.event();
    QVERIFY(platform.controlStore(store, 2, CERT_STORE_CTRL_NOTIFY_CHANGE, &event));
    QVERIFY(platform.closeStore(store, CERT_CLOSE_STORE_FORCE_FLAG));
    letTheWatcherPass();
    QCOMPARE(counter.count(), 0);
}

void RootChangesTest::lastStoreTakesItsThreadsAlong()
{
    const int before = threadCount();
    {
        WatchedStore one;
        const WatchedStore other;
        QVERIFY(threadCount() > before);
        replaceBundle(*m_roots);
        QVERIFY(one.waitFor(1));
    }
    // The kernel lists a thread for a moment after it has been joined.
    QTRY_COMPARE(threadCount(), before);
}

void RootChangesTest::notificationNeedsAnEvent()
{
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    const HCERTSTORE store = platform.openSystemStore(0, L"ROOT");
    const HANDLE none = nullptr;
    QVERIFY(!platform.controlStore(store, 2, CERT_STORE_CTRL_NOTIFY_CHANGE, &none));
    QCOMPARE(platform.lastError(), DWORD(ERROR_INVALID_HANDLE));
    QVERIFY(!platform.controlStore(store, 2, CERT_STORE_CTRL_NOTIFY_CHANGE, nullptr));
    QVERIFY(platform.controlStore(store, 2, CERT_STORE_CTRL_RESYNC, nullptr));
    QVERIFY(platform.controlStore(store, 2, CERT_STORE_CTRL_CANCEL_NOTIFY, nullptr));
    QVERIFY(platform.closeStore(store, 0));
}

void RootChangesTest::otherControlsAreRefused()
{
    vela::TrustPlatform& platform = vela::systemTrustPlatform();
    const HCERTSTORE store = platform.openSystemStore(0, L"ROOT");
    QVERIFY(!platform.controlStore(store, 2, 3, nullptr));
    QCOMPARE(platform.lastError(), DWORD(ERROR_CALL_NOT_IMPLEMENTED));
    QVERIFY(platform.closeStore(store, 0));
    const HCERTSTORE memory = platform.openStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING, 0,
                                                 CERT_STORE_CREATE_NEW_FLAG, nullptr);
    QVERIFY(!platform.controlStore(memory, 2, CERT_STORE_CTRL_RESYNC, nullptr));
    QCOMPARE(platform.lastError(), DWORD(ERROR_CALL_NOT_IMPLEMENTED));
    QVERIFY(platform.closeStore(memory, 0));
    QVERIFY(!platform.controlStore(nullptr, 2, CERT_STORE_CTRL_RESYNC, nullptr));
    QCOMPARE(platform.lastError(), DWORD(ERROR_INVALID_HANDLE));
}

void RootChangesTest::changeRightAfterReadingShows()
{
    // In place and of equal size: nothing but the time tells the two apart.
    QByteArray pem = test::toPem(newRoot());
    for (int i = 0; i < 100; ++i) {
        test::writeFile(m_roots->bundlePath(), pem);
        const vela::RootFiles before = vela::RootLocations::fromEnvironment().files();
        pem[pem.size() / 2] = pem.at(pem.size() / 2) == 'A' ? 'B' : 'A';
        test::writeFile(m_roots->bundlePath(), pem);
        QVERIFY(!(vela::RootLocations::fromEnvironment().files() == before));
    }
}

/*
    Of a directory far above that is replaced the system tells nobody who watches the ones below, as
    it tells nobody of what happens at the other end of a network.
*/
void RootChangesTest::changeThatNobodyAnnouncesIsFoundByAQuestion()
{
    constexpr int PATIENCE = 20000;
    const PlannedCertificate root(leafPlan(QStringLiteral("withdrawn")));
    const auto write = [this, &root](const char* directory, const QByteArray& der) {
        test::writeFile(m_roots->path(QStringLiteral("mount/") + QLatin1String(directory))
                            + QStringLiteral("/a/b/ca.pem"),
                        test::toPem(der));
    };
    write("here", root.der());
    write("next", newRoot());
    m_roots->environment().set("SSL_CERT_DIR", "");
    m_roots->environment().set(
        "SSL_CERT_FILE", QFile::encodeName(m_roots->path(QStringLiteral("mount/here/a/b/ca.pem"))));
    vela::WinCertStore store(nullptr);
    vela::SslCertificateChain chain;
    chain << test::parse(test::toPem(root.der()));
    QCOMPARE(store.verify(chain), vela::VerifyOk);
    letTheFirstLookPass();
    QVERIFY(QDir().rename(m_roots->path(QStringLiteral("mount/here")),
                          m_roots->path(QStringLiteral("mount/away"))));
    QVERIFY(QDir().rename(m_roots->path(QStringLiteral("mount/next")),
                          m_roots->path(QStringLiteral("mount/here"))));
    QTRY_COMPARE_WITH_TIMEOUT(store.verify(chain), vela::VerifySelfSigned, PATIENCE);
}

QTEST_GUILESS_MAIN(RootChangesTest)
#include "tst_rootchanges.moc"

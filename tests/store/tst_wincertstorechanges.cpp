// SPDX-License-Identifier: BSD-3-Clause

/*
    Every way in which a system's roots change reaches a store that watches them: within two
    seconds, in the store's thread, once.
*/

#include "StoreCertificates.h"
#include "platform/TrustedRoots.h"

#include "store/platform/linux/roots/ChangeWatcher.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QDir>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>

using namespace test;
using vela::WinCertStore;

namespace {

constexpr int LIMIT = 2000; // milliseconds

//! Long enough for a second signal to come: the watcher waits for SETTLE_TIME before each.
constexpr int QUIET = 3 * int(vela::ChangeWatcher::SETTLE_TIME.count());

//! A pause within a change, which is shorter than what the watcher waits for.
constexpr unsigned long PAUSE = vela::ChangeWatcher::SETTLE_TIME.count() / 4;

/*! Counts the signals of a store, and those from other threads than the store's. */
class UpdateCounter
{
public:
    explicit UpdateCounter(WinCertStore* store)
    {
        QObject::connect(
            store, &WinCertStore::systemUpdated, store,
            [this, store] {
                ++m_count;
                m_strayCount += QThread::currentThread() == store->thread() ? 0 : 1;
            },
            Qt::DirectConnection);
    }

    int count() const { return m_count; }
    int strayCount() const { return m_strayCount; }

private:
    int m_count = 0;
    int m_strayCount = 0;
};

} // namespace

class WinCertStoreChangesTest;
// By a name of its own: the full one has a reference in it, and Qt's debug builds insist on having
// that spelt in another way.
using ChangeAction = std::function<void(const WinCertStoreChangesTest&)>;
Q_DECLARE_METATYPE(ChangeAction)

class WinCertStoreChangesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void changeReachesTheStore_data();
    void changeReachesTheStore();
    void rowOfChangesReachesTheStoreEachTime();
    void changeFoundByAVerificationIsSignalledOnce();
    void everyStoreIsTold();

private:
    QString directory() const { return m_roots->path(QStringLiteral("certs")); }
    QString inDirectory(const QString& name) const { return directory() + QLatin1Char('/') + name; }
    void replaceLink(const QString& target) const;
    void rewriteInParts(const QString& path, const QByteArray& content) const;
    vela::CertVerify verdict() const { return m_store->verify(wrapAll({m_leaf, m_root})); }

    Identity m_root;
    Identity m_leaf;
    Identity m_other;
    QByteArray m_pem;
    QByteArray m_otherPem;
    std::unique_ptr<TrustedRoots> m_roots;
    std::unique_ptr<WinCertStore> m_store;
};

void WinCertStoreChangesTest::initTestCase()
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Root");
    m_root = makeIdentity(spec);
    spec.commonName = QStringLiteral("Other");
    m_other = makeIdentity(spec);
    m_leaf = makeIdentity(CertificateSpec(), &m_root);
    m_pem = m_root.certificatePem();
    m_otherPem = m_other.certificatePem();
}

void WinCertStoreChangesTest::init()
{
    m_roots = std::make_unique<TrustedRoots>();
    m_roots->environment().set("SSL_CERT_DIR", QFile::encodeName(directory()));
    m_roots->setBundle(m_otherPem);
    writeFile(inDirectory(QStringLiteral("other.pem")), m_otherPem);
}

void WinCertStoreChangesTest::cleanup()
{
    m_store.reset();
    m_roots.reset();
}

//! As tools do it: nobody ever finds no link.
void WinCertStoreChangesTest::replaceLink(const QString& target) const
{
    const QString link = m_roots->path(QStringLiteral("link"));
    QVERIFY(QFile::link(target, link));
    QCOMPARE(std::rename(QFile::encodeName(link).constData(),
                         QFile::encodeName(m_roots->bundlePath()).constData()),
             0);
}

void WinCertStoreChangesTest::rewriteInParts(const QString& path, const QByteArray& content) const
{
    constexpr int PARTS = 4;
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (int i = 0; i < PARTS; ++i) {
        const int begin = content.size() * i / PARTS;
        const QByteArray part = content.mid(begin, content.size() * (i + 1) / PARTS - begin);
        QCOMPARE(file.write(part), qint64(part.size()));
        QThread::msleep(PAUSE);
    }
}

void WinCertStoreChangesTest::changeReachesTheStore_data()
{
    QTest::addColumn<ChangeAction>("prepare");
    QTest::addColumn<ChangeAction>("change");
    QTest::addColumn<bool>("isTrusted");
    using Test = WinCertStoreChangesTest;
    const ChangeAction nothing = [](const Test&) {};
    const auto row = [](const char* name, const ChangeAction& prepare, const ChangeAction& change,
                        bool isTrusted) { QTest::newRow(name) << prepare << change << isTrusted; };
    const ChangeAction trust = [](const Test& test) { test.m_roots->setBundle(test.m_pem); };
    const ChangeAction addFile = [](const Test& test) {
        writeFile(test.inDirectory(QStringLiteral("root.pem")), test.m_pem);
    };

    row("bundle replaced", nothing, trust, true);
    row(
        "bundle replaced, root gone", trust,
        [](const Test& test) { test.m_roots->setBundle(test.m_otherPem); }, false);
    row(
        "bundle removed", trust,
        [](const Test& test) { QVERIFY(QFile::remove(test.m_roots->bundlePath())); }, false);
    row(
        "bundle appears",
        [](const Test& test) { QVERIFY(QFile::remove(test.m_roots->bundlePath())); }, trust, true);
    row(
        "bundle written anew, in several writes", nothing,
        [](const Test& test) {
            test.rewriteInParts(test.m_roots->bundlePath(), test.m_otherPem + test.m_pem);
        },
        true);
    row(
        "bundle appended to", nothing,
        [](const Test& test) {
            QFile bundle(test.m_roots->bundlePath());
            QVERIFY(bundle.open(QIODevice::Append));
            bundle.write(test.m_pem);
        },
        true);
    row(
        "bundle becomes unusable", trust,
        [](const Test& test) {
            QVERIFY(QFile::remove(test.m_roots->bundlePath()));
            QVERIFY(QDir().mkdir(test.m_roots->bundlePath()));
        },
        false);
    row("file added to the directory", nothing, addFile, true);
    row(
        "file removed from the directory", addFile,
        [](const Test& test) {
            QVERIFY(QFile::remove(test.inDirectory(QStringLiteral("root.pem"))));
        },
        false);
    row(
        "link to the bundle switched",
        [](const Test& test) {
            writeFile(test.m_roots->path(QStringLiteral("a/old.pem")), test.m_otherPem);
            writeFile(test.m_roots->path(QStringLiteral("b/new.pem")), test.m_pem);
            test.replaceLink(QStringLiteral("a/old.pem"));
        },
        [](const Test& test) { test.replaceLink(QStringLiteral("b/new.pem")); }, true);
    row(
        "directory removed and made again", nothing,
        [](const Test& test) {
            QVERIFY(QDir(test.directory()).removeRecursively());
            QThread::msleep(PAUSE);
            QVERIFY(QDir().mkdir(test.directory()));
            QThread::msleep(PAUSE);
            writeFile(test.inDirectory(QStringLiteral("root.pem")), test.m_pem);
        },
        true);
    row(
        "directory replaced",
        [](const Test& test) {
            writeFile(test.m_roots->path(QStringLiteral("next/root.pem")), test.m_pem);
        },
        [](const Test& test) {
            QVERIFY(QDir().rename(test.directory(), test.m_roots->path(QStringLiteral("last"))));
            QVERIFY(QDir().rename(test.m_roots->path(QStringLiteral("next")), test.directory()));
        },
        true);
    row(
        "many files at once", nothing,
        [](const Test& test) {
            constexpr int MANY = 300;
            for (int i = 0; i < MANY; ++i)
                writeFile(test.inDirectory(QString::number(i)), test.m_otherPem);
            writeFile(test.inDirectory(QStringLiteral("root.pem")), test.m_pem);
        },
        true);
    row(
        "root imported", nothing,
        [](const Test& test) {
            QVERIFY(WinCertStore(nullptr).importSystemRootCert(wrap(test.m_root)));
        },
        true);
}

void WinCertStoreChangesTest::changeReachesTheStore()
{
    QFETCH(ChangeAction, prepare);
    QFETCH(ChangeAction, change);
    QFETCH(bool, isTrusted);
    prepare(*this);
    m_store = std::make_unique<WinCertStore>(nullptr);
    QCOMPARE(verdict(), isTrusted ? vela::VerifySelfSigned : vela::VerifyOk);
    const UpdateCounter updates(m_store.get());
    // As another program makes it, while the store's thread goes on.
    auto isChanged = std::async(std::launch::async, [&] { change(*this); });
    while (isChanged.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        QTest::qWait(1);
    QCOMPARE(updates.count(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(updates.count() > 0, LIMIT);
    QTest::qWait(QUIET);
    QCOMPARE(updates.count(), 1);
    QCOMPARE(verdict(), isTrusted ? vela::VerifyOk : vela::VerifySelfSigned);
    QCOMPARE(updates.count(), 1);
    QCOMPARE(updates.strayCount(), 0);
}

void WinCertStoreChangesTest::rowOfChangesReachesTheStoreEachTime()
{
    m_store = std::make_unique<WinCertStore>(nullptr);
    const UpdateCounter updates(m_store.get());
    for (int change = 1; change <= 6; ++change) {
        const bool isTrusted = change % 2 != 0;
        m_roots->setBundle(isTrusted ? m_pem : m_otherPem);
        QTRY_COMPARE_WITH_TIMEOUT(updates.count(), change, LIMIT);
        QCOMPARE(verdict(), isTrusted ? vela::VerifyOk : vela::VerifySelfSigned);
    }
    QTest::qWait(QUIET);
    QCOMPARE(updates.count(), 6);
    QCOMPARE(updates.strayCount(), 0);
}

void WinCertStoreChangesTest::changeFoundByAVerificationIsSignalledOnce()
{
    m_store = std::make_unique<WinCertStore>(nullptr);
    const UpdateCounter updates(m_store.get());
    m_roots->setBundle(m_pem);
    // Without the event loop, for as long as the watcher needs.
    QElapsedTimer timer;
    timer.start();
    while (updates.count() == 0 && timer.elapsed() < LIMIT)
        verdict();
    // Whether the verification or the wait was first to take the event: one of them tells.
    QTest::qWait(QUIET);
    QCOMPARE(updates.count(), 1);
    QCOMPARE(verdict(), vela::VerifyOk);
}

void WinCertStoreChangesTest::everyStoreIsTold()
{
    constexpr int STORES = 5;
    std::vector<std::unique_ptr<WinCertStore>> stores;
    std::vector<std::unique_ptr<UpdateCounter>> updates;
    for (int i = 0; i < STORES; ++i) {
        stores.push_back(std::make_unique<WinCertStore>(nullptr));
        updates.push_back(std::make_unique<UpdateCounter>(stores.back().get()));
    }
    m_roots->setBundle(m_pem);
    for (const auto& update : updates)
        QTRY_VERIFY_WITH_TIMEOUT(update->count() > 0, LIMIT);
    QTest::qWait(QUIET);
    for (int i = 0; i < STORES; ++i) {
        QCOMPARE(updates[i]->count(), 1);
        QCOMPARE(stores[i]->verify(wrapAll({m_leaf, m_root})), vela::VerifyOk);
    }
}

QTEST_GUILESS_MAIN(WinCertStoreChangesTest)
#include "tst_wincertstorechanges.moc"

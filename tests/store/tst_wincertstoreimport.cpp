// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedSystem.h"

#include <QtTest/QtTest>

using namespace test;

namespace {

const QString ADD = QStringLiteral("addEncodedCertificateToSystemStore ROOT root");

} // namespace

class WinCertStoreImportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void certificateGoesToTheRoots();
    void storeKeepsItsOwnList();
    void nothingIsImportedOfNothing();
    void refusalIsLoggedWithCodeAndText_data();
    void refusalIsLoggedWithCodeAndText();
    void refusalIsSilentWithoutAStream();
    void textIsTakenUpToTheEndOfTheBuffer();
    void importIsAnnouncedWithTheNotification();
};

void WinCertStoreImportTest::certificateGoesToTheRoots()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QVERIFY(store.importSystemRootCert(wrap(system.certificates.root)));
    QCOMPARE(system.platform.takeCalls(), QStringList(ADD + QStringLiteral(" -> done")));
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreImportTest::storeKeepsItsOwnList()
{
    const ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    const vela::SslCertificatePtr root = wrap(system.certificates.root);
    store.addOneCertificate(wrap(system.certificates.leaf));
    QVERIFY(store.importSystemRootCert(root));
    QCOMPARE(store.count(), 1);
    QCOMPARE(store.indexOf(root), -1);
}

void WinCertStoreImportTest::nothingIsImportedOfNothing()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QVERIFY(!store.importSystemRootCert(vela::SslCertificatePtr()));
    QVERIFY(!store.importSystemRootCert(vela::SslCertificatePtr(new vela::SslCertificate)));
    QCOMPARE(system.platform.takeCalls(), QStringList());
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreImportTest::refusalIsLoggedWithCodeAndText_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QString& message, uint code, const char* expected) {
        QTest::newRow(name) << message << code << QString::fromUtf8(expected);
    };
    row("no text", QString(), 5, "5: ");
    row("large code", QString(), 0x80092005, "2148081669: ");
    row("text", QStringLiteral("Access is denied."), 5, "5: Access is denied.");
    row("text up to its end", QStringLiteral("Access") + QChar(QChar::Null) + QStringLiteral("old"),
        5, "5: Access");
    row("other than ASCII", QStringLiteral("Acc\u00e8s refus\u00e9"), 1223,
        "1223: Acc\xc3\xa8s refus\xc3\xa9");
}

void WinCertStoreImportTest::refusalIsLoggedWithCodeAndText()
{
    QFETCH(QString, message);
    QFETCH(uint, code);
    QFETCH(QString, expected);
    ScriptedSystem system;
    system.platform.fail(QStringLiteral("addEncodedCertificateToSystemStore"), code);
    if (!message.isEmpty())
        system.platform.setMessage(message.toStdWString() + L'\0');
    vela::WinCertStore store(nullptr);
    system.platform.takeCalls();
    QVERIFY(!store.importSystemRootCert(wrap(system.certificates.root)));
    QCOMPARE(system.platform.takeCalls(),
             QStringList({ADD + QStringLiteral(" -> failed"),
                          QStringLiteral("lastError -> %1").arg(code),
                          QStringLiteral("formatMessage 0 null %1 0 set 0 -> 0").arg(code)}));
    QCOMPARE(system.log.text(), failureLine("importSystemRootCert", expected));
}

void WinCertStoreImportTest::refusalIsSilentWithoutAStream()
{
    ScriptedSystem system;
    vela::Log::instance().setStream(nullptr);
    system.platform.fail(QStringLiteral("addEncodedCertificateToSystemStore"), 5);
    vela::WinCertStore store(nullptr);
    QVERIFY(!store.importSystemRootCert(wrap(system.certificates.root)));
    QCOMPARE(system.log.text(), QString());
}

void WinCertStoreImportTest::textIsTakenUpToTheEndOfTheBuffer()
{
    ScriptedSystem system;
    system.platform.fail(QStringLiteral("addEncodedCertificateToSystemStore"), 5);
    system.platform.setMessage(std::wstring(4096, L'x'));
    vela::WinCertStore store(nullptr);
    QVERIFY(!store.importSystemRootCert(wrap(system.certificates.root)));
    QCOMPARE(system.log.text(),
             failureLine("importSystemRootCert",
                         QStringLiteral("5: ") + QString(4096, QLatin1Char('x'))));
}

void WinCertStoreImportTest::importIsAnnouncedWithTheNotification()
{
    ScriptedSystem system;
    vela::WinCertStore store(nullptr);
    QSignalSpy updated(&store, &vela::WinCertStore::systemUpdated);
    QVERIFY(store.importSystemRootCert(wrap(system.certificates.root)));
    QCoreApplication::sendPostedEvents(&store);
    QCOMPARE(updated.size(), 0);
    system.platform.fireWait();
    QCoreApplication::sendPostedEvents(&store);
    QCOMPARE(updated.size(), 1);
}

QTEST_GUILESS_MAIN(WinCertStoreImportTest)
#include "tst_wincertstoreimport.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedStore.h"

#include <Ferrule/GenericCertStore.h>
#include <Ferrule/RecursiveMutex.h>

#include <QtTest/QtTest>

#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>

using namespace test;
using vela::CertificateStore;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

/*
    Returns the place of a virtual function in the table of its class. By the C++ ABI that all
    supported compilers share, a pointer to it holds the offset of its entry.
*/
template <typename Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t words[2];
    static_assert(sizeof member == sizeof words, "not the layout this relies on");
    std::memcpy(words, &member, sizeof words);
    return words[0] / static_cast<std::ptrdiff_t>(sizeof(void*));
}

//! Gives access to the last virtual function of QObject, which is protected.
struct ObjectSlots : QObject
{
    static std::ptrdiff_t last() { return slotOf(&ObjectSlots::disconnectNotify); }
};

} // namespace

class StoreObjectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObjectHasTheFourSignalsInOrder();
    void virtualOperationsStandInOrder();
    void verdictsHaveTheirValues_data();
    void verdictsHaveTheirValues();
    void textsOfTheClassAreTranslatedInItsContext();
    void parentOwnsTheStore();
    void noOperationEmitsASignal();
    void signalsTravelThroughQueuedConnections();
    void mutexIsRecursive();
    void destroyedCertificateMayCallBack_data();
    void destroyedCertificateMayCallBack();
    void globalInstancesAreNullAtStart();
    void destroyedStoreLeavesTheGlobalInstances_data();
    void destroyedStoreLeavesTheGlobalInstances();

private:
    const KnownCertificates m_known;
};

void StoreObjectTest::metaObjectHasTheFourSignalsInOrder()
{
    const QMetaObject& meta = CertificateStore::staticMetaObject;
    QCOMPARE(meta.className(), "vela::CertificateStore");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    const QList<QByteArray> expected = {"added(SslCertificatePtr)", "updated(SslCertificatePtr)",
                                        "removed(SslCertificatePtr)", "systemUpdated()"};
    QCOMPARE(meta.methodCount() - meta.methodOffset(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaMethod method = meta.method(meta.methodOffset() + i);
        QCOMPARE(method.methodSignature(), expected.at(i));
        QCOMPARE(method.methodType(), QMetaMethod::Signal);
    }
    const ScriptedStore store;
    QVERIFY(store.inherits("vela::CertificateStore"));
}

void StoreObjectTest::virtualOperationsStandInOrder()
{
    using VerifyChain = vela::CertVerify (CertificateStore::*)(const SslCertificateChain&);
    using VerifyCertificate = vela::CertVerify (CertificateStore::*)(SslCertificatePtr);
    const std::ptrdiff_t first = ObjectSlots::last() + 1;
    QCOMPARE(slotOf(static_cast<VerifyChain>(&CertificateStore::verify)), first);
    QCOMPARE(slotOf(static_cast<VerifyCertificate>(&CertificateStore::verify)), first + 1);
    QCOMPARE(slotOf(&CertificateStore::importSystemRootCert), first + 2);
    QCOMPARE(slotOf(&vela::GenericCertStore::importRootCerts), first + 3);
}

void StoreObjectTest::verdictsHaveTheirValues_data()
{
    QTest::addColumn<int>("verdict");
    QTest::addColumn<int>("value");
    QTest::newRow("unknown") << static_cast<int>(vela::VerifyUnknown) << 0;
    QTest::newRow("ok") << static_cast<int>(vela::VerifyOk) << 1;
    QTest::newRow("self-signed") << static_cast<int>(vela::VerifySelfSigned) << 2;
    QTest::newRow("expired") << static_cast<int>(vela::VerifyExpired) << 3;
    QTest::newRow("not yet valid") << static_cast<int>(vela::VerifyNotYetValid) << 4;
    QTest::newRow("failed") << static_cast<int>(vela::VerifyFailed) << 5;
}

void StoreObjectTest::verdictsHaveTheirValues()
{
    QFETCH(int, verdict);
    QTEST(verdict, "value");
}

void StoreObjectTest::textsOfTheClassAreTranslatedInItsContext()
{
    class Translator : public QTranslator
    {
    public:
        bool isEmpty() const override { return false; }
        QString translate(const char* context, const char* source, const char* disambiguation,
                          int n) const override
        {
            return QStringLiteral("%1|%2|%3|%4")
                .arg(QString::fromLatin1(context), QString::fromLatin1(source),
                     QString::fromLatin1(disambiguation))
                .arg(n);
        }
    };
    QCOMPARE(CertificateStore::tr("text", "hint", 7), QStringLiteral("text"));
    Translator translator;
    QCoreApplication::installTranslator(&translator);
    QCOMPARE(CertificateStore::tr("text", "hint", 7),
             QStringLiteral("vela::CertificateStore|text|hint|7"));
}

void StoreObjectTest::parentOwnsTheStore()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<CertificateStore> store = new ScriptedStore(parent.get());
    QCOMPARE(store->parent(), parent.get());
    parent.reset();
    QVERIFY(!store);
}

void StoreObjectTest::noOperationEmitsASignal()
{
    ScriptedStore store;
    const QSignalSpy added(&store, &CertificateStore::added);
    const QSignalSpy updated(&store, &CertificateStore::updated);
    const QSignalSpy removed(&store, &CertificateStore::removed);
    const QSignalSpy systemUpdated(&store, &CertificateStore::systemUpdated);
    store.addOneCertificate(m_known.a);
    store.addCertificateChain(chainOf({m_known.a, m_known.r}));
    store.addOneCertificate(m_known.b);
    store.addOneCertificate(m_known.c);
    store.trustInfo(m_known.a).accept = vela::AcceptOnce;
    store.verify(m_known.a);
    store.removeCertificate(0);
    store.removeCertificate(m_known.b);
    store.clear();
    QCoreApplication::processEvents();
    QCOMPARE(added.count() + updated.count() + removed.count() + systemUpdated.count(), 0);

    Q_EMIT store.added(m_known.a);
    Q_EMIT store.updated(m_known.a);
    Q_EMIT store.removed(m_known.a);
    Q_EMIT store.systemUpdated();
    QCOMPARE(added.count() + updated.count() + removed.count() + systemUpdated.count(), 4);
}

void StoreObjectTest::signalsTravelThroughQueuedConnections()
{
    ScriptedStore emitter;
    ScriptedStore relay;
    SslCertificatePtr received;
    connect(&emitter, SIGNAL(added(SslCertificatePtr)), &relay,
                             SIGNAL(removed(SslCertificatePtr)), Qt::QueuedConnection);
    connect(&relay, &CertificateStore::removed,
            [&](SslCertificatePtr certificate) { received = certificate; });
    Q_EMIT emitter.added(m_known.a);
    QVERIFY(!received);
    QCoreApplication::processEvents();
    QCOMPARE(received, m_known.a);
}

void StoreObjectTest::mutexIsRecursive()
{
    vela::RecursiveMutex mutex;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    mutex.unlock();
}

void StoreObjectTest::destroyedCertificateMayCallBack_data()
{
    QTest::addColumn<int>("operation");
    QTest::newRow("removed") << 0;
    QTest::newRow("replaced") << 1;
    QTest::newRow("cleared") << 2;
}

void StoreObjectTest::destroyedCertificateMayCallBack()
{
    QFETCH(int, operation);
    ScriptedStore store;
    SslCertificatePtr victim = parse(m_known.alpha.certificatePem());
    QObject* const object = victim.get();
    store.addOneCertificate(victim);
    store.addOneCertificate(m_known.b);
    victim.reset();
    QList<int> answers;
    connect(object, &QObject::destroyed, &store, [&] {
        answers << store.indexOf(m_known.b) << store.addOneCertificate(m_known.c)
                << store.indexOf(m_known.c) << store.count();
    });
    const QList<std::function<void()>> operations = {[&] { store.removeCertificate(0); },
                                                     [&] { store.addOneCertificate(m_known.a); },
                                                     [&] { store.clear(); }};
    const QList<QList<int>> expected = {{0, 1, 1, 2}, {1, 2, 2, 3}, {-1, 0, 0, 1}};
    operations.at(operation)();
    QCOMPARE(answers, expected.at(operation));
    QCOMPARE(store.count(), expected.at(operation).last());
    for (int i = 0; i < store.count(); ++i)
        QCOMPARE(store.indexOf(store[i].endCert()), i);
}

void StoreObjectTest::globalInstancesAreNullAtStart()
{
    QCOMPARE(sizeof ScriptedStore::gGlobalInstance, 2 * sizeof(CertificateStore*));
    QCOMPARE(ScriptedStore::gGlobalInstance[0], nullptr);
    QCOMPARE(ScriptedStore::gGlobalInstance[1], nullptr);
}

void StoreObjectTest::destroyedStoreLeavesTheGlobalInstances_data()
{
    QTest::addColumn<bool>("first");
    QTest::addColumn<bool>("second");
    QTest::newRow("neither") << false << false;
    QTest::newRow("the first") << true << false;
    QTest::newRow("the second") << false << true;
    QTest::newRow("both") << true << true;
}

void StoreObjectTest::destroyedStoreLeavesTheGlobalInstances()
{
    QFETCH(bool, first);
    QFETCH(bool, second);
    ScriptedStore staying;
    auto going = std::make_unique<ScriptedStore>();
    ScriptedStore::gGlobalInstance[0] = first ? going.get() : &staying;
    ScriptedStore::gGlobalInstance[1] = second ? going.get() : &staying;
    going.reset();
    QCOMPARE(ScriptedStore::gGlobalInstance[0], first ? nullptr : &staying);
    QCOMPARE(ScriptedStore::gGlobalInstance[1], second ? nullptr : &staying);
}

QTEST_GUILESS_MAIN(StoreObjectTest)
#include "tst_storeobject.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/HandleWatch.h"
#include "tests/common/PemFile.h"
#include "tests/common/TestCertificates.h"

#include <Ferrule/SslCertificateChain.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <QtTest/QtTest>

#include <type_traits>

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

using Certificates = QList<SslCertificatePtr>;
using Handles = QList<x509_st*>;

static_assert(std::has_virtual_destructor<SslCertificateChain>::value, "hosts delete by the base");
static_assert(sizeof(SslCertificateChain) == sizeof(void*) + sizeof(Certificates),
              "a chain has no members of its own");

namespace {

//! Rows hold these: the library declares no types to Qt's templates, and the tests must not either.
struct Row
{
    Certificates a;
    Certificates b;
};

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

test::Identity makeNamed(const char* commonName)
{
    test::CertificateSpec spec;
    spec.commonName = text(commonName);
    return test::makeIdentity(spec);
}

Handles readPem(const QByteArray& pem)
{
    return SslCertificateChain::readPem(pem.constData(), pem.size());
}

SslCertificatePtr parse(const QByteArray& pem)
{
    return SslCertificatePtr(new SslCertificate(pem.constData(), pem.size()));
}

SslCertificatePtr wrap(x509_st* handle)
{
    return SslCertificatePtr(new SslCertificate(handle, false));
}

Handles handlesOf(const SslCertificateChain& chain)
{
    Handles handles;
    for (const SslCertificatePtr& certificate : chain)
        handles.append(certificate ? certificate->x509() : nullptr);
    return handles;
}

QList<QByteArray> sha1Of(const Handles& handles)
{
    QList<QByteArray> digests;
    for (const x509_st* handle : handles)
        digests.append(SslCertificate::sha1Digest(handle));
    return digests;
}

//! Emits a chain as a host's object does, naming the type as the library registers it.
class Sender : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void received(const vela::SslCertificateChain& chain);
};

class Receiver : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void take(const vela::SslCertificateChain& chain) { taken.append(chain); }

public:
    QList<SslCertificateChain> taken;
};

} // namespace

Q_DECLARE_METATYPE(Row)

class SslCertificateChainTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void newChainIsEmpty();
    void copiesShareTheCertificates();
    void listIsCopied();
    void handlesAreWrappedInOrder();
    void assignedHandlesReplaceTheList();
    void handlesAreAppended();
    void oneHandleIsAppended();
    void nullHandleIsAppendedAsAnEmptyCertificate();
    void pointerIsAppendedUnchanged();

    void emptinessLooksAtTheFirstElement_data();
    void emptinessLooksAtTheFirstElement();
    void endAndRootOfTwoHandles();
    void endAndRootOfOneAreTheSame();
    void endAndRootOfAnEmptyChainAreNull();
    void endAndRootMayBeNullElements();
    void endAndRootOfASharedChainDetach();

    void elementsCompare_data();
    void elementsCompare();
    void chainsOfDifferentSizesAreUnequal();
    void emptyChainsAreEqual();
    void equalFingerprintsAreEqualChains();
    void nullFirstElementEqualsAnyCertificate();
    void mismatchAtAnyPlaceIsUnequal_data();
    void mismatchAtAnyPlaceIsUnequal();
    void orderMatters();

    void releaseSkipsNullEntries();

    void chainDoesNotOwnWrappedHandles();
    void ownedCertificatesGoWithTheLastPointer();
    void ownedCopyOutlivesTheHandles();
    void ownedCopyKeepsNullAndEmptyElements();

    void typeIsRegisteredAtLoad();
    void chainTravelsInAVariant();
    void chainTravelsThroughAQueuedSignal();

private:
    test::Identity m_leaf;
    test::Identity m_root;
    QByteArray m_leafPem;
    QByteArray m_rootPem;
};

void SslCertificateChainTest::initTestCase()
{
    m_leaf = makeNamed("leaf");
    m_root = makeNamed("root");
    m_leafPem = test::toPem(m_leaf.der());
    m_rootPem = test::toPem(m_root.der());
}

void SslCertificateChainTest::init()
{
    test::freedHandles = 0;
}

void SslCertificateChainTest::cleanup()
{
    QCOMPARE(ERR_peek_error(), 0UL);
}

void SslCertificateChainTest::newChainIsEmpty()
{
    const SslCertificateChain chain;
    QCOMPARE(chain.size(), 0);
    QVERIFY(chain.isEmpty());
}

void SslCertificateChainTest::copiesShareTheCertificates()
{
    const SslCertificateChain chain(Certificates{parse(m_leafPem), SslCertificatePtr()});
    const SslCertificateChain copy(chain);
    SslCertificateChain assigned;
    assigned << m_root.x509();
    assigned = chain;

    QCOMPARE(copy.size(), 2);
    QVERIFY(copy.at(0) == chain.at(0));
    QVERIFY(!copy.at(1));
    QCOMPARE(assigned.size(), 2);
    QVERIFY(assigned.at(0) == chain.at(0));
    QVERIFY(!assigned.at(1));

    assigned << m_root.x509();
    QCOMPARE(chain.size(), 2);
}

void SslCertificateChainTest::listIsCopied()
{
    Certificates list{SslCertificatePtr(), parse(m_leafPem)};
    const SslCertificateChain chain(list);
    QCOMPARE(chain.size(), 2);
    QVERIFY(!chain.at(0));
    QVERIFY(chain.at(1) == list.at(1));
    list.clear();
    QCOMPARE(chain.size(), 2);
}

void SslCertificateChainTest::handlesAreWrappedInOrder()
{
    const Handles handles{m_leaf.x509(), nullptr, m_root.x509(), m_leaf.x509()};
    const SslCertificateChain chain(handles);
    QCOMPARE(chain.size(), 4);
    for (const SslCertificatePtr& certificate : chain)
        QVERIFY(certificate);
    QCOMPARE(handlesOf(chain), handles);
    QCOMPARE(chain.at(2)->subjectCommonName(), text("root"));
    QVERIFY(SslCertificateChain(Handles()).isEmpty());
}

void SslCertificateChainTest::assignedHandlesReplaceTheList()
{
    SslCertificateChain chain(Handles{m_leaf.x509(), m_leaf.x509(), m_leaf.x509()});
    const Handles handles{m_root.x509(), nullptr};
    SslCertificateChain& result = chain = handles;
    QCOMPARE(&result, &chain);
    QCOMPARE(handlesOf(chain), handles);

    chain = Handles();
    QCOMPARE(chain.size(), 0);
}

void SslCertificateChainTest::handlesAreAppended()
{
    SslCertificateChain chain(Handles{m_leaf.x509()});
    SslCertificateChain& result = chain << Handles{m_root.x509(), nullptr} << Handles();
    QCOMPARE(&result, &chain);
    QCOMPARE(handlesOf(chain), (Handles{m_leaf.x509(), m_root.x509(), nullptr}));
    QVERIFY(chain.at(2));
}

void SslCertificateChainTest::oneHandleIsAppended()
{
    SslCertificateChain chain;
    SslCertificateChain& result = chain << m_leaf.x509() << m_root.x509();
    QCOMPARE(&result, &chain);
    QCOMPARE(handlesOf(chain), (Handles{m_leaf.x509(), m_root.x509()}));
}

void SslCertificateChainTest::nullHandleIsAppendedAsAnEmptyCertificate()
{
    SslCertificateChain chain;
    chain << static_cast<x509_st*>(nullptr);
    QCOMPARE(chain.size(), 1);
    QVERIFY(chain.at(0));
    QVERIFY(chain.at(0)->isEmpty());
}

void SslCertificateChainTest::pointerIsAppendedUnchanged()
{
    const SslCertificatePtr certificate = parse(m_leafPem);
    SslCertificateChain chain;
    SslCertificateChain& result = chain << certificate << SslCertificatePtr();
    QCOMPARE(&result, &chain);
    QCOMPARE(chain.size(), 2);
    QVERIFY(chain.at(0) == certificate);
    QVERIFY(!chain.at(1));
}

void SslCertificateChainTest::emptinessLooksAtTheFirstElement_data()
{
    const SslCertificatePtr null;
    const SslCertificatePtr empty(new SslCertificate);
    const SslCertificatePtr leaf = parse(m_leafPem);

    QTest::addColumn<Row>("row");
    QTest::addColumn<bool>("isEmpty");
    QTest::newRow("no element") << Row{Certificates(), {}} << true;
    QTest::newRow("null pointer") << Row{Certificates{null}, {}} << true;
    QTest::newRow("null pointer, certificate") << Row{Certificates{null, leaf}, {}} << true;
    QTest::newRow("null handle") << Row{Certificates{empty}, {}} << true;
    QTest::newRow("null handle, certificates") << Row{Certificates{empty, leaf, leaf}, {}} << true;
    QTest::newRow("certificate") << Row{Certificates{leaf}, {}} << false;
    QTest::newRow("certificate, null pointer") << Row{Certificates{leaf, null}, {}} << false;
    QTest::newRow("certificate, null handle") << Row{Certificates{leaf, empty}, {}} << false;
}

void SslCertificateChainTest::emptinessLooksAtTheFirstElement()
{
    QFETCH(Row, row);
    const SslCertificateChain chain(row.a);
    QTEST(chain.isEmpty(), "isEmpty");
    QCOMPARE(chain.size(), row.a.size());
}

void SslCertificateChainTest::endAndRootOfTwoHandles()
{
    SslCertificateChain chain(Handles{m_leaf.x509(), m_root.x509()});
    QCOMPARE(chain.endCert()->x509(), m_leaf.x509());
    QCOMPARE(chain.rootCert()->x509(), m_root.x509());
    QCOMPARE(qAsConst(chain).endCert()->x509(), m_leaf.x509());
    QCOMPARE(qAsConst(chain).rootCert()->x509(), m_root.x509());
}

void SslCertificateChainTest::endAndRootOfOneAreTheSame()
{
    const SslCertificateChain chain(Handles{m_leaf.x509()});
    QVERIFY(chain.endCert());
    QVERIFY(chain.endCert() == chain.rootCert());
}

void SslCertificateChainTest::endAndRootOfAnEmptyChainAreNull()
{
    SslCertificateChain chain;
    QVERIFY(!chain.endCert());
    QVERIFY(!chain.rootCert());
    QVERIFY(!qAsConst(chain).endCert());
    QVERIFY(!qAsConst(chain).rootCert());
    QCOMPARE(chain.size(), 0);
}

void SslCertificateChainTest::endAndRootMayBeNullElements()
{
    const SslCertificateChain chain(
        Certificates{SslCertificatePtr(), parse(m_leafPem), SslCertificatePtr()});
    QVERIFY(!chain.endCert());
    QVERIFY(!chain.rootCert());
}

void SslCertificateChainTest::endAndRootOfASharedChainDetach()
{
    const SslCertificateChain original(Handles{m_leaf.x509(), m_root.x509()});
    SslCertificateChain endCopy(original);
    SslCertificateChain rootCopy(original);
    QVERIFY(qAsConst(endCopy).endCert());
    QVERIFY(qAsConst(rootCopy).rootCert());
    QVERIFY(endCopy.isSharedWith(original));
    QVERIFY(rootCopy.isSharedWith(original));

    QVERIFY(endCopy.endCert() == original.at(0));
    QVERIFY(!endCopy.isSharedWith(original));
    QVERIFY(rootCopy.rootCert() == original.at(1));
    QVERIFY(!rootCopy.isSharedWith(original));
}

void SslCertificateChainTest::elementsCompare_data()
{
    const SslCertificatePtr null;
    const SslCertificatePtr empty(new SslCertificate);
    const SslCertificatePtr otherEmpty(new SslCertificate);
    const SslCertificatePtr leaf = parse(m_leafPem);
    const SslCertificatePtr sameLeaf = parse(m_leafPem);
    const SslCertificatePtr root = parse(m_rootPem);

    QTest::addColumn<Row>("row");
    QTest::addColumn<bool>("match");
    QTest::newRow("same pointer") << Row{{leaf}, {leaf}} << true;
    QTest::newRow("both null") << Row{{null}, {null}} << true;
    QTest::newRow("null, certificate") << Row{{null}, {leaf}} << true;
    QTest::newRow("null, null handle") << Row{{null}, {empty}} << true;
    QTest::newRow("certificate, null") << Row{{leaf}, {null}} << false;
    QTest::newRow("null handle, null") << Row{{empty}, {null}} << false;
    QTest::newRow("null handles") << Row{{empty}, {otherEmpty}} << true;
    QTest::newRow("same null handle") << Row{{empty}, {empty}} << true;
    QTest::newRow("null handle, certificate") << Row{{empty}, {leaf}} << false;
    QTest::newRow("certificate, null handle") << Row{{leaf}, {empty}} << false;
    QTest::newRow("equal fingerprints") << Row{{leaf}, {sameLeaf}} << true;
    QTest::newRow("different certificates") << Row{{leaf}, {root}} << false;
}

void SslCertificateChainTest::elementsCompare()
{
    QFETCH(Row, row);
    QFETCH(bool, match);
    const SslCertificateChain chain(row.a);
    QCOMPARE(chain == row.b, match);
    QCOMPARE(chain != row.b, !match);
    QCOMPARE(chain == SslCertificateChain(row.b), match);
    QCOMPARE(SslCertificate::equals(row.a.first(), row.b.first()), match);
}

void SslCertificateChainTest::chainsOfDifferentSizesAreUnequal()
{
    const SslCertificatePtr leaf = parse(m_leafPem);
    const SslCertificateChain one(Certificates{leaf});
    const SslCertificateChain two(Certificates{leaf, leaf});
    QVERIFY(one != two);
    QVERIFY(two != one);
    QVERIFY(!(one == two));
    QVERIFY(!(two == one));
    QVERIFY(one != SslCertificateChain());
    QVERIFY(SslCertificateChain() != one);
    // A null element matches anything in its place, but not nothing.
    QVERIFY(SslCertificateChain(Certificates{SslCertificatePtr()}) != Certificates());
    QVERIFY(SslCertificateChain(Certificates{leaf, SslCertificatePtr()}) != one);
}

void SslCertificateChainTest::emptyChainsAreEqual()
{
    QVERIFY(SslCertificateChain() == SslCertificateChain());
    QVERIFY(!(SslCertificateChain() != Certificates()));
}

void SslCertificateChainTest::equalFingerprintsAreEqualChains()
{
    const SslCertificateChain chain(Certificates{parse(m_leafPem), parse(m_rootPem)});
    const Certificates list{parse(m_leafPem), wrap(m_root.x509())};
    QVERIFY(chain.at(0) != list.at(0));
    QVERIFY(chain == list);
    QVERIFY(!(chain != list));
}

void SslCertificateChainTest::nullFirstElementEqualsAnyCertificate()
{
    const Certificates withNull{SslCertificatePtr(), parse(m_rootPem)};
    const Certificates withLeaf{parse(m_leafPem), parse(m_rootPem)};
    QVERIFY(SslCertificateChain(withNull) == withLeaf);
    QVERIFY(SslCertificateChain(withLeaf) != withNull);
}

void SslCertificateChainTest::mismatchAtAnyPlaceIsUnequal_data()
{
    QTest::addColumn<int>("place");
    QTest::newRow("first") << 0;
    QTest::newRow("middle") << 1;
    QTest::newRow("last") << 2;
}

void SslCertificateChainTest::mismatchAtAnyPlaceIsUnequal()
{
    QFETCH(int, place);
    const SslCertificateChain chain(Certificates{
        wrap(m_leaf.x509()), SslCertificatePtr(new SslCertificate), wrap(m_leaf.x509())});
    Certificates other = chain;
    QVERIFY(chain == other);
    other[place] = wrap(m_root.x509());
    QVERIFY(chain != other);
    QVERIFY(SslCertificateChain(other) != chain);
}

void SslCertificateChainTest::orderMatters()
{
    QVERIFY(SslCertificateChain(Handles{m_leaf.x509(), m_root.x509()})
            != SslCertificateChain(Handles{m_root.x509(), m_leaf.x509()}));
}

void SslCertificateChainTest::releaseSkipsNullEntries()
{
    Handles handles = readPem(m_leafPem + m_rootPem);
    QCOMPARE(handles.size(), 2);
    for (x509_st* handle : qAsConst(handles))
        test::watched(handle);
    handles.prepend(nullptr);
    handles.insert(2, nullptr);
    handles.append(nullptr);
    SslCertificateChain::release(handles);
    QCOMPARE(test::freedHandles, 2);
    QVERIFY(handles.isEmpty());
    SslCertificateChain::release(handles);
    QCOMPARE(test::freedHandles, 2);
}

void SslCertificateChainTest::chainDoesNotOwnWrappedHandles()
{
    Handles handles = readPem(m_leafPem + m_rootPem);
    QCOMPARE(handles.size(), 2);
    for (x509_st* handle : qAsConst(handles))
        test::watched(handle);
    {
        SslCertificateChain chain(handles);
        chain << handles << handles.at(0);
        chain = handles;
        const SslCertificateChain copy(chain);
    }
    QCOMPARE(test::freedHandles, 0);
    QCOMPARE(sha1Of(handles), sha1Of({m_leaf.x509(), m_root.x509()}));
    SslCertificateChain::release(handles);
    QCOMPARE(test::freedHandles, 2);
}

void SslCertificateChainTest::ownedCertificatesGoWithTheLastPointer()
{
    SslCertificatePtr last;
    {
        SslCertificateChain chain;
        chain << parse(m_leafPem) << parse(m_rootPem);
        test::watched(chain.at(0)->x509());
        test::watched(chain.at(1)->x509());
        const SslCertificateChain copy(chain);
        chain.clear();
        QCOMPARE(test::freedHandles, 0);
        last = copy.endCert();
    }
    QCOMPARE(test::freedHandles, 1);
    QCOMPARE(last->subjectCommonName(), text("leaf"));
    last.reset();
    QCOMPARE(test::freedHandles, 2);
}

void SslCertificateChainTest::ownedCopyOutlivesTheHandles()
{
    Handles handles = readPem(m_leafPem + m_rootPem);
    for (x509_st* handle : qAsConst(handles))
        test::watched(handle);
    SslCertificateChain copy = SslCertificateChain(handles).ownedCopy();
    SslCertificateChain::release(handles);
    QCOMPARE(test::freedHandles, 0);
    QCOMPARE(copy.size(), 2);
    QCOMPARE(copy.encodePem().toLatin1(), m_leafPem + m_rootPem);
    copy.clear();
    QCOMPARE(test::freedHandles, 2);
}

void SslCertificateChainTest::ownedCopyKeepsNullAndEmptyElements()
{
    SslCertificateChain chain;
    chain << SslCertificatePtr() << static_cast<x509_st*>(nullptr) << parse(m_leafPem);
    const SslCertificateChain copy = chain.ownedCopy();
    QCOMPARE(copy.size(), 3);
    QVERIFY(!copy.at(0));
    QVERIFY(copy.at(1)->isEmpty());
    QCOMPARE(copy.at(2)->subjectCommonName(), text("leaf"));
    QVERIFY(copy.at(2) != chain.at(2));
}

void SslCertificateChainTest::typeIsRegisteredAtLoad()
{
    const int id = QMetaType::type("vela::SslCertificateChain");
    QVERIFY(id >= QMetaType::User);
    QCOMPARE(id, SslCertificate::g_metaTypes[1]);
    QCOMPARE(QMetaType::sizeOf(id), int(sizeof(SslCertificateChain)));
    const QMetaType::TypeFlags flags = QMetaType::typeFlags(id);
    QVERIFY(flags.testFlag(QMetaType::NeedsConstruction));
    QVERIFY(flags.testFlag(QMetaType::NeedsDestruction));
}

void SslCertificateChainTest::chainTravelsInAVariant()
{
    const int id = QMetaType::type("vela::SslCertificateChain");
    QVariant variant;
    {
        SslCertificateChain chain;
        chain << parse(m_leafPem) << SslCertificatePtr();
        test::watched(chain.at(0)->x509());
        variant = QVariant(id, &chain);
    }
    QCOMPARE(test::freedHandles, 0);
    QCOMPARE(QByteArray(variant.typeName()), QByteArray("vela::SslCertificateChain"));
    {
        const QVariant copy = variant;
        const auto* chain = static_cast<const SslCertificateChain*>(copy.constData());
        QCOMPARE(chain->size(), 2);
        QCOMPARE(chain->endCert()->subjectCommonName(), text("leaf"));
        QVERIFY(!chain->rootCert());
    }
    variant.clear();
    QCOMPARE(test::freedHandles, 1);
}

void SslCertificateChainTest::chainTravelsThroughAQueuedSignal()
{
    Sender sender;
    Receiver receiver;
    QVERIFY(connect(&sender, SIGNAL(received(vela::SslCertificateChain)), &receiver,
                                    SLOT(take(vela::SslCertificateChain)), Qt::QueuedConnection));
    {
        SslCertificateChain chain;
        chain << parse(m_leafPem) << parse(m_rootPem);
        test::watched(chain.at(0)->x509());
        Q_EMIT sender.received(chain);
    }
    QVERIFY(receiver.taken.isEmpty());
    QCOMPARE(test::freedHandles, 0);
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(receiver.taken.size(), 1);
    QCOMPARE(receiver.taken.first().rootCert()->subjectCommonName(), text("root"));
    receiver.taken.clear();
    QCOMPARE(test::freedHandles, 1);
}

QTEST_GUILESS_MAIN(SslCertificateChainTest)
#include "tst_sslcertificatechain.moc"

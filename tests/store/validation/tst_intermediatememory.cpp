// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/DerWriter.h"

#include "store/validation/CertificatePool.h"
#include "store/validation/IntermediateMemory.h"

#include <QtTest/QtTest>

using namespace vela;

namespace {

constexpr qint64 PLENTY = 1000000000000;

//! A certificate that nobody has signed; \a padding makes it longer.
QByteArray stranger(int number, const QByteArray& name = "Authority", int padding = 0)
{
    test::der::Certificate one;
    one.subject = test::der::commonName(name);
    one.serial = QByteArray(1, '\1') + char(number >> 16) + char(number >> 8) + char(number);
    one.extensions = test::der::authorityExtension();
    if (padding > 0)
        one.extensions += test::der::extension("2a030405", QByteArray(padding, '\xFF'));
    return test::der::encode(one);
}

QByteArray issuedBy(const QByteArray& name)
{
    test::der::Certificate one;
    one.issuer = test::der::commonName(name);
    return test::der::encode(one);
}

bool show(IntermediateMemory& memory, const QByteArray& der)
{
    return memory.add(der, *CertificateOutline::of(der));
}

void prepare(IntermediateMemory& memory, qint64 budget = PLENTY)
{
    WorkBudget work(budget);
    memory.prepare(&work);
}

QList<QByteArray> issuers(const IntermediateMemory& memory, const QByteArray& name = "Authority")
{
    QList<QByteArray> ders;
    for (const DecodedCertificatePtr& one :
         memory.issuersOf(*DecodedCertificate::fromDer(issuedBy(name))))
        ders.append(one->der());
    return ders;
}

} // namespace

class IntermediateMemoryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsShownIsFoundByName();
    void whatIsShownLastComesFirst();
    void whatIsShownAgainIsKeptOnce();
    void nothingIsDecodedBeyondTheBudget();
    void whatIsNoCertificateIsForgotten();
    void oldestThatIsNotProvenGoesFirst();
    void provenStaysWhateverStrangersShow();
    void provenIsBoundedToo();
    void longCertificatesTakeTheirRoom();
    void knownCertificatesTakeNoMore();
};

void IntermediateMemoryTest::whatIsShownIsFoundByName()
{
    IntermediateMemory memory;
    QVERIFY(show(memory, stranger(1)));
    QVERIFY(show(memory, stranger(2, "Other")));
    prepare(memory);
    QCOMPARE(issuers(memory), QList<QByteArray>({stranger(1)}));
    QCOMPARE(issuers(memory, "Other"), QList<QByteArray>({stranger(2, "Other")}));
    QCOMPARE(issuers(memory, "Third"), QList<QByteArray>());
}

void IntermediateMemoryTest::whatIsShownLastComesFirst()
{
    IntermediateMemory memory;
    for (int i : {1, 2, 3, 2})
        show(memory, stranger(i));
    prepare(memory);
    QCOMPARE(issuers(memory), QList<QByteArray>({stranger(2), stranger(3), stranger(1)}));
}

void IntermediateMemoryTest::whatIsShownAgainIsKeptOnce()
{
    IntermediateMemory memory;
    QVERIFY(show(memory, stranger(1)));
    const std::size_t footprint = memory.footprint();
    QVERIFY(!show(memory, stranger(1)));
    prepare(memory);
    QVERIFY(!show(memory, stranger(1)));
    prepare(memory);
    QCOMPARE(memory.count(), std::size_t(1));
    QCOMPARE(memory.footprint(), footprint);
}

void IntermediateMemoryTest::nothingIsDecodedBeyondTheBudget()
{
    constexpr int AFFORDABLE = 3;
    IntermediateMemory memory;
    for (int i = 100; i < 110; ++i)
        show(memory, stranger(i));
    prepare(memory, AFFORDABLE * CertificateOutline::of(stranger(100))->cost());
    QCOMPARE(issuers(memory), QList<QByteArray>({stranger(102), stranger(101), stranger(100)}));
    QCOMPARE(memory.count(), std::size_t(AFFORDABLE));
}

void IntermediateMemoryTest::whatIsNoCertificateIsForgotten()
{
    using test::der::sequence;
    IntermediateMemory memory;
    // As far as its outline goes it is one.
    const QByteArray none =
        sequence(sequence(QByteArray("\5\0", 2).repeated(5) + test::der::Certificate().key)
                 + sequence({}) + test::der::bits({}));
    QVERIFY(show(memory, none));
    QCOMPARE(memory.count(), std::size_t(1));
    prepare(memory);
    QCOMPARE(memory.count(), std::size_t(0));
    QCOMPARE(memory.footprint(), std::size_t(0));
}

void IntermediateMemoryTest::oldestThatIsNotProvenGoesFirst()
{
    const int limit = int(IntermediateMemory::UNPROVEN.count);
    IntermediateMemory memory;
    for (int i = 0; i < limit + 2; ++i)
        show(memory, stranger(i));
    prepare(memory);
    const QList<QByteArray> all = issuers(memory);
    QCOMPARE(all.size(), limit);
    QCOMPARE(all.first(), stranger(limit + 1));
    QCOMPARE(all.last(), stranger(2));
    show(memory, stranger(2)); // Not the oldest any more.
    show(memory, stranger(limit + 2));
    show(memory, stranger(limit + 3));
    prepare(memory);
    QCOMPARE(issuers(memory).last(), stranger(5));
}

void IntermediateMemoryTest::provenStaysWhateverStrangersShow()
{
    IntermediateMemory memory;
    show(memory, stranger(1));
    prepare(memory);
    const DecodedCertificatePtr genuine = DecodedCertificate::fromDer(stranger(1));
    QVERIFY(!memory.isProven(genuine));
    memory.noteProven(genuine);
    QVERIFY(memory.isProven(genuine));
    for (int i = 0; i < 3 * int(IntermediateMemory::UNPROVEN.count); ++i)
        show(memory, stranger(100 + i));
    prepare(memory);
    QVERIFY(memory.isProven(genuine));
    QVERIFY(issuers(memory).contains(stranger(1)));
    QCOMPARE(memory.count(), IntermediateMemory::UNPROVEN.count + 1);
    // What the memory does not know cannot prove itself to it.
    const DecodedCertificatePtr unknown = DecodedCertificate::fromDer(stranger(99));
    memory.noteProven(unknown);
    QVERIFY(!memory.isProven(unknown));
}

void IntermediateMemoryTest::provenIsBoundedToo()
{
    const int limit = int(IntermediateMemory::PROVEN.count);
    IntermediateMemory memory;
    for (int i = 0; i < limit + 5; ++i) {
        show(memory, stranger(i));
        prepare(memory);
        memory.noteProven(DecodedCertificate::fromDer(stranger(i)));
    }
    QCOMPARE(memory.count(), IntermediateMemory::PROVEN.count);
    QVERIFY(!memory.isProven(DecodedCertificate::fromDer(stranger(4))));
    QVERIFY(memory.isProven(DecodedCertificate::fromDer(stranger(5))));
}

void IntermediateMemoryTest::longCertificatesTakeTheirRoom()
{
    constexpr int LONG = 300 * 1024;
    IntermediateMemory memory;
    for (int i = 0; i < 100; ++i) {
        show(memory, stranger(i, "Authority", LONG));
        prepare(memory);
        QVERIFY(memory.footprint() <= IntermediateMemory::UNPROVEN.footprint);
    }
    QVERIFY(memory.count() > 1 && memory.count() < 10);
    const QByteArray tooLong =
        stranger(1000, "Authority", int(IntermediateMemory::UNPROVEN.footprint));
    QVERIFY(show(memory, tooLong));
    QVERIFY(memory.count() > 1);
    QVERIFY(!issuers(memory).contains(tooLong));
}

//! One that is in use already costs nothing, whatever the budget.
void IntermediateMemoryTest::knownCertificatesTakeNoMore()
{
    const DecodedCertificatePtr known = DecodedCertificate::fromDer(stranger(7777));
    IntermediateMemory memory;
    show(memory, stranger(7777));
    prepare(memory, 0);
    QCOMPARE(issuers(memory), QList<QByteArray>({stranger(7777)}));
}

QTEST_GUILESS_MAIN(IntermediateMemoryTest)
#include "tst_intermediatememory.moc"

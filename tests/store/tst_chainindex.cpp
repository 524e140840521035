// SPDX-License-Identifier: BSD-3-Clause
#include "StoreCertificates.h"

#include "store/ChainIndex.h"

#include <Ferrule/GenericCertStore.h>

#include <QtTest/QtTest>

#include <random>

using namespace test;
using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

namespace {

constexpr int CERTIFICATES = 48;
constexpr int NAMES = 7; // Few, so that most certificates have namesakes.
constexpr int STEPS = 20000;
constexpr unsigned int SEED = 20040229;

//! The index as it would be without tables: every question looks at all entries.
class PlainScan
{
public:
    void append(const SslCertificatePtr& certificate) { m_entries.append(certificate); }
    void remove(int position) { m_entries.removeAt(position); }
    void clear() { m_entries.clear(); }
    int size() const { return m_entries.size(); }

    int find(const SslCertificate& certificate) const
    {
        for (int i = 0; i < m_entries.size(); ++i) {
            if (*m_entries.at(i) == certificate)
                return i;
        }
        return -1;
    }

    int findName(const QString& name) const
    {
        for (int i = 0; i < m_entries.size(); ++i) {
            if (m_entries.at(i)->subjectCommonName() == name)
                return i;
        }
        return -1;
    }

private:
    QList<SslCertificatePtr> m_entries;
};

QString nameOf(int number)
{
    return number % NAMES ? QStringLiteral("Name %1").arg(number % NAMES) : QString();
}

} // namespace

class ChainIndexTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void emptyIndexFindsNothing();
    void indexAnswersAsAPlainScanDoes_data();
    void indexAnswersAsAPlainScanDoes();
    void storeAnswersAsAPlainScanDoes();

private:
    int random(int below)
    {
        return static_cast<int>(m_generator() % static_cast<unsigned int>(below));
    }
    const SslCertificatePtr& anyCertificate() { return m_certificates.at(random(CERTIFICATES)); }

    std::mt19937 m_generator;
    QList<SslCertificatePtr> m_certificates;
    QList<SslCertificatePtr> m_twins; // Equal to the above, other objects.
};

void ChainIndexTest::initTestCase()
{
    for (int i = 0; i < CERTIFICATES; ++i) {
        const QString name = nameOf(i);
        const QByteArray pem = (name.isEmpty() ? makeNameless() : makeNamed(name)).certificatePem();
        m_certificates.append(parse(pem));
        m_twins.append(parse(pem));
    }
}

void ChainIndexTest::emptyIndexFindsNothing()
{
    const vela::ChainIndex index;
    QCOMPARE(index.find(*m_certificates.first()), -1);
    QCOMPARE(index.find(SslCertificate()), -1);
    QCOMPARE(index.findName(QString()), -1);
}

void ChainIndexTest::indexAnswersAsAPlainScanDoes_data()
{
    QTest::addColumn<int>("removals"); // Of eight steps.
    QTest::newRow("growing") << 1;
    QTest::newRow("balanced") << 4;
    QTest::newRow("mostly empty") << 6;
}

void ChainIndexTest::indexAnswersAsAPlainScanDoes()
{
    QFETCH(int, removals);
    constexpr int LARGEST = 200; // More than there are certificates: equal ones occur.
    m_generator.seed(SEED);
    vela::ChainIndex index;
    PlainScan scan;
    for (int step = 0; step < STEPS; ++step) {
        if (random(1000) == 0) {
            index.clear();
            scan.clear();
        } else if (scan.size() > 0 && (scan.size() == LARGEST || random(8) < removals)) {
            const int position = random(scan.size());
            index.remove(position);
            scan.remove(position);
        } else {
            const SslCertificatePtr& certificate = anyCertificate();
            index.append(*certificate);
            scan.append(certificate);
        }
        const SslCertificate& wanted = *m_twins.at(random(CERTIFICATES));
        QCOMPARE(index.find(wanted), scan.find(wanted));
        const QString name = nameOf(random(NAMES + 1));
        QCOMPARE(index.findName(name), scan.findName(name));
    }
}

void ChainIndexTest::storeAnswersAsAPlainScanDoes()
{
    m_generator.seed(SEED);
    vela::GenericCertStore store(nullptr);
    PlainScan scan;
    for (int step = 0; step < STEPS; ++step) {
        const int number = random(CERTIFICATES);
        const SslCertificatePtr certificate = m_certificates.at(number);
        const int known = scan.find(*certificate);
        switch (random(5)) {
        case 0:
            QCOMPARE(store.removeCertificate(m_twins.at(number)), known);
            if (known >= 0)
                scan.remove(known);
            break;
        case 1: {
            const int position = random(scan.size() + 2) - 1;
            const bool exists = position >= 0 && position < scan.size();
            QCOMPARE(store.removeCertificate(position), exists ? position : -1);
            if (exists)
                scan.remove(position);
            break;
        }
        default: // Adds or replaces, with a root behind it that must not be found.
            QCOMPARE(store.addCertificateChain(chainOf({certificate, anyCertificate()})),
                     known >= 0 ? known : scan.size());
            if (known < 0)
                scan.append(certificate);
        }
        QCOMPARE(store.count(), scan.size());
        const SslCertificatePtr& wanted = m_twins.at(random(CERTIFICATES));
        QCOMPARE(store.indexOf(wanted), scan.find(*wanted));
        const QString name = nameOf(random(NAMES + 1));
        const int position = scan.findName(name);
        const SslCertificateChain& expected =
            position < 0 ? vela::CertificateStore::EMPTY_CHAIN : qAsConst(store)[position];
        QCOMPARE(&qAsConst(store)[name], &expected);
    }
}

QTEST_GUILESS_MAIN(ChainIndexTest)
#include "tst_chainindex.moc"

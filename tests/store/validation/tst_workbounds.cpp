// SPDX-License-Identifier: BSD-3-Clause

/*
    How much work certificates can make that were made for it: counted in steps, so that the answer
    does not hang on the machine. The benchmark of chains measures the same inputs.
*/

#include "tests/common/HostileChains.h"

#include "store/validation/IntermediateMemory.h"
#include "store/validation/PathBuilder.h"

#include <QtTest/QtTest>

#include <openssl/x509.h>

#include <ctime>

using namespace vela;

Q_DECLARE_METATYPE(test::HostileChain)

namespace {

int verifiedSignatures = 0;
qint64 hashedBytes = 0;
int decodedCertificates = 0;

/*! The certificates of one chain, as a store has them. */
class ChainSource : public CertificateSource
{
public:
    ChainSource(const test::HostileChain& chain, WorkBudget* decoding)
    {
        for (const QByteArray& der : chain.ders.mid(1)) {
            if (const auto outline = CertificateOutline::of(der))
                m_memory.add(der, *outline);
        }
        m_memory.prepare(decoding);
        if (!chain.root.isEmpty())
            m_root = DecodedCertificate::fromDer(chain.root);
    }

    bool isTrusted(const DecodedCertificatePtr& certificate) const override
    {
        return m_root && certificate == m_root;
    }
    bool isProven(const DecodedCertificatePtr&) const override { return false; }
    std::vector<DecodedCertificatePtr>
    issuersOf(const DecodedCertificate& certificate) const override
    {
        auto issuers = m_memory.issuersOf(certificate);
        if (m_root && certificate.namesIssuer(*m_root))
            issuers.push_back(m_root);
        return issuers;
    }
    std::size_t count() const { return m_memory.count(); }

private:
    IntermediateMemory m_memory;
    DecodedCertificatePtr m_root;
};

} // namespace

extern "C" {

int __real_X509_verify(X509* certificate, EVP_PKEY* key);
int __wrap_X509_verify(X509* certificate, EVP_PKEY* key)
{
    ++verifiedSignatures;
    hashedBytes += i2d_X509(certificate, nullptr);
    return __real_X509_verify(certificate, key);
}

X509* __real_d2i_X509(X509** certificate, const unsigned char** data, long length);
X509* __wrap_d2i_X509(X509** certificate, const unsigned char** data, long length)
{
    ++decodedCertificates;
    return __real_d2i_X509(certificate, data, length);
}
}

class WorkBoundsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noInputIsLongerThanItMayBe();
    void noInputTakesMoreStepsThanThis_data();
    void noInputTakesMoreStepsThanThis();
    void exhaustedSearchIsNoVerdict();
};

void WorkBoundsTest::noInputIsLongerThanItMayBe()
{
    for (const test::HostileChain& chain : test::hostileChains()) {
        int size = 0;
        for (const QByteArray& der : chain.ders)
            size += der.size();
        QVERIFY2(size <= test::HOSTILE_CHAIN_SIZE, chain.name);
    }
}

void WorkBoundsTest::noInputTakesMoreStepsThanThis_data()
{
    QTest::addColumn<test::HostileChain>("chain");
    for (const test::HostileChain& chain : test::hostileChains())
        QTest::newRow(chain.name) << chain;
}

void WorkBoundsTest::noInputTakesMoreStepsThanThis()
{
    constexpr int MAX_SIGNATURES = 200;
    constexpr int MAX_PATHS = 200;
    constexpr int MAX_DECODED = 700;
    constexpr qint64 MAX_HASHED = 8 * 1024 * 1024;
    QFETCH(test::HostileChain, chain);
    verifiedSignatures = 0;
    hashedBytes = 0;
    decodedCertificates = 0;
    const PathLimits limits;
    WorkBudget decoding(limits.decoding);
    const std::clock_t start = std::clock();
    const ChainSource source(chain, &decoding);
    PathQuestion question;
    question.certificate = DecodedCertificate::fromDer(chain.ders.first());
    question.time = 1700000000;
    PathAnswer answer;
    if (question.certificate)
        answer = PathBuilder(source, question).build();
    const double milliseconds = double(std::clock() - start) * 1000 / CLOCKS_PER_SEC;
    qInfo(
        "%d certificates decoded of %d, %d signatures over %lld bytes, %d paths, work %.1f + %.1f, "
        "%.1f ms",
        decodedCertificates, chain.ders.size(), verifiedSignatures, hashedBytes, answer.paths,
        double(decoding.spent()) / 1e6, double(answer.work) / 1e6, milliseconds);
    QVERIFY(decodedCertificates <= MAX_DECODED);
    QVERIFY(decoding.spent() <= limits.decoding);
    QVERIFY(answer.work <= limits.work);
    QVERIFY(answer.paths <= MAX_PATHS);
    QVERIFY(answer.signatures <= MAX_SIGNATURES);
    QVERIFY(verifiedSignatures <= answer.signatures);
    QVERIFY(hashedBytes <= MAX_HASHED);
}

//! What there was no time to look at is not in order.
void WorkBoundsTest::exhaustedSearchIsNoVerdict()
{
    const QList<test::HostileChain> chains = test::hostileChains();
    const auto valid = std::find_if(chains.begin(), chains.end(), [](const auto& chain) {
        return qstrcmp(chain.name, "policies") == 0;
    });
    QVERIFY(valid != chains.end());
    WorkBudget decoding(PathLimits().decoding);
    const ChainSource source(*valid, &decoding);
    PathQuestion question;
    question.certificate = DecodedCertificate::fromDer(valid->ders.first());
    question.time = QDateTime::currentSecsSinceEpoch();
    const PathAnswer answer = PathBuilder(source, question).build();
    QCOMPARE(answer.best.errors, PathErrors(NoPathError));
    for (qint64 work = 0; work < answer.work; work += answer.work / 50 + 1) {
        question.limits.work = work;
        QVERIFY2(PathBuilder(source, question).build().best.errors != NoPathError,
                 qPrintable(QString::number(work)));
    }
}

QTEST_GUILESS_MAIN(WorkBoundsTest)
#include "tst_workbounds.moc"

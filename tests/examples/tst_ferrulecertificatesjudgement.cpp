// SPDX-License-Identifier: BSD-3-Clause
// ferrule-certificates: what it makes of a chain with a store filled from a bundle.

#include "tests/examples/Program.h"

#include <QtTest/QtTest>

using namespace test;

namespace {

constexpr char EMBEDDED[] = ":/Certificates/RootCerts.pem";

constexpr char UNKNOWN[] = "unknown authority: the bundle holds neither the last certificate nor "
                           "its issuer";

} // namespace

class tst_FerruleCertificatesJudgement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void chainIsJudgedByItsLastCertificate_data();
    void chainIsJudgedByItsLastCertificate();
    void everyJudgementIsSaidToBeNoPathValidation();
    void acceptDecides_data();
    void acceptDecides();
    void storeTellsWhatItHolds();
    void embeddedBundleIsTheDefault();
    void embeddedRootsAreKnown();
    void bundleWithDamageAndDuplicates();
    void unusableBundle_data();
    void unusableBundle();

private:
    QString bundleOf(const QByteArray& pem);

    QByteArray m_root;
    QByteArray m_issuer;
    QByteArray m_end;
    QByteArray m_impostor; //!< A root of the same name, with another key.
    PemDirectory m_directory;
    int m_bundles = 0;
};

QString tst_FerruleCertificatesJudgement::bundleOf(const QByteArray& pem)
{
    return m_directory.write(QStringLiteral("bundle%1.pem").arg(++m_bundles), pem);
}

void tst_FerruleCertificatesJudgement::initTestCase()
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Test Root");
    const Identity root = makeIdentity(spec);
    m_impostor = makeIdentity(spec).certificatePem();
    spec.commonName = QStringLiteral("Test Issuer");
    const Identity issuer = makeIdentity(spec, &root);
    m_root = root.certificatePem();
    m_issuer = issuer.certificatePem();
    m_end = makeIdentity(CertificateSpec(), &issuer).certificatePem();
}

void tst_FerruleCertificatesJudgement::chainIsJudgedByItsLastCertificate_data()
{
    QTest::addColumn<QByteArray>("chain");
    QTest::addColumn<QByteArray>("bundle");
    QTest::addColumn<QByteArray>("judgement");
    const QByteArray held = "accepted: the bundle holds the last certificate, recorded as always";
    const QByteArray issuerHeld = "accepted: the bundle holds an authority with the name of the "
                                  "last certificate's issuer, recorded as always";
    const QByteArray unknown = UNKNOWN;
    const QByteArray impostor = "unknown authority: the bundle holds another certificate with the "
                                "name of the last one";
    const QByteArray gap = "no chain: certificate 2 is not the issuer that certificate 1 names";

    QTest::newRow("root held") << m_end + m_issuer + m_root << m_root << held;
    QTest::newRow("root held among others") << m_end + m_issuer + m_root << m_end + m_root << held;
    QTest::newRow("root held, alone in the chain") << m_root << m_root << held;
    QTest::newRow("end certificate held") << m_end << m_end << held;
    QTest::newRow("root not sent, held") << m_end + m_issuer << m_root << issuerHeld;
    QTest::newRow("issuer not sent, held") << m_end << m_issuer << issuerHeld;
    QTest::newRow("issuer not sent, root held") << m_end << m_root << unknown;
    QTest::newRow("root not held") << m_end + m_issuer + m_root << m_end << unknown;
    QTest::newRow("root of the same name held")
        << m_end + m_issuer + m_root << m_impostor << impostor;
    QTest::newRow("pretended root") << m_impostor << m_root << impostor;
    QTest::newRow("issuer missing") << m_end + m_root << m_root << gap;
    QTest::newRow("reversed") << m_root + m_issuer + m_end << m_end << gap;
    QTest::newRow("known root behind a stranger") << m_impostor + m_end << m_end << gap;
    QTest::newRow("gap at the end")
        << m_end + m_issuer + m_end << m_end
        << QByteArray("no chain: certificate 3 is not the issuer that certificate 2 names");
}

void tst_FerruleCertificatesJudgement::chainIsJudgedByItsLastCertificate()
{
    QFETCH(QByteArray, chain);
    QFETCH(QByteArray, bundle);
    QFETCH(QByteArray, judgement);
    CertificatesProgram program(
        {QStringLiteral("--bundle"), bundleOf(bundle), QStringLiteral("-")});
    QCOMPARE(program.run(chain), 0);
    VERIFY_SHOWS(program, "judgement    " + judgement);
    QCOMPARE(program.output().count("\njudgement "), 1);
}

void tst_FerruleCertificatesJudgement::everyJudgementIsSaidToBeNoPathValidation()
{
    CertificatesProgram program(
        {QStringLiteral("--bundle"), bundleOf(m_root), bundleOf(m_root), bundleOf(m_end)});
    QCOMPARE(program.run(), 0);
    QCOMPARE(program.output().count("\njudgement "), 2);
    QCOMPARE(program.output().count("\ncaution      no path validation: "), 2);
}

void tst_FerruleCertificatesJudgement::acceptDecides_data()
{
    QTest::addColumn<QString>("accept");
    QTest::addColumn<QByteArray>("decision");
    QTest::newRow("never") << QStringLiteral("never") << QByteArray("refused");
    QTest::newRow("once") << QStringLiteral("once") << QByteArray("accepted once");
    QTest::newRow("session") << QStringLiteral("session")
                             << QByteArray("accepted until the host ends");
    QTest::newRow("always") << QStringLiteral("always") << QByteArray("accepted");
    QTest::newRow("undecided") << QStringLiteral("undecided") << QByteArray("undecided");
}

void tst_FerruleCertificatesJudgement::acceptDecides()
{
    QFETCH(QString, accept);
    QFETCH(QByteArray, decision);
    const QString bundle = bundleOf(m_root);
    CertificatesProgram program({QStringLiteral("--accept"), accept, QStringLiteral("--bundle"),
                                 bundle, QStringLiteral("-")});
    QCOMPARE(program.run(m_root), 0);
    const QByteArray how = accept.toLatin1();
    VERIFY_SHOWS(program,
                 "bundle       " + bundle.toLocal8Bit() + ": 1 imported, recorded as " + how);
    VERIFY_SHOWS(program, "trust        state 0, accept " + how + ", mark -1");
    VERIFY_SHOWS(program, "judgement    " + decision
                              + ": the bundle holds the last certificate, recorded as " + how);
}

void tst_FerruleCertificatesJudgement::storeTellsWhatItHolds()
{
    CertificatesProgram program(
        {QStringLiteral("--bundle"), bundleOf(m_root), QStringLiteral("-")});
    QCOMPARE(program.run(m_end + m_issuer + m_root), 0);
    QList<QByteArray> rows;
    for (const QByteArray& line : program.output().split('\n')) {
        if (line.startsWith("trust ") || line.startsWith("verdict "))
            rows += line;
    }
    const QByteArray fresh = "trust        state 0, accept undecided, mark -1";
    const QByteArray failed = "verdict      failed: not in the bundle";
    const QList<QByteArray> expected = {
        fresh,
        failed,
        fresh,
        failed,
        "trust        state 0, accept always, mark -1",
        "verdict      unknown: in the bundle; this store does not judge",
    };
    QCOMPARE(rows, expected);
}

void tst_FerruleCertificatesJudgement::embeddedBundleIsTheDefault()
{
    CertificatesProgram program(words("-"));
    QCOMPARE(program.run(m_end + m_issuer + m_root), 0);
    VERIFY_SHOWS(program,
                 QByteArray("bundle       ") + EMBEDDED + ": 168 imported, recorded as always");
    VERIFY_SHOWS(program, QByteArray("judgement    ") + UNKNOWN);
}

void tst_FerruleCertificatesJudgement::embeddedRootsAreKnown()
{
    CertificatesProgram program({QString::fromLatin1(EMBEDDED)});
    QCOMPARE(program.run(), 0);
    VERIFY_SHOWS(program, QByteArray("file         ") + EMBEDDED + ": PEM, certificates: 168");
    QCOMPARE(program.output().count("\nverdict      unknown: in the bundle; this store does not "
                                    "judge\n"),
             168);
}

void tst_FerruleCertificatesJudgement::bundleWithDamageAndDuplicates()
{
    QByteArray damaged = m_end;
    damaged.replace(damaged.indexOf('\n') + 1, 8, "////////");
    CertificatesProgram program({QStringLiteral("--bundle"),
                                 bundleOf("\n" + m_root + damaged + m_root + m_issuer),
                                 QStringLiteral("-")});
    QCOMPARE(program.run(m_end), 0);
    QVERIFY2(program.output().contains(
                 ": 2 imported, recorded as always; 2 left out, damaged or there twice\n"),
             program.output().constData());
}

void tst_FerruleCertificatesJudgement::unusableBundle_data()
{
    QTest::addColumn<QString>("bundle");
    QTest::newRow("missing") << m_directory.path() + QStringLiteral("/missing");
    QTest::newRow("directory") << m_directory.path();
    QTest::newRow("empty") << bundleOf(QByteArray());
    QTest::newRow("text") << bundleOf("Nothing to see here.\n");
    QTest::newRow("missing resource") << QStringLiteral(":/Certificates/Missing.pem");
}

void tst_FerruleCertificatesJudgement::unusableBundle()
{
    QFETCH(QString, bundle);
    CertificatesProgram program({QStringLiteral("--bundle"), bundle, QStringLiteral("-")});
    QCOMPARE(program.run(m_end), 4);
    QVERIFY2(isOneLine(program.errors()), program.errors().constData());
    QVERIFY(program.errors().startsWith("ferrule-certificates: " + bundle.toLocal8Bit() + ": "));
    QCOMPARE(program.output(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_FerruleCertificatesJudgement)
#include "tst_ferrulecertificatesjudgement.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    Cases of path validation that other projects publish, all of them, put to a store: its verdict
    must be the suite's, and the chain must say why at the certificates that the suite names. What
    the system's store does not judge on Linux is counted by reason, and the answer recorded.
*/

#include "CasePlatform.h"
#include "ChainSuite.h"
#include "TrustedRoots.h"

#include <Ferrule/WinCertStore.h>

#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtTest/QtTest>

#include <functional>

using test::ChainCase;
using test::errorNames;

Q_DECLARE_METATYPE(ChainCase)

namespace {

struct Suite
{
    const char* name;
    int caseCount;
};

const Suite SUITES[] = {{"bettertls", 57},
                        {"boringssl-verify-chain", 140},
                        {"google-x509test", 102},
                        {"nist-pkits", 171},
                        {"x509-limbo", 141}};

//! What the store does not judge on Linux, by the tag of cases that expect it to.
struct NotJudged
{
    const char* tag;
    const char* reason;
};

const NotJudged NOT_JUDGED[] = {
    {"crl", "Revocation is not looked at."},
    {"policy", "Nobody asks for a policy; what certificates demand themselves is judged."},
    {"name", "Host names are the socket's and the host's business."},
    {"strict", "Rules for issuing certificates and for their encoding, not for paths."},
    {"strict-eku", "Usages that must be named, or alone; a store asks for none."},
    {"weak", "SHA-1 still counts: cases that must be accepted are signed with it, too."},
    {"anchor-special", "A root is trusted or not; the suite knows more kinds."},
};

//! A case with another verdict than its suite's, although it is about what is judged.
struct Deviation
{
    const char* id;
    const char* errors; //!< What the chain says instead.
    const char* reason;
};

const Deviation DEVIATIONS[] = {
    {"bssl::expired-root/not-before", "NOT_TIME_VALID",
     "The suite does not look at the trust anchor's own fields; CryptoAPI and this engine do."},
    {"bssl::root-basic-constraints-ca-false/main", "INVALID_BASIC_CONSTRAINTS",
     "As before: a root that says it is no authority is none."},
    {"bssl::root-lacks-keycertsign-key-usage/main", "NOT_VALID_FOR_USAGE",
     "As before: a root's key must be for signing certificates."},
    {"bssl::violates-pathlen-1-from-root/main", "INVALID_BASIC_CONSTRAINTS",
     "As before: a root can limit the length of the path."},
    {"bssl::expired-root/not-after-ta-with-constraints", "NOT_TIME_VALID",
     "As before: there is one kind of root, and it must not have expired."},
    {"bssl::root-eku-clientauth/serverauth-strict", "NOT_VALID_FOR_USAGE",
     "As before: a root can limit what it is for."},
    {"bssl::root-eku-clientauth/serverauth-ta-with-expiration", "NOT_VALID_FOR_USAGE",
     "As before."},
    {"bssl::target-only/trusted_leaf", "PARTIAL_CHAIN",
     "Roots are trusted, not end certificates: one is valid by itself if it is self-signed."},
    {"bssl::target-only/trusted_leaf-and-trust_anchor", "PARTIAL_CHAIN", "As before."},
    {"bssl::target-selfissued/trusted_leaf", "PARTIAL_CHAIN", "As before."},
    {"bssl::target-has-ca-basic-constraints/target_only-trusted_leaf", "PARTIAL_CHAIN",
     "As before."},
    {"bssl::target-msapplicationpolicies-and-eku/main", "HAS_NOT_SUPPORTED_CRITICAL_EXT",
     "Application policies are not evaluated, so that a critical one is refused."},
    {"bssl::many-names/ok-all-types", "HAS_NOT_PERMITTED_NAME_CONSTRAINT INVALID_NAME_CONSTRAINTS",
     "URIs count, too, when there are too many names to compare; and see the next."},
    {"pkits::4.13.30", "INVALID_NAME_CONSTRAINTS",
     "A common name can be taken for the host name, so that constraints for hosts hold for it; one "
     "with blanks in it is no host name that could be held against them."},
    {"pkits::4.13.32", "INVALID_NAME_CONSTRAINTS", "As before."},
    {"x509test::ok-inherited-keyparams", "NOT_SIGNATURE_VALID",
     "A DSA key without parameters is none: what it stood for would depend on the path."},
    {"pkits::4.1.5", "NOT_SIGNATURE_VALID", "As before."},
    {"limbo::rfc5280::nc::permitted-dns-match-noncritical", "",
     "A rule for issuing: constraints that are not critical hold as well."},
    {"limbo::rfc5280::nc::not-allowed-in-ee-critical", "",
     "A rule for issuing: constraints of an end certificate concern nobody."},
    {"limbo::rfc5280::nc::invalid-dnsname-leading-period", "HAS_NOT_PERMITTED_NAME_CONSTRAINT",
     "A constraint with a leading period is common, and means the hosts below; the common name is "
     "the host itself."},
};

/*!
    A case that must be rejected, and is, with another reason than the suite's: no certificate bears
    the name of the issuer, which to CryptoAPI is a chain without end, not a wrong signature.
*/
const Deviation OTHER_REASON = {"bssl::incorrect-trust-anchor/main", "PARTIAL_CHAIN", ""};

/*!
    A case that is accepted against a core reason: another suite has the same certificates accepted,
    and so do both engines.
*/
const char* const ROOT_WITHOUT_CONSTRAINTS = "limbo::rfc5280::root-missing-basic-constraints";

/*!
    The one answer that depends on the engine: whether a number that is longer than it need be makes
    a certificate none. The recorded one is the reference engine's, this the others'.
*/
const Deviation OTHER_ENGINES = {"x509test::xf-der-invalid-nonminimal-int", "no certificate", ""};

const char* const CORE_REASONS[] = {"NOT_TIME_VALID",
                                    "NOT_SIGNATURE_VALID",
                                    "NOT_VALID_FOR_USAGE",
                                    "UNTRUSTED_ROOT",
                                    "PARTIAL_CHAIN",
                                    "UNTRUSTED_ROOT_OR_PARTIAL_CHAIN",
                                    "INVALID_BASIC_CONSTRAINTS",
                                    "HAS_NOT_SUPPORTED_CRITICAL_EXT"};

//! Returns the tag for which \a one is outside of what is judged, null if it is inside.
const NotJudged* reasonNotToJudge(const ChainCase& one)
{
    if (one.isAccepted || one.hasTag("core"))
        return nullptr;
    const auto* const reason =
        std::find_if(std::begin(NOT_JUDGED), std::end(NOT_JUDGED),
                     [&one](const NotJudged& n) { return one.hasTag(n.tag); });
    return reason == std::end(NOT_JUDGED) ? nullptr : reason;
}

const Deviation* deviationOf(const QString& id)
{
    const auto* const deviation =
        std::find_if(std::begin(DEVIATIONS), std::end(DEVIATIONS),
                     [&id](const Deviation& one) { return id == QLatin1String(one.id); });
    return deviation == std::end(DEVIATIONS) ? nullptr : deviation;
}

//! Returns the names by which the platform can give \a reason; none for one that has no name.
QStringList namesFor(const QString& reason)
{
    if (reason == QLatin1String("WEAK_SIGNATURE"))
        return {QStringLiteral("HAS_WEAK_SIGNATURE")};
    // The suites do not say in which way names are not as they should be.
    if (reason == QLatin1String("INVALID_NAME_CONSTRAINTS")
        || reason == QLatin1String("OTHER:Not permitted by name constraints"))
        return {QStringLiteral("HAS_NOT_PERMITTED_NAME_CONSTRAINT"),
                QStringLiteral("HAS_EXCLUDED_NAME_CONSTRAINT"),
                QStringLiteral("INVALID_NAME_CONSTRAINTS")};
    return reason.split(QStringLiteral("_OR_"));
}

//! Whether each of \a reasons is among \a names.
bool containsAll(const QStringList& names, const QStringList& reasons)
{
    return std::all_of(reasons.begin(), reasons.end(), [&names](const QString& reason) {
        const QStringList any = namesFor(reason);
        return std::any_of(any.begin(), any.end(),
                           [&names](const QString& name) { return names.contains(name); });
    });
}

bool isForACoreReason(const ChainCase& one)
{
    return std::any_of(
        std::begin(CORE_REASONS), std::end(CORE_REASONS),
        [&one](const char* reason) { return one.reasons.contains(QLatin1String(reason)); });
}

vela::SslCertificatePtr certificateOf(const QByteArray& der)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(der.constData());
    return vela::SslCertificatePtr(
        new vela::SslCertificate(vela::SslCertificate::readDer(bytes, der.size()), true));
}

//! What the store answers, in full.
struct Answer
{
    vela::CertVerify verdict = vela::VerifyUnknown;
    std::optional<test::ChainAnswer> chain;

    //! The errors of the chain, "no certificate" if there is none.
    QByteArray text() const;
};

QByteArray Answer::text() const
{
    return chain ? errorNames(chain->errors).join(QLatin1Char(' ')).toLatin1()
                 : QByteArray("no certificate");
}

Answer ask(const ChainCase& one)
{
    test::TrustedRoots roots;
    roots.setRoots(one.trusted);
    test::CasePlatform platform;
    platform.ask(one.time, one.usages);
    vela::SslCertificateChain chain;
    chain << certificateOf(one.leaf);
    for (const QByteArray& der : one.untrusted)
        chain << certificateOf(der);
    vela::WinCertStore store(nullptr);
    Answer answer;
    answer.verdict = store.verify(chain);
    answer.chain = platform.answer();
    return answer;
}

//! Returns what is wrong with \a answer, apart from its verdict; empty if it is as it should be.
QByteArray objectionToReasons(const ChainCase& one, const test::ChainAnswer& answer)
{
    const QStringList errors = errorNames(answer.errors);
    if (one.id == QLatin1String(OTHER_REASON.id))
        return errors == QStringList(QLatin1String(OTHER_REASON.errors)) ? "" : "no other reason";
    if (!containsAll(errors, one.reasons))
        return "reason: " + errors.join(QLatin1Char(' ')).toLatin1();
    for (const auto& expected : one.atElements) {
        const int index = expected.first;
        if (index >= answer.elementErrors.size())
            return "shorter chain";
        // That a chain is incomplete is said of the chain, not of the certificate at its end.
        const DWORD incomplete = answer.errors & CERT_TRUST_IS_PARTIAL_CHAIN;
        const QStringList names = errorNames(answer.elementErrors.at(index) | incomplete);
        if (!containsAll(names, expected.second))
            return QByteArray::number(index) + ": " + names.join(QLatin1Char(' ')).toLatin1();
    }
    return {};
}

//! Returns what is wrong with \a answer, empty if it is as it should be.
QByteArray objectionTo(const ChainCase& one, const Answer& answer)
{
    if ((answer.verdict == vela::VerifyOk) != one.isAccepted)
        return "verdict: " + answer.text();
    return answer.chain ? objectionToReasons(one, *answer.chain) : QByteArray();
}

//! Returns the recorded answers to cases that are not judged, by case.
QMap<QString, QByteArray> readAnswers()
{
    QFile file(QStringLiteral(CHAIN_ANSWERS));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", CHAIN_ANSWERS, qPrintable(file.errorString()));
    QMap<QString, QByteArray> answers;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        const int tab = line.indexOf('\t');
        if (tab > 0)
            answers.insert(QString::fromLatin1(line.left(tab)), line.mid(tab + 1));
    }
    return answers;
}

//! How one suite came off.
struct Score
{
    int right = 0;
    int deviating = 0;
    int wrong = 0;
    QMap<QByteArray, int> notJudged; //!< By tag; of these the verdict may be right all the same.
    int rightUnjudged = 0;
};

} // namespace

class ChainSuitesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void everyListedCaseExists();
    void noFirmCaseDeviates();
    void verdictIsTheSuites_data();
    void verdictIsTheSuites();
    void clockFreeVerdictIsTheSameOnTheDayOfTheSuites_data();
    void clockFreeVerdictIsTheSameOnTheDayOfTheSuites();
    void answerOutsideOfWhatIsJudgedIsTheRecordedOne_data();
    void answerOutsideOfWhatIsJudgedIsTheRecordedOne();

private:
    QMap<QString, QList<ChainCase>> m_suites;
    QMap<QString, QByteArray> m_answers;
    QMap<QString, Score> m_scores;

    //! Adds a row for each case for which \a isWanted holds.
    void addCases(const std::function<bool(const ChainCase&)>& isWanted) const;
};

void ChainSuitesTest::initTestCase()
{
    for (const Suite& suite : SUITES) {
        const QString name = QString::fromLatin1(suite.name);
        m_suites.insert(name,
                        test::readChainSuite(QStringLiteral(CHAIN_CASES "/%1.json").arg(name)));
        QCOMPARE(m_suites.value(name).size(), suite.caseCount);
    }
    m_answers = readAnswers();
}

void ChainSuitesTest::cleanupTestCase()
{
    for (auto score = m_scores.begin(); score != m_scores.end(); ++score) {
        QStringList tags;
        for (auto tag = score->notJudged.begin(); tag != score->notJudged.end(); ++tag)
            tags.append(
                QStringLiteral("%1 %2").arg(tag.value()).arg(QString::fromLatin1(tag.key())));
        qInfo("%s: %d cases, %d right, %d deviating, %d wrong; out of policy: %s (%d of them "
              "right all the same)",
              qPrintable(score.key()), m_suites.value(score.key()).size(), score->right,
              score->deviating, score->wrong,
              tags.isEmpty() ? "none" : qPrintable(tags.join(QStringLiteral(", "))),
              score->rightUnjudged);
    }
}

void ChainSuitesTest::everyListedCaseExists()
{
    QStringList judged;
    QStringList others;
    for (const QList<ChainCase>& suite : qAsConst(m_suites)) {
        for (const ChainCase& one : suite)
            (reasonNotToJudge(one) ? others : judged).append(one.id);
    }
    for (const Deviation& deviation : DEVIATIONS)
        QVERIFY2(judged.contains(QLatin1String(deviation.id)), deviation.id);
    others.sort();
    QStringList recorded = m_answers.keys();
    recorded.sort();
    QCOMPARE(recorded, others);
}

void ChainSuitesTest::noFirmCaseDeviates()
{
    for (const QList<ChainCase>& suite : qAsConst(m_suites)) {
        for (const ChainCase& one : suite)
            QVERIFY2(!one.hasTag("firm") || !deviationOf(one.id), qPrintable(one.id));
    }
}

void ChainSuitesTest::addCases(const std::function<bool(const ChainCase&)>& isWanted) const
{
    QTest::addColumn<QString>("suite");
    QTest::addColumn<ChainCase>("one");
    for (auto suite = m_suites.begin(); suite != m_suites.end(); ++suite) {
        for (const ChainCase& one : qAsConst(suite.value())) {
            if (isWanted(one))
                QTest::newRow(one.id.toUtf8().constData()) << suite.key() << one;
        }
    }
}

void ChainSuitesTest::verdictIsTheSuites_data()
{
    addCases([](const ChainCase& one) { return reasonNotToJudge(one) == nullptr; });
}

void ChainSuitesTest::verdictIsTheSuites()
{
    QFETCH(QString, suite);
    QFETCH(ChainCase, one);
    const Answer answer = ask(one);
    const QByteArray text = answer.text();
    if (const Deviation* deviation = deviationOf(one.id)) {
        ++m_scores[suite].deviating;
        QCOMPARE(text, QByteArray(deviation->errors));
        QVERIFY(text.isEmpty() == (answer.verdict == vela::VerifyOk));
        return;
    }
    const QByteArray objection = objectionTo(one, answer);
    ++(objection.isEmpty() ? m_scores[suite].right : m_scores[suite].wrong);
    QCOMPARE(objection, QByteArray());
}

void ChainSuitesTest::clockFreeVerdictIsTheSameOnTheDayOfTheSuites_data()
{
    addCases([](const ChainCase& one) { return one.hasTag("firm") && one.hasTag("clock-free"); });
}

void ChainSuitesTest::clockFreeVerdictIsTheSameOnTheDayOfTheSuites()
{
    QFETCH(ChainCase, one);
    one.time = test::DAY_OF_THE_SUITES;
    QCOMPARE(ask(one).verdict == vela::VerifyOk, one.isAccepted);
}

void ChainSuitesTest::answerOutsideOfWhatIsJudgedIsTheRecordedOne_data()
{
    addCases([](const ChainCase& one) { return reasonNotToJudge(one) != nullptr; });
}

void ChainSuitesTest::answerOutsideOfWhatIsJudgedIsTheRecordedOne()
{
    QFETCH(QString, suite);
    QFETCH(ChainCase, one);
    const Answer answer = ask(one);
    const bool isRight = answer.verdict != vela::VerifyOk;
    ++m_scores[suite].notJudged[reasonNotToJudge(one)->tag];
    m_scores[suite].rightUnjudged += isRight ? 1 : 0;
    QCOMPARE(isRight, !answer.text().isEmpty());
    if (one.id != QLatin1String(OTHER_ENGINES.id) || answer.text() != OTHER_ENGINES.errors)
        QCOMPARE(answer.text(), m_answers.value(one.id));
    if (isForACoreReason(one) && !one.hasTag("strict-eku")
        && one.id != QLatin1String(ROOT_WITHOUT_CONSTRAINTS))
        QVERIFY2(isRight, answer.text());
}

QTEST_GUILESS_MAIN(ChainSuitesTest)
#include "tst_chainsuites.moc"

// SPDX-License-Identifier: BSD-3-Clause

/*
    Cases of path validation that other projects publish: what the chain engine says of each must be
    what the suite expects, at the certificates that it names.
*/

#include "ChainClient.h"
#include "TrustedRoots.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtTest/QtTest>

using test::errorNames;

namespace {

const char* const SUITES[] = {"bettertls", "boringssl-verify-chain", "nist-pkits", "x509-limbo"};
constexpr int CASE_COUNT = 166;

//! A case that the engine answers differently from what its suite expects.
struct Deviation
{
    const char* id;
    const char* errors; //!< What it answers instead.
    const char* reason;
};

const Deviation DEVIATIONS[] = {
    {"bssl::expired-root/not-before", "NOT_TIME_VALID",
     "The suite does not look at the trust anchor's own fields; CryptoAPI and this engine do."},
    {"bssl::root-basic-constraints-ca-false/main", "INVALID_BASIC_CONSTRAINTS",
     "As before: a root has to be an authority."},
    {"bssl::root-lacks-basic-constraints/main", "INVALID_BASIC_CONSTRAINTS",
     "As before: a root of version 3 has to say that it is an authority."},
    {"bssl::root-lacks-keycertsign-key-usage/main", "NOT_VALID_FOR_USAGE",
     "As before: a root's key must be for signing certificates."},
    {"bssl::violates-pathlen-1-from-root/main", "INVALID_BASIC_CONSTRAINTS",
     "As before: a root can limit the length of the path."},
    {"bssl::target-only/trusted_anchor", "",
     "A trusted certificate is valid by itself, self-signed or not."},
    {"bssl::incorrect-trust-anchor/main", "PARTIAL_CHAIN",
     "The certificate names another key than the root's, so the root is not taken for its issuer."},
    {"bssl::intermediate-and-target-wrong-signature/main", "PARTIAL_CHAIN", "As before."},
    {"bssl::target-wrong-signature/main", "PARTIAL_CHAIN", "As before."},
    {"pkits::4.1.5", "NOT_SIGNATURE_VALID",
     "A DSA key without parameters does not inherit its issuer's."},
};

const Deviation* deviationOf(const QString& id)
{
    const auto* const deviation =
        std::find_if(std::begin(DEVIATIONS), std::end(DEVIATIONS),
                     [&id](const Deviation& one) { return id == QLatin1String(one.id); });
    return deviation == std::end(DEVIATIONS) ? nullptr : deviation;
}

QJsonObject readSuite(const char* name)
{
    QFile file(QStringLiteral(CHAIN_CASES "/%1.json").arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    return QJsonDocument::fromJson(file.readAll()).object();
}

QStringList toStrings(const QJsonValue& list)
{
    QStringList strings;
    for (const QJsonValue& value : list.toArray())
        strings.append(value.toString());
    return strings;
}

QList<QByteArray> certificatesOf(const QJsonObject& suite, const QStringList& names)
{
    const QJsonObject certificates = suite.value(QLatin1String("certs")).toObject();
    QList<QByteArray> ders;
    for (const QString& name : names)
        ders.append(QByteArray::fromBase64(certificates.value(name).toString().toLatin1()));
    return ders;
}

QList<QByteArray> usagesOf(const QString& purpose)
{
    if (purpose == QLatin1String("server"))
        return {"1.3.6.1.5.5.7.3.1"};
    if (purpose == QLatin1String("client"))
        return {"1.3.6.1.5.5.7.3.2"};
    return {};
}

//! Whether each of \a reasons, which may be "this_OR_that", is among \a names.
bool containsAll(const QStringList& names, const QStringList& reasons)
{
    for (const QString& reason : reasons) {
        const QStringList either = reason.split(QStringLiteral("_OR_"));
        const bool isThere = std::any_of(either.begin(), either.end(),
                                         [&](const QString& name) { return names.contains(name); });
        if (!isThere)
            return false;
    }
    return true;
}

} // namespace

class ChainSuitesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyDeviationIsACase();
    void answerIsWhatTheSuiteExpects_data();
    void answerIsWhatTheSuiteExpects();
};

void ChainSuitesTest::everyDeviationIsACase()
{
    QStringList ids;
    for (const char* name : SUITES) {
        for (const QJsonValue& value : readSuite(name).value(QLatin1String("cases")).toArray())
            ids.append(value.toObject().value(QLatin1String("id")).toString());
    }
    QCOMPARE(ids.size(), CASE_COUNT);
    for (const Deviation& deviation : DEVIATIONS)
        QVERIFY2(ids.contains(QLatin1String(deviation.id)), deviation.id);
}

void ChainSuitesTest::answerIsWhatTheSuiteExpects_data()
{
    QTest::addColumn<QJsonObject>("testCase");
    QTest::addColumn<QList<QByteArray>>("leaf");
    QTest::addColumn<QList<QByteArray>>("untrusted");
    QTest::addColumn<QList<QByteArray>>("trusted");
    for (const char* name : SUITES) {
        const QJsonObject suite = readSuite(name);
        for (const QJsonValue& value : suite.value(QLatin1String("cases")).toArray()) {
            const QJsonObject entry = value.toObject();
            QTest::newRow(entry.value(QLatin1String("id")).toString().toUtf8().constData())
                << entry << certificatesOf(suite, {entry.value(QLatin1String("leaf")).toString()})
                << certificatesOf(suite, toStrings(entry.value(QLatin1String("untrusted"))))
                << certificatesOf(suite, toStrings(entry.value(QLatin1String("trusted"))));
        }
    }
}

void ChainSuitesTest::answerIsWhatTheSuiteExpects()
{
    QFETCH(QJsonObject, testCase);
    QFETCH(QList<QByteArray>, leaf);
    QFETCH(QList<QByteArray>, untrusted);
    QFETCH(QList<QByteArray>, trusted);
    test::TrustedRoots roots;
    roots.setRoots(trusted);
    test::ChainClient client;
    for (const QByteArray& certificate : qAsConst(untrusted))
        client.add(certificate);
    test::ChainQuestion question;
    question.certificate = leaf.first();
    question.usages = usagesOf(testCase.value(QLatin1String("purpose")).toString());
    const QString time = testCase.value(QLatin1String("time")).toString();
    if (!time.isEmpty())
        question.time = QDateTime::fromString(time, Qt::ISODate).toSecsSinceEpoch();
    const test::ChainAnswer answer = client.ask(question);

    const QStringList errors = errorNames(answer.errors);
    const QByteArray errorText = errors.join(QLatin1Char(' ')).toLatin1();
    if (const Deviation* deviation = deviationOf(testCase.value(QLatin1String("id")).toString())) {
        QCOMPARE(errorText, QByteArray(deviation->errors));
        return;
    }
    const QString expected = testCase.value(QLatin1String("expect")).toString();
    QVERIFY2(errors.isEmpty() == (expected == QLatin1String("accept")), errorText);
    QVERIFY2(containsAll(errors, toStrings(testCase.value(QLatin1String("reason")))), errorText);
    for (const QJsonValue& value : testCase.value(QLatin1String("elements")).toArray()) {
        const int index = value.toObject().value(QLatin1String("i")).toInt();
        QVERIFY(index < answer.elementErrors.size());
        // That a chain is incomplete is said of the chain, not of the certificate where it ends.
        const DWORD chainErrors = answer.errors & CERT_TRUST_IS_PARTIAL_CHAIN;
        const QStringList names = errorNames(answer.elementErrors.at(index) | chainErrors);
        QVERIFY2(containsAll(names, toStrings(value.toObject().value(QLatin1String("flags")))),
                 qPrintable(QString::number(index) + QLatin1String(": ")
                            + names.join(QLatin1Char(' '))));
    }
}

QTEST_GUILESS_MAIN(ChainSuitesTest)
#include "tst_chainsuites.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "socket/PeerVerdict.h"
#include "tests/common/ImportedWrap.h"
#include "tests/common/TestCertificates.h"

#include <QtTest/QtTest>

using namespace vela;

Q_DECLARE_METATYPE(vela::CertVerify)

namespace {

QDateTime pretendedNow;

const QString VERIFIED = QStringLiteral("The SSL certificate has been verified.");

QDateTime utc(const QString& text)
{
    QDateTime date = QDateTime::fromString(text, Qt::ISODate);
    date.setTimeSpec(Qt::UTC);
    return date;
}

QString describe(const QString& from, const QString& until)
{
    return QStringLiteral("/CN=ca//CN=host/notValidBefore=%1/notValidAfter=%2/version=2/serial=1")
        .arg(from, until);
}

} // namespace

// The library's clock, for dates on which the engine and the verdict would disagree.
extern "C" QDateTime __wrap__ZN9QDateTime15currentDateTimeEv();
extern "C" QDateTime __wrap__ZN9QDateTime15currentDateTimeEv()
{
    return pretendedNow;
}
WRAP_IMPORTED(_ZN9QDateTime15currentDateTimeEv)

class PeerVerdictTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void describesACertificate();
    void describesSerialNumbers_data();
    void describesSerialNumbers();
    void describesVersions();
    void describesDatesBefore1970();
    void lastCommonNameIsTheHostName_data();
    void lastCommonNameIsTheHostName();
    void datesAreReadAsUtc();
    void validPeerWithItsNameIsOk();
    void hostNamesDifferInCaseOnly();
    void wildcardsAreNotExpanded();
    void anotherHostIsOkWithACaution();
    void expiredPeerIsExpired();
    void expiredPeerWithAnotherNameSaysBoth();
    void notYetValidPeerIsNotYetValid();
    void notYetValidPeerWithAnotherNameSaysBoth();
    void notYetValidComesBeforeExpired();
    void theFirstAndLastSecondAreValid();
    void namesThatLookLikePlaceMarkersStayAsTheyAre();
    void missingCertificateGetsWhatTheComparisonsGive();
    void failedChainIsReportedWithItsText_data();
    void failedChainIsReportedWithItsText();
};

void PeerVerdictTest::init()
{
    pretendedNow = utc(QStringLiteral("2030-06-01T12:00:00"));
}

void PeerVerdictTest::describesACertificate()
{
    test::CertificateSpec issuerSpec;
    issuerSpec.subject = {{"C", "DE"}, {"O", "Example"}, {"CN", "Root"}};
    issuerSpec.isAuthority = true;
    const test::Identity issuer = test::makeIdentity(issuerSpec);
    test::CertificateSpec spec;
    spec.commonName = QStringLiteral("host.example");
    spec.notBeforeText = "260102030405Z";
    spec.notAfterText = "491231235959Z";
    spec.serialHex = "C0FFEE";
    const test::Identity identity = test::makeIdentity(spec, &issuer);
    QCOMPARE(describeCertificate(identity.x509()),
             QStringLiteral("/C=DE/O=Example/CN=Root//CN=host.example"
                            "/notValidBefore=2026-01-02T03:04:05"
                            "/notValidAfter=2049-12-31T23:59:59/version=2/serial=12648430"));
}

void PeerVerdictTest::describesSerialNumbers_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<QString>("text");
    QTest::newRow("one") << QByteArray("01") << QStringLiteral("1");
    QTest::newRow("largest that fits") << QByteArray("7FFFFFFF") << QStringLiteral("2147483647");
    QTest::newRow("first that does not") << QByteArray("80000000") << QStringLiteral("-1");
    QTest::newRow("five octets") << QByteArray("0102030405") << QStringLiteral("-1");
    QTest::newRow("eight octets") << QByteArray("7FFFFFFFFFFFFFFF") << QStringLiteral("-1");
    QTest::newRow("twenty octets")
        << QByteArray("0102030405060708090A0B0C0D0E0F1011121314") << QStringLiteral("-1");
}

void PeerVerdictTest::describesSerialNumbers()
{
    QFETCH(QByteArray, hex);
    QFETCH(QString, text);
    test::CertificateSpec spec;
    spec.serialHex = hex;
    const test::Identity identity = test::makeIdentity(spec);
    const QString description = describeCertificate(identity.x509());
    QVERIFY2(description.endsWith(QStringLiteral("/serial=") + text), qPrintable(description));
}

void PeerVerdictTest::describesVersions()
{
    test::CertificateSpec spec;
    spec.version = 0;
    const test::Identity identity = test::makeIdentity(spec);
    QVERIFY(describeCertificate(identity.x509()).contains(QStringLiteral("/version=0/")));
}

void PeerVerdictTest::describesDatesBefore1970()
{
    test::CertificateSpec spec;
    spec.notBeforeText = "500101000000Z";
    const test::Identity identity = test::makeIdentity(spec);
    QVERIFY(describeCertificate(identity.x509())
                .contains(QStringLiteral("/notValidBefore=1950-01-01T00:00:00/")));
}

void PeerVerdictTest::lastCommonNameIsTheHostName_data()
{
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("hostName");
    QTest::newRow("subject") << "/CN=ca//CN=host/version=2"
                             << "host";
    QTest::newRow("last of several") << "/CN=ca//CN=a/CN=b/version=2"
                                     << "b";
    QTest::newRow("issuer when the subject has none") << "/CN=ca//O=x/version=2"
                                                      << "ca";
    QTest::newRow("none") << "/O=ca//O=x/version=2"
                          << "";
    QTest::newRow("cut at a slash") << "/CN=ca//CN=a/b/version=2"
                                    << "a";
    QTest::newRow("equals sign kept") << "/CN=ca//CN=a=b/version=2"
                                      << "a=b";
    QTest::newRow("only in this case") << "/CN=ca//cn=host/version=2"
                                       << "ca";
    QTest::newRow("only at the start") << "/CN=ca//OCN=host/version=2"
                                       << "ca";
    QTest::newRow("empty") << "/CN=ca//CN=/version=2"
                           << "";
    QTest::newRow("no certificate") << ""
                                    << "";
}

void PeerVerdictTest::lastCommonNameIsTheHostName()
{
    QFETCH(QString, description);
    QFETCH(QString, hostName);
    QCOMPARE(PeerIdentity(description).hostName, hostName);
}

void PeerVerdictTest::datesAreReadAsUtc()
{
    const PeerIdentity peer(
        describe(QStringLiteral("2029-01-02T03:04:05"), QStringLiteral("2031-06-07T08:09:10")));
    QCOMPARE(peer.validFrom, utc(QStringLiteral("2029-01-02T03:04:05")));
    QCOMPARE(peer.validUntil, utc(QStringLiteral("2031-06-07T08:09:10")));
    QCOMPARE(peer.validFrom.timeSpec(), Qt::UTC);
    QCOMPARE(peer.validUntil.timeSpec(), Qt::UTC);
}

namespace {

PeerIdentity validPeer()
{
    return PeerIdentity(
        describe(QStringLiteral("2030-01-01T00:00:00"), QStringLiteral("2031-01-01T00:00:00")));
}

PeerIdentity expiredPeer()
{
    return PeerIdentity(
        describe(QStringLiteral("2029-01-01T00:00:00"), QStringLiteral("2030-05-31T23:59:59")));
}

PeerIdentity futurePeer()
{
    return PeerIdentity(
        describe(QStringLiteral("2030-06-01T12:00:01"), QStringLiteral("2031-01-01T00:00:00")));
}

} // namespace

void PeerVerdictTest::validPeerWithItsNameIsOk()
{
    const PeerVerdict verdict = judgeVerifiedPeer(validPeer(), QStringLiteral("host"));
    QCOMPARE(verdict.result, VerifyOk);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, VERIFIED);
}

void PeerVerdictTest::hostNamesDifferInCaseOnly()
{
    const PeerVerdict verdict = judgeVerifiedPeer(validPeer(), QStringLiteral("HoSt"));
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, VERIFIED);
}

void PeerVerdictTest::wildcardsAreNotExpanded()
{
    const PeerIdentity peer(
        QStringLiteral("/CN=ca//CN=*.example/notValidBefore=2030-01-01T00:00:00/"
                       "notValidAfter=2031-01-01T00:00:00"));
    QVERIFY(!judgeVerifiedPeer(peer, QStringLiteral("www.example")).hostNameMatched);
    QVERIFY(judgeVerifiedPeer(peer, QStringLiteral("*.example")).hostNameMatched);
}

void PeerVerdictTest::anotherHostIsOkWithACaution()
{
    const PeerVerdict verdict = judgeVerifiedPeer(validPeer(), QStringLiteral("other"));
    QCOMPARE(verdict.result, VerifyOk);
    QVERIFY(!verdict.hostNameMatched);
    QCOMPARE(verdict.description,
             QStringLiteral("The SSL certificate has been verified. Caution, the host name "
                            "\"other\" does not match the host name in the certificate \"host\"."));
}

void PeerVerdictTest::expiredPeerIsExpired()
{
    const PeerVerdict verdict = judgeVerifiedPeer(expiredPeer(), QStringLiteral("host"));
    QCOMPARE(verdict.result, VerifyExpired);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, QStringLiteral("The SSL certificate expired on %1.")
                                      .arg(expiredPeer().validUntil.toString(Qt::TextDate)));
    QVERIFY(verdict.description.contains(QStringLiteral("2030")));
}

void PeerVerdictTest::expiredPeerWithAnotherNameSaysBoth()
{
    const PeerVerdict verdict = judgeVerifiedPeer(expiredPeer(), QStringLiteral("other"));
    QCOMPARE(verdict.result, VerifyExpired);
    QVERIFY(!verdict.hostNameMatched);
    QCOMPARE(verdict.description,
             QStringLiteral("The SSL certificate expired on %1. Also, the host name \"other\" does "
                            "not match the host name in the certificate \"host\".")
                 .arg(expiredPeer().validUntil.toString(Qt::TextDate)));
}

void PeerVerdictTest::notYetValidPeerIsNotYetValid()
{
    const PeerVerdict verdict = judgeVerifiedPeer(futurePeer(), QStringLiteral("host"));
    QCOMPARE(verdict.result, VerifyNotYetValid);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, QStringLiteral("The SSL certificate is not valid until %1.")
                                      .arg(futurePeer().validFrom.toString(Qt::TextDate)));
}

void PeerVerdictTest::notYetValidPeerWithAnotherNameSaysBoth()
{
    const PeerVerdict verdict = judgeVerifiedPeer(futurePeer(), QStringLiteral("other"));
    QCOMPARE(verdict.result, VerifyNotYetValid);
    QCOMPARE(verdict.description,
             QStringLiteral("The SSL certificate is not valid until %1. Also, the host name "
                            "\"other\" does not match the host name in the certificate \"host\".")
                 .arg(futurePeer().validFrom.toString(Qt::TextDate)));
}

void PeerVerdictTest::notYetValidComesBeforeExpired()
{
    const PeerIdentity peer(
        describe(QStringLiteral("2031-01-01T00:00:00"), QStringLiteral("2029-01-01T00:00:00")));
    const PeerVerdict verdict = judgeVerifiedPeer(peer, QStringLiteral("host"));
    QCOMPARE(verdict.result, VerifyNotYetValid);
    QCOMPARE(verdict.description, QStringLiteral("The SSL certificate is not valid until %1.")
                                      .arg(peer.validFrom.toString(Qt::TextDate)));
}

void PeerVerdictTest::theFirstAndLastSecondAreValid()
{
    const PeerIdentity peer(
        describe(QStringLiteral("2030-06-01T12:00:00"), QStringLiteral("2030-06-01T12:00:00")));
    QCOMPARE(judgeVerifiedPeer(peer, QStringLiteral("host")).result, VerifyOk);
}

void PeerVerdictTest::namesThatLookLikePlaceMarkersStayAsTheyAre()
{
    const PeerVerdict verdict = judgeVerifiedPeer(validPeer(), QStringLiteral("%1"));
    QVERIFY2(verdict.description.contains(QStringLiteral("the host name \"%1\" does not match the "
                                                         "host name in the certificate \"host\"")),
             qPrintable(verdict.description));
}

// An invalid date compares as the first moment of 1970.
void PeerVerdictTest::missingCertificateGetsWhatTheComparisonsGive()
{
    const PeerVerdict verdict = judgeVerifiedPeer(PeerIdentity(QString()), QString());
    QCOMPARE(verdict.result, VerifyExpired);
    QVERIFY(verdict.hostNameMatched);
    QCOMPARE(verdict.description, QStringLiteral("The SSL certificate expired on ."));
}

void PeerVerdictTest::failedChainIsReportedWithItsText_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<CertVerify>("result");
    for (int code = 1; code <= 60; ++code) {
        const bool selfSigned = code == 18 || code == 19;
        QTest::newRow(qPrintable(QStringLiteral("code %1").arg(code)))
            << code << (selfSigned ? VerifySelfSigned : VerifyFailed);
    }
}

void PeerVerdictTest::failedChainIsReportedWithItsText()
{
    QFETCH(int, code);
    QFETCH(CertVerify, result);
    const QString text = QStringLiteral("What is wrong");
    const PeerVerdict matched = judgeFailedPeer(expiredPeer(), QStringLiteral("HOST"), code, text);
    QCOMPARE(matched.result, result);
    QVERIFY(matched.hostNameMatched);
    QCOMPARE(matched.description, text);
    const PeerVerdict other = judgeFailedPeer(expiredPeer(), QStringLiteral("other"), code, text);
    QCOMPARE(other.result, result);
    QVERIFY(!other.hostNameMatched);
    QCOMPARE(other.description, text);
}

QTEST_GUILESS_MAIN(PeerVerdictTest)
#include "tst_peerverdict.moc"

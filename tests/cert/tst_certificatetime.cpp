// SPDX-License-Identifier: BSD-3-Clause
#include "cert/CertificateTime.h"

#include "support/OpenSslHandles.h"

#include <QtCore/QTimeZone>
#include <QtTest/QtTest>

#include <ctime>
#include <memory>

namespace {

//! A time whose text ends where its memory ends, so that a sanitizer sees a read beyond it.
class ExactTime
{
public:
    ExactTime(int type, const QByteArray& text)
        : m_memory(new unsigned char[text.size()])
    {
        std::copy(text.cbegin(), text.cend(), m_memory.get());
        m_time.type = type;
        m_time.data = m_memory.get();
        m_time.length = text.size();
    }

    const ASN1_TIME* get() const { return &m_time; }

private:
    std::unique_ptr<unsigned char[]> m_memory;
    ASN1_TIME m_time = {};
};

#ifdef Q_OS_WIN // Its C library reads zones in this form, which nobody else heeds.
const char BERLIN[] = "CET-1CEST";
const char LOS_ANGELES[] = "PST8PDT";
#else
const char BERLIN[] = "Europe/Berlin";
const char LOS_ANGELES[] = "America/Los_Angeles";
#endif

//! What Qt's own reading of the zone files says about a local wall clock.
qint64 localSeconds(const QString& wallClock)
{
    const QDateTime digits = QDateTime::fromString(wallClock, Qt::ISODate);
    return QDateTime(digits.date(), digits.time(), QTimeZone::systemTimeZone()).toSecsSinceEpoch();
}

void addTimeColumns()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("text");
}

void addAccepted(const char* name, int type, const QByteArray& text, const char* wallClock,
                 int offset = 0)
{
    QTest::newRow(name) << type << text << QString::fromLatin1(wallClock) << offset;
}

constexpr int UTC = V_ASN1_UTCTIME;
constexpr int GENERALIZED = V_ASN1_GENERALIZEDTIME;

} // namespace

class CertificateTimeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wellFormedTimeIsLocalTime_data();
    void wellFormedTimeIsLocalTime();
    void malformedTimeGivesTheEpoch_data();
    void malformedTimeGivesTheEpoch();
    void knownZonesGiveKnownSeconds_data();
    void knownZonesGiveKnownSeconds();
    void secondBeforeTheEpochCountsAsFailure();
    void textIsNotReadBeyondItsEnd_data();
    void textIsNotReadBeyondItsEnd();
    void nullTimeGivesTheEpoch();
    void dateTimeShowsTheDigitsOfTheCertificate_data();
    void dateTimeShowsTheDigitsOfTheCertificate();
    void dateTimeOfMalformedTextIsTheEpochAndValid();
};

void CertificateTimeTest::wellFormedTimeIsLocalTime_data()
{
    addTimeColumns();
    QTest::addColumn<QString>("wallClock");
    QTest::addColumn<int>("offset");

    addAccepted("last second of the 2000s window", UTC, "491231235959Z", "2049-12-31T23:59:59");
    addAccepted("first second of the 1900s window", UTC, "500101000000Z", "1950-01-01T00:00:00");
    addAccepted("end of the 1900s", UTC, "991231235959Z", "1999-12-31T23:59:59");
    addAccepted("year 2000", UTC, "000101000000Z", "2000-01-01T00:00:00");
    addAccepted("leap day", UTC, "240229120000Z", "2024-02-29T12:00:00");
    addAccepted("winter", UTC, "200115103045Z", "2020-01-15T10:30:45");
    addAccepted("summer", UTC, "200715103045Z", "2020-07-15T10:30:45");
    addAccepted("no seconds", UTC, "2001151030Z", "2020-01-15T10:30:00");
    addAccepted("no seconds, offset", UTC, "2001151030+0100", "2020-01-15T10:30:00", 60);
    addAccepted("fraction", UTC, "200115103045.5Z", "2020-01-15T10:30:45");
    addAccepted("fraction without digits", UTC, "200115103045.Z", "2020-01-15T10:30:45");
    addAccepted("longest fraction", UTC, "200115103045.123Z", "2020-01-15T10:30:45");
    addAccepted("offset east in minutes", UTC, "200115103045+0100", "2020-01-15T10:30:45", 60);
    addAccepted("offset of hours and minutes", UTC, "200115103045+0530", "2020-01-15T10:30:45",
                330);
    addAccepted("offset of 99 hours", UTC, "200115103045+9999", "2020-01-15T10:30:45", 99 * 61);
    addAccepted("minus before another minus", UTC, "2001151030-0100-", "2020-01-15T10:30:00", -60);
    addAccepted("text after the zone", UTC, "200115103045Zabcd", "2020-01-15T10:30:45");
    addAccepted("month 13", UTC, "201301000000Z", "2021-01-01T00:00:00");
    addAccepted("day 0", UTC, "200100000000Z", "2019-12-31T00:00:00");
    addAccepted("hour 24", UTC, "200115240000Z", "2020-01-16T00:00:00");
    addAccepted("second 60", UTC, "200115235960Z", "2020-01-16T00:00:00");

    addAccepted("generalized: century read as year", GENERALIZED, "20600101000000Z",
                "2024-12-01T01:00:00");
    addAccepted("generalized: 2050", GENERALIZED, "20500101000000Z", "2024-02-01T01:00:00");
    addAccepted("generalized: no date limit", GENERALIZED, "99991231235959Z",
                "2007-03-13T07:23:59");
    addAccepted("generalized: shortest", GENERALIZED, "200101151030Z", "2020-01-01T15:10:30");
    addAccepted("generalized: offset", GENERALIZED, "20010115103045+0100", "2020-01-01T15:10:30",
                60);
    addAccepted("generalized: two minuses", GENERALIZED, "20010115103045-0100-",
                "2020-01-01T15:10:30", -60);
    addAccepted("generalized: any sign before a minus", GENERALIZED, "20010115103045x0100-",
                "2020-01-01T15:10:30", 60);
    addAccepted("generalized: long fraction", GENERALIZED, "20010115103045.123456789Z",
                "2020-01-01T15:10:30");
    addAccepted("generalized: unused seconds", GENERALIZED, "200101151030abZ",
                "2020-01-01T15:10:30");
    addAccepted("other types are read as generalized", V_ASN1_IA5STRING, "20010115103045Z",
                "2020-01-01T15:10:30");
}

void CertificateTimeTest::wellFormedTimeIsLocalTime()
{
    QFETCH(int, type);
    QFETCH(QByteArray, text);
    QFETCH(QString, wallClock);
    QFETCH(int, offset);

    const ExactTime time(type, text);
    QCOMPARE(vela::certificateTime(time.get()), localSeconds(wallClock) + offset);
}

void CertificateTimeTest::malformedTimeGivesTheEpoch_data()
{
    addTimeColumns();
    QTest::newRow("empty") << UTC << QByteArray();
    QTest::newRow("too short") << UTC << QByteArray("2001151030");
    QTest::newRow("too long") << UTC << QByteArray("200115103045.1234Z");
    QTest::newRow("too long by trailing text") << UTC << QByteArray("200115103045-0100-");
    QTest::newRow("no zone") << UTC << QByteArray("200115103045");
    QTest::newRow("no zone after fraction") << UTC << QByteArray("200115103045.5");
    QTest::newRow("half of the seconds") << UTC << QByteArray("20011510304");
    QTest::newRow("letter for a second") << UTC << QByteArray("20011510304Z");
    QTest::newRow("unknown sign") << UTC << QByteArray("2001151030x0100-");
    QTest::newRow("minus at the end") << UTC << QByteArray("200115103045-0100");
    QTest::newRow("lower-case zone") << UTC << QByteArray("200115103045z");
    QTest::newRow("offset cut to a sign") << UTC << QByteArray("200115103045+");
    QTest::newRow("offset cut to hours") << UTC << QByteArray("200115103045+01");
    QTest::newRow("offset cut by one digit") << UTC << QByteArray("200115103045+010");
    QTest::newRow("letter in the offset") << UTC << QByteArray("200115103045+01x0");
    QTest::newRow("letter in the year") << UTC << QByteArray("2x0115103045Z");
    QTest::newRow("letter in the minute") << UTC << QByteArray("200115103x45Z");
    QTest::newRow("blank in the day") << UTC << QByteArray("2001 5103045Z");
    QTest::newRow("sign in the day") << UTC << QByteArray("2001-5103045Z");
    QTest::newRow("NUL in the seconds") << UTC << QByteArray("2001151030\0\0Z", 13);
    QTest::newRow("NULs only") << UTC << QByteArray(13, '\0');
    QTest::newRow("bytes above ASCII") << UTC << QByteArray(13, '\xB2');
    QTest::newRow("generalized: empty") << GENERALIZED << QByteArray();
    QTest::newRow("generalized: too short") << GENERALIZED << QByteArray("200101151030");
    QTest::newRow("generalized: half seconds") << GENERALIZED << QByteArray("2001011510304");
    QTest::newRow("generalized: no zone") << GENERALIZED << QByteArray("20010115103045");
    QTest::newRow("generalized: minus at the end")
        << GENERALIZED << QByteArray("20010115103045-0100");
    QTest::newRow("generalized: letter in the century")
        << GENERALIZED << QByteArray("x0010115103045Z");
}

void CertificateTimeTest::malformedTimeGivesTheEpoch()
{
    QFETCH(int, type);
    QFETCH(QByteArray, text);

    const ExactTime time(type, text);
    QCOMPARE(vela::certificateTime(time.get()), qint64(0));
}

namespace {

//! The process is in another time zone while the object lives.
class ZoneChange
{
public:
    explicit ZoneChange(const QByteArray& zone)
        : m_previous(qgetenv("TZ"))
        , m_wasSet(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }

    ~ZoneChange()
    {
        if (m_wasSet)
            qputenv("TZ", m_previous);
        else
            qunsetenv("TZ");
        tzset();
    }

private:
    Q_DISABLE_COPY(ZoneChange)

    QByteArray m_previous;
    bool m_wasSet;
};

} // namespace

void CertificateTimeTest::knownZonesGiveKnownSeconds_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<int>("winterOffset");
    QTest::addColumn<int>("summerOffset");
    QTest::newRow("UTC") << QByteArray("UTC") << 0 << 0;
    QTest::newRow("Berlin") << QByteArray(BERLIN) << 3600 << 7200;
    QTest::newRow("Los Angeles") << QByteArray(LOS_ANGELES) << -28800 << -25200;
}

void CertificateTimeTest::knownZonesGiveKnownSeconds()
{
    QFETCH(QByteArray, zone);
    QFETCH(int, winterOffset);
    QFETCH(int, summerOffset);
    const ZoneChange change(zone);

    const ExactTime winter(UTC, "200115120000Z");
    QCOMPARE(vela::certificateTime(winter.get()), qint64(1579089600 - winterOffset));
    const ExactTime summer(UTC, "200715120000Z");
    QCOMPARE(vela::certificateTime(summer.get()), qint64(1594814400 - summerOffset));
}

void CertificateTimeTest::secondBeforeTheEpochCountsAsFailure()
{
    const QTimeZone zone = QTimeZone::systemTimeZone();
    const auto digits = [&zone](qint64 seconds) {
        return QDateTime::fromSecsSinceEpoch(seconds, zone)
            .toString(QStringLiteral("yyMMddHHmmss'Z'"))
            .toLatin1();
    };

    // The number that the system uses to report a failure.
    QCOMPARE(vela::certificateTime(ExactTime(UTC, digits(-1)).get()), qint64(0));
    QCOMPARE(vela::certificateTime(ExactTime(UTC, digits(-2)).get()), qint64(-2));
    QCOMPARE(vela::certificateTime(ExactTime(UTC, digits(1)).get()), qint64(1));
}

void CertificateTimeTest::textIsNotReadBeyondItsEnd_data()
{
    wellFormedTimeIsLocalTime_data();
}

void CertificateTimeTest::textIsNotReadBeyondItsEnd()
{
    QFETCH(int, type);
    QFETCH(QByteArray, text);

    for (int length = 0; length <= text.size(); ++length) {
        const ExactTime exact(type, text.left(length));
        const qint64 seconds = vela::certificateTime(exact.get());
        for (const char* continuation : {"Z", "+0100", "0000000Z", "-0100-", "00Z-----"}) {
            QByteArray memory = text.left(length) + continuation;
            ASN1_TIME time = {};
            time.type = type;
            time.data = reinterpret_cast<unsigned char*>(memory.data());
            time.length = length;
            QCOMPARE(vela::certificateTime(&time), seconds);
        }
    }
}

void CertificateTimeTest::nullTimeGivesTheEpoch()
{
    QCOMPARE(vela::certificateTime(nullptr), qint64(0));
}

void CertificateTimeTest::dateTimeShowsTheDigitsOfTheCertificate_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QDateTime>("expected");
    const auto row = [](const char* name, const char* text, const char* expected) {
        QTest::newRow(name) << QByteArray(text)
                            << QDateTime::fromString(QString::fromLatin1(expected), Qt::ISODate);
    };
    row("winter", "200115103045Z", "2020-01-15T10:30:45");
    row("summer", "200715103045Z", "2020-07-15T10:30:45");
    row("1950", "500101000000Z", "1950-01-01T00:00:00");
    row("beyond 32-bit seconds", "491231235959Z", "2049-12-31T23:59:59");
    row("offset", "200115103000+0100", "2020-01-15T10:31:00");
}

void CertificateTimeTest::dateTimeShowsTheDigitsOfTheCertificate()
{
    QFETCH(QByteArray, text);
    QFETCH(QDateTime, expected);

    const ExactTime time(UTC, text);
    const QDateTime result = vela::certificateDateTime(time.get());
    QCOMPARE(result.timeSpec(), Qt::LocalTime);
    QCOMPARE(result.date(), expected.date());
    QCOMPARE(result.time(), expected.time());
}

void CertificateTimeTest::dateTimeOfMalformedTextIsTheEpochAndValid()
{
    const ExactTime time(UTC, "not a time Z");
    const QDateTime result = vela::certificateDateTime(time.get());
    QVERIFY(result.isValid());
    QCOMPARE(result.toSecsSinceEpoch(), qint64(0));
}

QTEST_GUILESS_MAIN(CertificateTimeTest)
#include "tst_certificatetime.moc"

// SPDX-License-Identifier: BSD-3-Clause
#include "cert/CertificateTime.h"

#include <QtCore/QByteArray>

#include <ctime>
#include <optional>

namespace vela {

namespace {

constexpr int UTC_TIME_MIN_LENGTH = 11;
constexpr int UTC_TIME_MAX_LENGTH = 17;
constexpr int GENERALIZED_TIME_MIN_LENGTH = 13;
constexpr int SECONDS_OF_HOUR = 3600;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

//! Reads the text of a time from front to back and never past its end.
class TimeText
{
public:
    TimeText(const char* data, int length)
        : m_data(data)
        , m_length(length)
    {
    }

    //! Returns the character \a offset places further on, NUL where the text has ended.
    char at(int offset = 0) const
    {
        return offset < m_length - m_position ? m_data[m_position + offset] : '\0';
    }

    bool has(int count) const { return count <= m_length - m_position; }
    void skip(int count) { m_position += count; }

    QByteArray take(int count)
    {
        const QByteArray taken(m_data + m_position, count);
        m_position += count;
        return taken;
    }

private:
    const char* m_data;
    int m_length;
    int m_position = 0;
};

std::optional<int> twoDigits(const QByteArray& text, int position)
{
    if (position + 2 > text.size() || !isDigit(text[position]) || !isDigit(text[position + 1]))
        return std::nullopt;
    return (text[position] - '0') * 10 + (text[position + 1] - '0');
}

//! Takes the digits up to the seconds, whose absence counts as "00", and drops fractions.
std::optional<QByteArray> takeDigits(TimeText& text, int countBeforeSeconds)
{
    QByteArray digits = text.take(countBeforeSeconds);
    const char next = text.at();
    if (next == '+' || next == '-' || next == 'Z')
        return digits + "00";
    if (!text.has(2))
        return std::nullopt;
    digits += text.take(2);
    if (text.at() == '.') {
        text.skip(1);
        while (isDigit(text.at()))
            text.skip(1);
    }
    return digits;
}

/*
    Minutes, which the caller adds as if they were seconds. That a "-" counts only with another "-"
    behind the zone is what hosts have always seen, and so is the missing conversion.
*/
std::optional<int> takeZone(TimeText& text)
{
    if (text.at() == 'Z')
        return 0;
    if (text.at() != '+' && text.at(5) != '-')
        return std::nullopt;
    if (!text.has(5))
        return std::nullopt;
    const QByteArray zone = text.take(5);
    const std::optional<int> hours = twoDigits(zone, 1);
    const std::optional<int> minutes = twoDigits(zone, 3);
    if (!hours || !minutes)
        return std::nullopt;
    const int offset = *hours * 60 + *minutes;
    return zone[0] == '-' ? -offset : offset;
}

//! As mktime(), also where that knows no times before 1970.
std::time_t secondsOf(std::tm& time)
{
    constexpr int CYCLE_YEARS = 28; // After which the calendar is the same.
    constexpr std::time_t CYCLE_SECONDS = std::time_t(CYCLE_YEARS * 365 + 7) * 24 * SECONDS_OF_HOUR;
    std::tm later = time;
    const std::time_t seconds = std::mktime(&time);
    if (seconds != std::time_t(-1) || later.tm_year >= 70)
        return seconds;
    later.tm_year += CYCLE_YEARS;
    time = later;
    return std::mktime(&time) - CYCLE_SECONDS;
}

std::optional<qint64> localSeconds(const QByteArray& digits)
{
    int fields[6] = {};
    for (int i = 0; i < 6; ++i) {
        const std::optional<int> field = twoDigits(digits, 2 * i);
        if (!field)
            return std::nullopt;
        fields[i] = *field;
    }

    std::tm time = {};
    time.tm_year = fields[0] < 50 ? fields[0] + 100 : fields[0];
    time.tm_mon = fields[1] - 1;
    time.tm_mday = fields[2];
    time.tm_hour = fields[3];
    time.tm_min = fields[4];
    time.tm_sec = fields[5];
    const std::time_t seconds = secondsOf(time);
    if (seconds == std::time_t(-1))
        return std::nullopt;
    return qint64(seconds) - (time.tm_isdst > 0 ? SECONDS_OF_HOUR : 0);
}

bool isLengthValid(const ASN1_TIME* time)
{
    if (time->type == V_ASN1_UTCTIME)
        return time->length >= UTC_TIME_MIN_LENGTH && time->length <= UTC_TIME_MAX_LENGTH;
    return time->length >= GENERALIZED_TIME_MIN_LENGTH;
}

std::optional<qint64> convert(const ASN1_TIME* time)
{
    if (!isLengthValid(time))
        return std::nullopt;
    TimeText text(reinterpret_cast<const char*>(time->data), time->length);
    // The digits are always read from the front as YYMMDDhhmmss, also those of a GeneralizedTime.
    const std::optional<QByteArray> digits =
        takeDigits(text, time->type == V_ASN1_UTCTIME ? 10 : 12);
    if (!digits)
        return std::nullopt;
    const std::optional<int> zone = takeZone(text);
    const std::optional<qint64> seconds = localSeconds(*digits);
    if (!zone || !seconds)
        return std::nullopt;
    return *seconds + *zone;
}

} // namespace

qint64 certificateTime(const ASN1_TIME* time)
{
    return time ? convert(time).value_or(0) : 0;
}

QDateTime certificateDateTime(const ASN1_TIME* time)
{
    return QDateTime::fromSecsSinceEpoch(certificateTime(time));
}

} // namespace vela

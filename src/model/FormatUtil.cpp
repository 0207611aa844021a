#include "model/FormatUtil.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace limitra::FormatUtil {

namespace {
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr std::int64_t kSecondsPerDay = 86400;

// Truncates toward zero; values beyond the 64-bit range saturate and NaN
// counts as zero, so absurd moments give absurd texts but never UB.
std::int64_t wholeSeconds(double seconds)
{
    if (std::isnan(seconds))
        return 0;
    if (seconds >= kTwoTo63)
        return std::numeric_limits<std::int64_t>::max();
    if (seconds < -kTwoTo63)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(seconds);
}

// Days since 1970-01-01 of a proleptic Gregorian date.
std::int64_t daysFromCivil(std::int64_t y, int m, int d)
{
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yoe = y - era * 400;
    const std::int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

struct CivilDate
{
    std::int64_t year;
    int month;
    int day;
};

CivilDate civilFromDays(std::int64_t z)
{
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const int day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    return { yoe + era * 400 + (month <= 2), month, day };
}

bool isLeapYear(int y)
{
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysInMonth(int y, int m)
{
    static constexpr int kDays[] = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
    return m == 2 && isLeapYear(y) ? 29 : kDays[m - 1];
}

// A strict left-to-right reader of the internet date-time grammar.
class Reader
{
public:
    explicit Reader(QStringView text)
        : m_text(text)
    {
    }

    bool atEnd() const { return m_pos == m_text.size(); }

    bool literal(char c)
    {
        if (atEnd() || m_text[m_pos] != QLatin1Char(c))
            return false;
        ++m_pos;
        return true;
    }

    bool peekDigit() const { return !atEnd() && m_text[m_pos] >= u'0' && m_text[m_pos] <= u'9'; }

    // Exactly `count` ASCII digits, in [low, high].
    bool number(int count, int low, int high, int& out)
    {
        int value = 0;
        for (int k = 0; k < count; ++k) {
            if (!peekDigit())
                return false;
            value = value * 10 + (m_text[m_pos++].unicode() - u'0');
        }
        out = value;
        return value >= low && value <= high;
    }

    // One or more digits after the decimal point, as a fraction of a second.
    bool fraction(double& out)
    {
        QString decimal = QStringLiteral("0.");
        while (peekDigit())
            decimal.append(m_text[m_pos++]);
        if (decimal.size() == 2)
            return false;
        bool ok = false;
        out = decimal.toDouble(&ok);
        return ok;
    }

private:
    QStringView m_text;
    qsizetype m_pos = 0;
};
} // namespace

std::optional<double> parseISODate(const std::optional<QString>& text)
{
    if (!text)
        return std::nullopt;
    Reader r(*text);
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    // Short-circuit order matters: the month is valid before its length is looked up.
    if (!r.number(4, 0, 9999, year) || !r.literal('-') || !r.number(2, 1, 12, month) || !r.literal('-')
        || !r.number(2, 1, daysInMonth(year, month), day) || !r.literal('T') || !r.number(2, 0, 23, hour)
        || !r.literal(':') || !r.number(2, 0, 59, minute) || !r.literal(':') || !r.number(2, 0, 59, second))
        return std::nullopt;
    double fraction = 0;
    if (r.literal('.') && !r.fraction(fraction))
        return std::nullopt;
    int offset = 0;
    if (!r.literal('Z')) {
        int sign = 0;
        if (r.literal('+'))
            sign = 1;
        else if (r.literal('-'))
            sign = -1;
        else
            return std::nullopt;
        int offsetHours = 0, offsetMinutes = 0;
        if (!r.number(2, 0, 23, offsetHours) || !r.literal(':') || !r.number(2, 0, 59, offsetMinutes))
            return std::nullopt;
        offset = sign * (offsetHours * 3600 + offsetMinutes * 60);
    }
    if (!r.atEnd())
        return std::nullopt;
    const std::int64_t whole
        = daysFromCivil(year, month, day) * kSecondsPerDay + hour * 3600 + minute * 60 + second - offset;
    return static_cast<double>(whole) + fraction;
}

QString ago(double date, double now)
{
    const std::int64_t s = wholeSeconds(now - date);
    if (s <= 59)
        return QStringLiteral("hace %1 s").arg(std::max<std::int64_t>(s, 0));
    if (s <= 3599)
        return QStringLiteral("hace %1 min").arg(s / 60);
    return QStringLiteral("hace %1 h %2 min").arg(s / 3600).arg((s / 60) % 60);
}

QString countdown(double to, double from)
{
    const std::int64_t s = wholeSeconds(to - from);
    if (s < 1)
        return QStringLiteral("ahora");
    const std::int64_t d = s / kSecondsPerDay;
    const std::int64_t h = (s % kSecondsPerDay) / 3600;
    const std::int64_t m = (s % 3600) / 60;
    if (s >= kSecondsPerDay)
        return QStringLiteral("%1d %2h").arg(d).arg(h);
    if (s >= 3600)
        return QStringLiteral("%1h %2m").arg(h).arg(m);
    return QStringLiteral("%1m").arg(m);
}

QString iso8601Fractional(double moment)
{
    // Four-digit years only: moments outside 0000…9999 are pinned to the ends.
    static const double kFirst = static_cast<double>(daysFromCivil(0, 1, 1) * kSecondsPerDay);
    static const double kLast = static_cast<double>(daysFromCivil(10000, 1, 1) * kSecondsPerDay) - 0.001;
    const double clamped = std::isnan(moment) ? 0.0 : std::clamp(moment, kFirst, kLast);
    const auto millis = static_cast<std::int64_t>(std::floor(clamped * 1000.0 + 0.5));
    const std::int64_t seconds = millis >= 0 ? millis / 1000 : -((-millis + 999) / 1000);
    const std::int64_t days
        = seconds >= 0 ? seconds / kSecondsPerDay : -((-seconds + kSecondsPerDay - 1) / kSecondsPerDay);
    const std::int64_t ofDay = seconds - days * kSecondsPerDay;
    const CivilDate date = civilFromDays(days);
    const QLatin1Char zero('0');
    return QStringLiteral("%1-%2-%3T%4:%5:%6.%7Z")
        .arg(date.year, 4, 10, zero)
        .arg(date.month, 2, 10, zero)
        .arg(date.day, 2, 10, zero)
        .arg(ofDay / 3600, 2, 10, zero)
        .arg(ofDay / 60 % 60, 2, 10, zero)
        .arg(ofDay % 60, 2, 10, zero)
        .arg(millis - seconds * 1000, 3, 10, zero);
}

} // namespace limitra::FormatUtil

#include "model/FormatUtil.h"

#include <QDateTime>
#include <QTest>

#include <limits>

using namespace limitra;

namespace {
// An independent oracle for expected moments: Qt's own calendar arithmetic.
double utc(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC).toMSecsSinceEpoch() / 1000.0;
}

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
} // namespace

class TestFormatUtil : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void internetDateTimesAreParsed_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("expected");
        QTest::newRow("fraction, Z") << "2025-03-01T12:34:56.789Z" << utc(2025, 3, 1, 12, 34, 56, 789);
        QTest::newRow("plain, Z") << "2025-03-01T12:34:56Z" << utc(2025, 3, 1, 12, 34, 56);
        QTest::newRow("zero offset") << "2025-03-01T12:34:56+00:00" << utc(2025, 3, 1, 12, 34, 56);
        QTest::newRow("east offset") << "2025-03-01T12:34:56+02:00" << utc(2025, 3, 1, 10, 34, 56);
        QTest::newRow("west offset over midnight")
            << "2025-03-01T22:04:00-05:30" << utc(2025, 3, 2, 3, 34, 0);
        QTest::newRow("offset and fraction")
            << "2025-03-01T00:00:00.5+01:00" << utc(2025, 2, 28, 23, 0, 0, 500);
        QTest::newRow("one fraction digit") << "2025-03-01T12:34:56.1Z" << utc(2025, 3, 1, 12, 34, 56, 100);
        QTest::newRow("nine fraction digits")
            << "2025-03-01T12:34:56.123456789Z" << utc(2025, 3, 1, 12, 34, 56) + 0.123456789;
        QTest::newRow("leap day") << "2024-02-29T23:59:59Z" << utc(2024, 2, 29, 23, 59, 59);
        QTest::newRow("400-year leap day") << "2000-02-29T00:00:00Z" << utc(2000, 2, 29, 0, 0, 0);
        QTest::newRow("before the epoch") << "1969-12-31T23:59:59.250Z" << -0.75;
        QTest::newRow("last day of the range") << "9999-12-31T23:59:59Z" << utc(9999, 12, 31, 23, 59, 59);
    }

    void internetDateTimesAreParsed()
    {
        QFETCH(QString, text);
        QFETCH(double, expected);
        const auto parsed = FormatUtil::parseISODate(text);
        QVERIFY2(parsed.has_value(), qPrintable(text));
        QVERIFY2(qAbs(*parsed - expected) < 1e-6, qPrintable(QString::number(*parsed, 'f', 6)));
    }

    void anythingElseGivesNoDate_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("date only") << "2025-03-01";
        QTest::newRow("space instead of T") << "2025-03-01 12:34:56Z";
        QTest::newRow("no time zone") << "2025-03-01T12:34:56";
        QTest::newRow("offset without colon") << "2025-03-01T12:34:56+0200";
        QTest::newRow("no seconds") << "2025-03-01T12:34Z";
        QTest::newRow("dot without digits") << "2025-03-01T12:34:56.Z";
        QTest::newRow("month 13") << "2025-13-01T12:34:56Z";
        QTest::newRow("day 0") << "2025-03-00T12:34:56Z";
        QTest::newRow("30 February") << "2024-02-30T12:00:00Z";
        QTest::newRow("29 February, common year") << "2023-02-29T12:00:00Z";
        QTest::newRow("29 February, 1900") << "1900-02-29T12:00:00Z";
        QTest::newRow("31 April") << "2025-04-31T12:00:00Z";
        QTest::newRow("hour 24") << "2025-03-01T24:00:00Z";
        QTest::newRow("minute 60") << "2025-03-01T12:60:00Z";
        QTest::newRow("second 61") << "2025-03-01T12:34:61Z";
        QTest::newRow("offset hour 24") << "2025-03-01T12:34:56+24:00";
        QTest::newRow("trailing text") << "2025-03-01T12:34:56Zjunk";
        QTest::newRow("leading space") << " 2025-03-01T12:34:56Z";
        QTest::newRow("five-digit year") << "20250-03-01T12:34:56Z";
        QTest::newRow("non-ASCII digits") << QString::fromUtf8("٢٠٢٥-03-01T12:34:56Z");
        QTest::newRow("garbage") << "not a date";
    }

    void anythingElseGivesNoDate()
    {
        QFETCH(QString, text);
        QCOMPARE(FormatUtil::parseISODate(text), std::nullopt);
    }

    void absentTextGivesNoDate() { QCOMPARE(FormatUtil::parseISODate(std::nullopt), std::nullopt); }

    void agoText_data()
    {
        QTest::addColumn<double>("date");
        QTest::addColumn<double>("now");
        QTest::addColumn<QString>("expected");
        const double t = 1740832496.0;
        QTest::newRow("same moment") << t << t << "hace 0 s";
        QTest::newRow("60 s") << t << t + 60 << "hace 1 min";
        QTest::newRow("119 s") << t << t + 119 << "hace 1 min";
        QTest::newRow("3599 s") << t << t + 3599 << "hace 59 min";
        QTest::newRow("3600 s") << t << t + 3600 << "hace 1 h 0 min";
        QTest::newRow("7530 s") << t << t + 7530 << "hace 2 h 5 min";
        QTest::newRow("over a day") << t << t + 90061 << "hace 25 h 1 min";
        QTest::newRow("future") << t + 10 << t << "hace 0 s";
        QTest::newRow("NaN") << kNaN << t << "hace 0 s";
        QTest::newRow("far future") << kInf << t << "hace 0 s";
        QTest::newRow("beyond 64 bits") << -1e300 << t << "hace 2562047788015215 h 30 min";
    }

    void agoText()
    {
        QFETCH(double, date);
        QFETCH(double, now);
        QFETCH(QString, expected);
        QCOMPARE(FormatUtil::ago(date, now), expected);
    }

    void countdownText_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("expected");
        QTest::newRow("0.9 s") << 0.9 << "ahora";
        QTest::newRow("1 s") << 1.0 << "0m";
        QTest::newRow("59 s") << 59.0 << "0m";
        QTest::newRow("60 s") << 60.0 << "1m";
        QTest::newRow("12 min") << 12.0 * 60 + 30 << "12m";
        QTest::newRow("3600 s") << 3600.0 << "1h 0m";
        QTest::newRow("4h 7m") << 4.0 * 3600 + 7 * 60 + 59 << "4h 7m";
        QTest::newRow("86399 s") << 86399.0 << "23h 59m";
        QTest::newRow("86400 s") << 86400.0 << "1d 0h";
        QTest::newRow("200000 s") << 200000.0 << "2d 7h";
        QTest::newRow("past") << -3600.0 << "ahora";
        QTest::newRow("NaN") << kNaN << "ahora";
        QTest::newRow("minus infinity") << -kInf << "ahora";
        QTest::newRow("infinity") << kInf << "106751991167300d 15h";
    }

    void countdownText()
    {
        QFETCH(double, seconds);
        QFETCH(QString, expected);
        const double from = 1740832496.25;
        QCOMPARE(FormatUtil::countdown(from + seconds, from), expected);
    }

    void fractionalTimestamps_data()
    {
        QTest::addColumn<double>("moment");
        QTest::addColumn<QString>("expected");
        QTest::newRow("epoch") << 0.0 << "1970-01-01T00:00:00.000Z";
        QTest::newRow("milliseconds") << utc(2025, 3, 1, 12, 34, 56) + 0.789 << "2025-03-01T12:34:56.789Z";
        QTest::newRow("sub-millisecond")
            << utc(2025, 3, 1, 12, 34, 56) + 0.0004 << "2025-03-01T12:34:56.000Z";
        QTest::newRow("leap day") << utc(2024, 2, 29, 23, 59, 59, 1) << "2024-02-29T23:59:59.001Z";
        QTest::newRow("before the epoch") << -0.5 << "1969-12-31T23:59:59.500Z";
        QTest::newRow("NaN") << kNaN << "1970-01-01T00:00:00.000Z";
        QTest::newRow("huge") << 1e300 << "9999-12-31T23:59:59.999Z";
        QTest::newRow("minus infinity") << -kInf << "0000-01-01T00:00:00.000Z";
    }

    void fractionalTimestamps()
    {
        QFETCH(double, moment);
        QFETCH(QString, expected);
        const QString text = FormatUtil::iso8601Fractional(moment);
        QCOMPARE(text, expected);
        // What we write must read back as the same moment (to the millisecond).
        const auto back = FormatUtil::parseISODate(text);
        QVERIFY(back.has_value());
        if (std::isfinite(moment) && qAbs(moment) < 1e11)
            QVERIFY(qAbs(*back - moment) < 0.0006);
    }
};

QTEST_GUILESS_MAIN(TestFormatUtil)
#include "tst_formatutil.moc"

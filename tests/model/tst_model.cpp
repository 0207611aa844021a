#include "model/FormatUtil.h"
#include "model/MenuBarStyle.h"
#include "model/PercentMode.h"

#include <QDateTime>
#include <QTest>

#include <limits>

using namespace limitra;

Q_DECLARE_METATYPE(limitra::PercentMode::Case)

namespace {
// An independent oracle for expected moments: Qt's own calendar arithmetic.
double utc(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC).toMSecsSinceEpoch() / 1000.0;
}

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kT = 1740832496.25;
} // namespace

class TestModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void internetDateTimesAreParsed_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("expected");
        QTest::newRow("fraction, Z") << "2025-03-01T12:34:56.789Z" << utc(2025, 3, 1, 12, 34, 56, 789);
        QTest::newRow("plain, Z") << "2025-03-01T12:34:56Z" << utc(2025, 3, 1, 12, 34, 56);
        QTest::newRow("east offset") << "2025-03-01T12:34:56+02:00" << utc(2025, 3, 1, 10, 34, 56);
        QTest::newRow("west offset over midnight")
            << "2025-03-01T22:04:00-05:30" << utc(2025, 3, 2, 3, 34, 0);
        QTest::newRow("offset and fraction")
            << "2025-03-01T00:00:00.5+01:00" << utc(2025, 2, 28, 23, 0, 0, 500);
        QTest::newRow("nine fraction digits")
            << "2025-03-01T12:34:56.123456789Z" << utc(2025, 3, 1, 12, 34, 56) + 0.123456789;
        QTest::newRow("400-year leap day") << "2000-02-29T00:00:00Z" << utc(2000, 2, 29, 0, 0, 0);
        QTest::newRow("before the epoch") << "1969-12-31T23:59:59.250Z" << -0.75;
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
        for (const char* text :
            { "", "2025-03-01", "2025-03-01 12:34:56Z", "2025-03-01T12:34:56", "2025-03-01T12:34:56+0200",
                "2025-03-01T12:34Z", "2025-03-01T12:34:56.Z", "2025-13-01T12:34:56Z", "2024-02-30T12:00:00Z",
                "1900-02-29T12:00:00Z", "2025-03-01T24:00:00Z", "2025-03-01T12:34:61Z",
                "2025-03-01T12:34:56Zjunk", "٢٠٢٥-03-01T12:34:56Z" })
            QTest::addRow("%s", text) << QString::fromUtf8(text);
    }
    void anythingElseGivesNoDate()
    {
        QFETCH(QString, text);
        QCOMPARE(FormatUtil::parseISODate(text), std::nullopt);
        QCOMPARE(FormatUtil::parseISODate(std::nullopt), std::nullopt);
    }

    void agoText_data()
    {
        QTest::addColumn<double>("before");
        QTest::addColumn<QString>("expected");
        const struct
        {
            double before; // seconds before now
            const char* expected;
        } cases[] = {
            { 0, "hace 0 s" }, { 60, "hace 1 min" }, { 3599, "hace 59 min" }, { 3600, "hace 1 h 0 min" },
            { 7530, "hace 2 h 5 min" }, { -10, "hace 0 s" }, { kNaN, "hace 0 s" }, { -kInf, "hace 0 s" },
            { kT + 1e300, "hace 2562047788015215 h 30 min" }, // beyond 64 bits
        };
        for (const auto& c : cases)
            QTest::addRow("%g s", c.before) << c.before << QString::fromUtf8(c.expected);
    }
    void agoText()
    {
        QFETCH(double, before);
        QFETCH(QString, expected);
        QCOMPARE(FormatUtil::ago(kT - before, kT), expected);
    }

    void countdownText_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("expected");
        const struct
        {
            double seconds;
            const char* expected;
        } cases[] = {
            { 0.9, "ahora" },
            { 1, "0m" },
            { 60, "1m" },
            { 3600, "1h 0m" },
            { 86399, "23h 59m" },
            { 86400, "1d 0h" },
            { -3600, "ahora" },
            { kNaN, "ahora" },
            { kInf, "106751991167300d 15h" },
        };
        for (const auto& c : cases)
            QTest::addRow("%g s", c.seconds) << c.seconds << QString::fromUtf8(c.expected);
    }
    void countdownText()
    {
        QFETCH(double, seconds);
        QFETCH(QString, expected);
        QCOMPARE(FormatUtil::countdown(kT + seconds, kT), expected);
    }

    void fractionalTimestamps_data()
    {
        QTest::addColumn<double>("moment");
        QTest::addColumn<QString>("expected");
        QTest::newRow("epoch") << 0.0 << "1970-01-01T00:00:00.000Z";
        QTest::newRow("milliseconds") << utc(2025, 3, 1, 12, 34, 56) + 0.789 << "2025-03-01T12:34:56.789Z";
        QTest::newRow("sub-millisecond")
            << utc(2025, 3, 1, 12, 34, 56) + 0.0004 << "2025-03-01T12:34:56.000Z";
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

    void shownPercentRoundsHalvesAwayFromZero_data()
    {
        QTest::addColumn<PercentMode::Case>("mode");
        QTest::addColumn<double>("left");
        QTest::addColumn<int>("expected");
        const auto remaining = PercentMode::Remaining, used = PercentMode::Used;
        QTest::newRow("remaining 84.5") << remaining << 84.5 << 85;
        QTest::newRow("used 84.5") << used << 84.5 << 16;
        QTest::newRow("remaining 0.4") << remaining << 0.4 << 0;
        QTest::newRow("used 0.4") << used << 0.4 << 100;
        QTest::newRow("remaining 49.49") << remaining << 49.49 << 49;
        QTest::newRow("NaN") << remaining << kNaN << 0;
        QTest::newRow("huge") << remaining << 1e300 << std::numeric_limits<int>::max();
        QTest::newRow("used, huge") << used << 1e300 << std::numeric_limits<int>::min();
    }
    void shownPercentRoundsHalvesAwayFromZero()
    {
        QFETCH(PercentMode::Case, mode);
        QFETCH(double, left);
        QFETCH(int, expected);
        QCOMPARE(PercentMode { mode }.value(left), expected);
    }

    // Columns hold the raw value of the case the text names, or "" for none.
    void onlyExactRawValuesNameACase_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("percentMode");
        QTest::addColumn<QString>("menuBarStyle");
        for (const char* mode : { "remaining", "used" })
            QTest::newRow(mode) << mode << mode << QString();
        for (const char* style : { "iconAndPercents", "iconOnly", "iconAndWorst" })
            QTest::newRow(style) << style << QString() << style;
        for (const char* other : { "Used", "ICONONLY", " used", "iconOnly ", "" })
            QTest::addRow("'%s'", other) << other << QString() << QString();
    }
    void onlyExactRawValuesNameACase()
    {
        QFETCH(QString, raw);
        QFETCH(QString, percentMode);
        QFETCH(QString, menuBarStyle);
        const auto mode = PercentMode::fromRawValue(raw);
        QCOMPARE(mode ? mode->rawValue() : QString(), percentMode);
        const auto style = MenuBarStyle::fromRawValue(raw);
        QCOMPARE(style ? style->rawValue() : QString(), menuBarStyle);
    }
};

QTEST_GUILESS_MAIN(TestModel)
#include "tst_model.moc"

#include "model/LimitRow.h"
#include "platform/Json.h"
#include "services/claude/ClaudeProvider.h"

#include <QStringList>
#include <QTest>

using namespace limitra;

namespace {

constexpr double kFractionalReset = 1740832496.789; // 2025-03-01T12:34:56.789Z
constexpr double kPlainReset = 1740832496; // 2025-03-01T12:34:56Z

LimitRow row(const QString& id, const QString& title, double used, std::optional<double> resets = {},
    std::optional<QString> detail = {})
{
    return LimitRow { id, title, used, resets, detail };
}

LimitRow extra(double used, const char* detail)
{
    return row(QStringLiteral("claude-extra"), QStringLiteral("Créditos extra"), used, {},
        QString::fromUtf8(detail));
}

// Every field in full precision, one row per line, so a failure shows which one differs.
QString describe(const QList<LimitRow>& rows)
{
    QStringList lines;
    for (const LimitRow& r : rows) {
        lines << QStringLiteral("%1 | %2 | %3 | %4 | %5")
                     .arg(r.id, r.title, QString::number(r.usedPercent, 'g', 17),
                         r.resetsAt ? QString::number(*r.resetsAt, 'g', 17) : QStringLiteral("-"),
                         r.detail.value_or(QStringLiteral("-")));
    }
    return lines.join(u'\n');
}

const QByteArray kSpend
    = R"("spend":{"enabled":true,"used":{"amount_minor":1234},"limit":{"amount_minor":5000}})";

} // namespace

class TestClaudeParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsFollowTheAnswer_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QList<LimitRow>>("expected");

        const QString session = QStringLiteral("Sesión de 5 h");
        const QString weekly = QStringLiteral("Semanal · Todos los modelos");

        QTest::newRow("limits, every kind, in array order, then extra")
            << QByteArray(R"({"limits":[
                {"kind":"session","percent":12.5,"resets_at":"2025-03-01T12:34:56.789Z"},
                {"kind":"weekly_all","percent":40,"resets_at":"2025-03-01T12:34:56Z"},
                {"kind":"weekly_scoped","percent":3,"scope":{"model":{"display_name":"Opus"}}},
                {"kind":"weekly_scoped","percent":4,"scope":{"other":1}},
                {"kind":"weekly_scoped","percent":5,"scope":{"model":{"display_name":7}}},
                {"kind":"opus_only","percent":120,"resets_at":"2025-03-01"},
                {"percent":"9","resets_at":5}],
                "five_hour":{"utilization":99},)"
                   + kSpend + "}")
            << QList<LimitRow> {
                   row("claude-session-" + session, session, 12.5, kFractionalReset),
                   row("claude-weekly_all-" + weekly, weekly, 40, kPlainReset),
                   row(QStringLiteral("claude-weekly_scoped-Semanal · Opus"),
                       QStringLiteral("Semanal · Opus"), 3),
                   row(QStringLiteral("claude-weekly_scoped-Semanal · Modelo"),
                       QStringLiteral("Semanal · Modelo"), 4),
                   row(QStringLiteral("claude-weekly_scoped-Semanal · Modelo"),
                       QStringLiteral("Semanal · Modelo"), 5),
                   row(QStringLiteral("claude-opus_only-opus_only"), QStringLiteral("opus_only"), 120),
                   row(QStringLiteral("claude--"), QString(), 0),
                   extra(1234.0 / 5000 * 100, "$12.34 / $50.00 USD"),
               };
        QTest::newRow("empty limits hide the named windows")
            << QByteArray(R"({"limits":[],"five_hour":{"utilization":50},"seven_day":{"utilization":1}})")
            << QList<LimitRow> {};
        QTest::newRow("limits with a non-object fall back to the windows")
            << QByteArray(R"({"limits":[{"kind":"session"},1],
                "seven_day":{"utilization":7.25,"resets_at":"bad"},
                "five_hour":{"resets_at":"2025-03-01T12:34:56.789Z"}})")
            << QList<LimitRow> { row(QStringLiteral("claude-5h"), session, 0, kFractionalReset),
                   row(QStringLiteral("claude-7d"), weekly, 7.25) };
        QTest::newRow("limits not an array, window not an object")
            << QByteArray(R"({"limits":{"kind":"session"},"five_hour":5,"seven_day":{"utilization":30}})")
            << QList<LimitRow> { row(QStringLiteral("claude-7d"), weekly, 30) };
        QTest::newRow("nothing known") << QByteArray(R"({"other":1})") << QList<LimitRow> {};
    }
    void rowsFollowTheAnswer()
    {
        QFETCH(QByteArray, answer);
        QFETCH(QList<LimitRow>, expected);
        const auto object = platform::Json::parseObject(answer);
        QVERIFY(object);
        QCOMPARE(describe(ClaudeProvider::parseRows(*object)), describe(expected));
    }

    void extraCreditsRow_data()
    {
        QTest::addColumn<QByteArray>("spend");
        QTest::addColumn<QList<LimitRow>>("expected");

        QTest::newRow("default exponent")
            << QByteArray(R"({"enabled":true,"used":{"amount_minor":1234},
                "limit":{"amount_minor":5000}})")
            << QList<LimitRow> { extra(1234.0 / 5000 * 100, "$12.34 / $50.00 USD") };
        QTest::newRow("exponent 0") << QByteArray(
            R"({"enabled":true,"used":{"amount_minor":1234,"exponent":0},
                "limit":{"amount_minor":5000}})")
                                    << QList<LimitRow> { extra(
                                           1234.0 / 5000 * 100, "$1234.00 / $5000.00 USD") };
        // 2.675 is stored as 2.67499…, which printf's "%.2f" writes as 2.67.
        QTest::newRow("exponent of used applies to both")
            << QByteArray(R"({"enabled":true,"used":{"amount_minor":5,"exponent":3},
                "limit":{"amount_minor":2675,"exponent":0}})")
            << QList<LimitRow> { extra(5.0 / 2675 * 100, "$0.01 / $2.67 USD") };
        QTest::newRow("percent given")
            << QByteArray(R"({"enabled":true,"percent":30,"used":{"amount_minor":1},
                "limit":{"amount_minor":2}})")
            << QList<LimitRow> { extra(30, "$0.01 / $0.02 USD") };
        QTest::newRow("disabled") << QByteArray(R"({"enabled":false,"used":{"amount_minor":1},
                "limit":{"amount_minor":2}})")
                                  << QList<LimitRow> {};
        QTest::newRow("enabled as text") << QByteArray(R"({"enabled":"true","used":{"amount_minor":1},
                "limit":{"amount_minor":2}})")
                                         << QList<LimitRow> {};
        QTest::newRow("zero limit") << QByteArray(R"({"enabled":true,"used":{"amount_minor":1},
                "limit":{"amount_minor":0}})")
                                    << QList<LimitRow> {};
        QTest::newRow("no used amount") << QByteArray(R"({"enabled":true,"used":{"amount":1},
                "limit":{"amount_minor":2}})")
                                        << QList<LimitRow> {};
        QTest::newRow("limit not an object") << QByteArray(R"({"enabled":true,"used":{"amount_minor":1},
                "limit":2})") << QList<LimitRow> {};
    }
    void extraCreditsRow()
    {
        QFETCH(QByteArray, spend);
        QFETCH(QList<LimitRow>, expected);
        const auto object
            = platform::Json::parseObject(R"({"five_hour":{"utilization":1},"spend":)" + spend + "}");
        QVERIFY(object);
        expected.prepend(row(QStringLiteral("claude-5h"), QStringLiteral("Sesión de 5 h"), 1));
        QCOMPARE(describe(ClaudeProvider::parseRows(*object)), describe(expected));
    }
};

QTEST_GUILESS_MAIN(TestClaudeParser)
#include "tst_claudeparser.moc"

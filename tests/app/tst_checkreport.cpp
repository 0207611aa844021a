#include "app/CheckReport.h"

#include <QTest>

#include <optional>

using namespace limitra;

namespace {

// 2025-03-01T12:00:00Z; every reset below is placed relative to it.
constexpr double kNow = 1740830400.0;
constexpr double kHour = 3600;
constexpr double kDay = 86400;

LimitRow row(const QString& title, double used, std::optional<double> resetsAt = {},
    std::optional<QString> detail = {})
{
    LimitRow r;
    r.id = QStringLiteral("row-") + title;
    r.title = title;
    r.usedPercent = used;
    r.resetsAt = resetsAt;
    r.detail = detail;
    return r;
}

ServiceUsage usage(std::optional<QString> plan, QList<LimitRow> rows = {}, std::optional<QString> error = {})
{
    ServiceUsage u;
    u.planBadge = plan;
    u.rows = rows;
    u.error = error;
    return u;
}

const QString kClaudeMissing = QStringLiteral(
    "Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login).");
const QString kCodexMissing
    = QStringLiteral("No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");

} // namespace

class TestCheckReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reportListsBothServicesInFixedOrder_data();
    void reportListsBothServicesInFixedOrder();
    void percentagesRoundAsPrintf_data();
    void percentagesRoundAsPrintf();
};

void TestCheckReport::reportListsBothServicesInFixedOrder_data()
{
    QTest::addColumn<ServiceUsage>("claude");
    QTest::addColumn<ServiceUsage>("codex");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("empty records still get their headers")
        << usage({}) << usage({})
        << QStringList { QStringLiteral("== Claude Code [sin plan] =="),
               QStringLiteral("== Codex [sin plan] ==") };

    QTest::newRow("no credentials anywhere")
        << usage({}, {}, kClaudeMissing) << usage({}, {}, kCodexMissing)
        << QStringList { QStringLiteral("== Claude Code [sin plan] =="),
               QStringLiteral("  ERROR: ") + kClaudeMissing, QStringLiteral("== Codex [sin plan] =="),
               QStringLiteral("  ERROR: ") + kCodexMissing };

    QTest::newRow("weekly row with countdown, Codex missing")
        << usage(QStringLiteral("Max"),
               { row(QStringLiteral("Semanal · Todos los modelos"), 12, kNow + 3 * kDay + 4 * kHour + 1234) })
        << usage({}, {}, kCodexMissing)
        << QStringList { QStringLiteral("== Claude Code [Max] =="),
               QStringLiteral(
                   "  Semanal · Todos los modelos — 12% usado (88% restante) · se reinicia en 3d 4h"),
               QStringLiteral("== Codex [sin plan] =="), QStringLiteral("  ERROR: ") + kCodexMissing };

    QTest::newRow("row without reset or detail ends at the parenthesis")
        << usage({}) << usage(QStringLiteral("Plus"), { row(QStringLiteral("Semanal"), 40) })
        << QStringList { QStringLiteral("== Claude Code [sin plan] =="), QStringLiteral("== Codex [Plus] =="),
               QStringLiteral("  Semanal — 40% usado (60% restante)") };

    QTest::newRow("usage above the limit leaves nothing")
        << usage({}, { row(QStringLiteral("Sesión de 5 h"), 130, kNow + 7 * 60 + 30) }) << usage({})
        << QStringList { QStringLiteral("== Claude Code [sin plan] =="),
               QStringLiteral("  Sesión de 5 h — 130% usado (0% restante) · se reinicia en 7m"),
               QStringLiteral("== Codex [sin plan] ==") };

    QTest::newRow("reset in the past reads ahora")
        << usage({}, { row(QStringLiteral("Sesión de 5 h"), 5, kNow - 90) }) << usage({})
        << QStringList { QStringLiteral("== Claude Code [sin plan] =="),
               QStringLiteral("  Sesión de 5 h — 5% usado (95% restante) · se reinicia en ahora"),
               QStringLiteral("== Codex [sin plan] ==") };

    QTest::newRow("detail alone, then reset before detail")
        << usage(QStringLiteral("Max"),
               { row(QStringLiteral("Créditos extra"), 24.68, {}, QStringLiteral("$12.34 / $50.00 USD")),
                   row(QStringLiteral("Mixta"), 50, kNow + 4 * kHour + 7 * 60 + 59, QStringLiteral("nota")) })
        << usage({})
        << QStringList { QStringLiteral("== Claude Code [Max] =="),
               QStringLiteral("  Créditos extra — 25% usado (75% restante) · $12.34 / $50.00 USD"),
               QStringLiteral("  Mixta — 50% usado (50% restante) · se reinicia en 4h 7m · nota"),
               QStringLiteral("== Codex [sin plan] ==") };

    QTest::newRow("rows are listed after an error, in order")
        << usage(QStringLiteral("Pro"),
               { row(QStringLiteral("B"), 1), row(QStringLiteral("A"), 2), row(QStringLiteral("C"), 3) },
               QStringLiteral("No pude consultar el uso de Claude (HTTP 503)."))
        << usage({}, { row(QStringLiteral("Z"), 99) }, kCodexMissing)
        << QStringList { QStringLiteral("== Claude Code [Pro] =="),
               QStringLiteral("  ERROR: No pude consultar el uso de Claude (HTTP 503)."),
               QStringLiteral("  B — 1% usado (99% restante)"),
               QStringLiteral("  A — 2% usado (98% restante)"),
               QStringLiteral("  C — 3% usado (97% restante)"), QStringLiteral("== Codex [sin plan] =="),
               QStringLiteral("  ERROR: ") + kCodexMissing, QStringLiteral("  Z — 99% usado (1% restante)") };

    QTest::newRow("texts from data are never read as formats")
        << usage(
               QStringLiteral("%1 %s"), { row(QStringLiteral("100% %d %@"), 10, {}, QStringLiteral("%2%%")) })
        << usage(QString(), {}, QStringLiteral("%n%"))
        << QStringList { QStringLiteral("== Claude Code [%1 %s] =="),
               QStringLiteral("  100% %d %@ — 10% usado (90% restante) · %2%%"),
               QStringLiteral("== Codex [] =="), QStringLiteral("  ERROR: %n%") };
}

void TestCheckReport::reportListsBothServicesInFixedOrder()
{
    QFETCH(ServiceUsage, claude);
    QFETCH(ServiceUsage, codex);
    QFETCH(QStringList, expected);
    QCOMPARE(CheckReport::lines(claude, codex, kNow), expected);
}

void TestCheckReport::percentagesRoundAsPrintf_data()
{
    QTest::addColumn<double>("used");
    QTest::addColumn<QString>("numbers");

    // Exact binary halves go to the even neighbour, as printf does.
    QTest::newRow("12.5 and 87.5") << 12.5 << QStringLiteral("12% usado (88% restante)");
    QTest::newRow("2.5 and 97.5") << 2.5 << QStringLiteral("2% usado (98% restante)");
    QTest::newRow("0.5 and 99.5") << 0.5 << QStringLiteral("0% usado (100% restante)");
    QTest::newRow("just above a half") << 42.500001 << QStringLiteral("43% usado (57% restante)");
    QTest::newRow("almost everything") << 99.6 << QStringLiteral("100% usado (0% restante)");
    QTest::newRow("small negative keeps its sign") << -0.4 << QStringLiteral("-0% usado (100% restante)");
    QTest::newRow("negative usage is unclamped") << -20.0 << QStringLiteral("-20% usado (100% restante)");
    QTest::newRow("huge value is written whole")
        << 1e20 << QStringLiteral("100000000000000000000% usado (0% restante)");
}

void TestCheckReport::percentagesRoundAsPrintf()
{
    QFETCH(double, used);
    QFETCH(QString, numbers);
    const QStringList lines
        = CheckReport::lines(usage({}, { row(QStringLiteral("T"), used) }), usage({}), kNow);
    QCOMPARE(lines.value(1), QStringLiteral("  T — ") + numbers);
}

QTEST_GUILESS_MAIN(TestCheckReport)
#include "tst_checkreport.moc"

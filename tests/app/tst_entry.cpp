#include "app/CheckReport.h"
#include "app/Entry.h"
#include "platform/Http.h"
#include "platform/SecretStore.h"
#include "support/TestEnv.h"

#include <QTest>
#include <QTextStream>

#include <algorithm>

using namespace limitra;
using namespace limitra::test;
using Mode = Entry::Mode;

Q_DECLARE_METATYPE(Entry::Mode)

namespace {

// 2025-03-01T12:00:00Z, the clock of the check; resets are placed relative to it.
constexpr double kNow = 1740830400.0;
constexpr double kHour = 3600;

const QString kClaudeMissing = QStringLiteral(
    "Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login).");
const QString kCodexMissing
    = QStringLiteral("No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");
const QString kClaudeHead = QStringLiteral("== Claude Code [sin plan] ==\n");
const QString kCodexHead = QStringLiteral("== Codex [sin plan] ==");

const QByteArray kClaudeUsagePath = "/api/oauth/usage";
const QByteArray kCodexUsagePath = "/backend-api/wham/usage";
// Resets at kNow + 4h 7m 30s and kNow + 2d 5h 30m.
const QByteArray kClaudeAnswer = R"({"five_hour":{"utilization":12.5,"resets_at":"2025-03-01T16:07:30Z"},)"
                                 R"("seven_day":{"utilization":40,"resets_at":"2025-03-03T17:30:00.000Z"}})";
// Resets in 3h 10m 30s and at kNow + 6d 23h 59m.
const QByteArray kCodexAnswer
    = R"({"plan_type":"plus","rate_limit":{)"
      R"("primary_window":{"used_percent":7,"limit_window_seconds":18000,"reset_after_seconds":11430},)"
      R"("secondary_window":{"used_percent":130,"limit_window_seconds":604800,"reset_at":1741433940}}})";
const QString kFullReport
    = QStringLiteral("== Claude Code [Max] ==\n"
                     "  Sesión de 5 h — 12% usado (88% restante) · se reinicia en 4h 7m\n"
                     "  Semanal · Todos los modelos — 40% usado (60% restante) · se reinicia en 2d 5h\n"
                     "== Codex [Plus] ==\n"
                     "  Sesión de 5 h — 7% usado (93% restante) · se reinicia en 3h 10m\n"
                     "  Semanal — 130% usado (0% restante) · se reinicia en 6d 23h\n");

} // namespace

class TestEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { platform::Http::globalInit(); }

    void argumentsChooseTheMode_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<QString>("path");
        const struct
        {
            const char* name;
            QStringList arguments; // after the program path, unless the name says otherwise
            Mode mode;
            const char* path;
        } cases[] = {
            { "nothing starts the application", {}, Mode::Application, "" },
            { "check before a snapshot wins", { "--check", "--snapshot", "out.png" }, Mode::Check, "" },
            { "check as the snapshot's path still wins", { "--snapshot", "--check" }, Mode::Check, "" },
            { "snapshot after other arguments", { "-v", "x", "--snapshot", "/tmp/a b.png", "y" },
                Mode::Snapshot, "/tmp/a b.png" },
            { "the first snapshot takes the next element", { "--snapshot", "--snapshot", "b.png" },
                Mode::Snapshot, "--snapshot" },
            { "snapshot last starts the application", { "out.png", "--snapshot" }, Mode::Application, "" },
            { "only exact spellings count", { "-check", "--CHECK", "--check=1", "--snapshot=out.png" },
                Mode::Application, "" },
        };
        for (const auto& c : cases)
            QTest::newRow(c.name) << QStringList { "/usr/bin/limitra" } + c.arguments << c.mode
                                  << QString::fromUtf8(c.path);
        QTest::newRow("check as the program path") << QStringList { "--check" } << Mode::Check << QString();
        QTest::newRow("the program path is no snapshot path")
            << QStringList { "--snapshot" } << Mode::Application << QString();
    }
    void argumentsChooseTheMode()
    {
        QFETCH(QStringList, arguments);
        QFETCH(Mode, mode);
        QFETCH(QString, path);
        const Entry::Choice choice = Entry::choose(arguments);
        QCOMPARE(choice.mode, mode);
        QCOMPARE(choice.snapshotPath, path);
    }

    void reportListsBothServicesInFixedOrder_data()
    {
        QTest::addColumn<ServiceUsage>("claude");
        QTest::addColumn<ServiceUsage>("codex");
        QTest::addColumn<QString>("expected");
        const ServiceUsage none = usage({});
        const ServiceUsage codexMissing = usage({}, {}, kCodexMissing);

        QTest::newRow("no credentials anywhere")
            << usage({}, {}, kClaudeMissing) << codexMissing
            << kClaudeHead + "  ERROR: " + kClaudeMissing + "\n" + kCodexHead + "\n  ERROR: " + kCodexMissing;
        QTest::newRow("weekly row with countdown")
            << usage({ row("Semanal · Todos los modelos", 12, kNow + 76 * kHour + 1234) }, {}, {}, "Max")
            << none
            << "== Claude Code [Max] ==\n"
               "  Semanal · Todos los modelos — 12% usado (88% restante) · se reinicia en 3d 4h\n"
                + kCodexHead;
        QTest::newRow("row without reset or detail ends at the parenthesis")
            << none << usage({ row("Semanal", 40) }, {}, {}, "Plus")
            << kClaudeHead + "== Codex [Plus] ==\n  Semanal — 40% usado (60% restante)";
        QTest::newRow("usage above the limit leaves nothing")
            << usage({ row("Sesión de 5 h", 130, kNow + 7 * 60 + 30) }) << none
            << kClaudeHead + "  Sesión de 5 h — 130% usado (0% restante) · se reinicia en 7m\n" + kCodexHead;
        QTest::newRow("reset in the past reads ahora")
            << usage({ row("Sesión de 5 h", 5, kNow - 90) }) << none
            << kClaudeHead + "  Sesión de 5 h — 5% usado (95% restante) · se reinicia en ahora\n"
                + kCodexHead;
        QTest::newRow("detail alone, then reset before detail")
            << usage({ row("Créditos extra", 24.68, {}, "$12.34 / $50.00 USD"),
                   row("Mixta", 50, kNow + 4 * kHour + 7 * 60 + 59, "nota") })
            << none
            << kClaudeHead + "  Créditos extra — 25% usado (75% restante) · $12.34 / $50.00 USD\n"
                + "  Mixta — 50% usado (50% restante) · se reinicia en 4h 7m · nota\n" + kCodexHead;
        QTest::newRow("rows are listed after an error, in order")
            << usage(
                   { row("B", 1), row("A", 2) }, {}, "No pude consultar el uso de Claude (HTTP 503).", "Pro")
            << usage({ row("Z", 99) }, {}, kCodexMissing)
            << "== Claude Code [Pro] ==\n  ERROR: No pude consultar el uso de Claude (HTTP 503).\n"
               "  B — 1% usado (99% restante)\n  A — 2% usado (98% restante)\n"
                + kCodexHead + "\n  ERROR: " + kCodexMissing + "\n  Z — 99% usado (1% restante)";
        QTest::newRow("texts from data are never read as formats")
            << usage({ row("100% %d %@", 10, {}, "%2%%") }, {}, {}, "%1 %s") << usage({}, {}, "%n%", "")
            << "== Claude Code [%1 %s] ==\n  100% %d %@ — 10% usado (90% restante) · %2%%\n"
               "== Codex [] ==\n  ERROR: %n%";
    }
    void reportListsBothServicesInFixedOrder()
    {
        QFETCH(ServiceUsage, claude);
        QFETCH(ServiceUsage, codex);
        QFETCH(QString, expected);
        QCOMPARE(CheckReport::lines(claude, codex, kNow).join(u'\n'), expected);
    }

    // Exact binary halves go to the even neighbour, as printf does.
    void percentagesRoundAsPrintf_data()
    {
        QTest::addColumn<double>("used");
        QTest::addColumn<QString>("numbers");
        const struct
        {
            double used;
            const char* numbers;
        } cases[] = {
            { 12.5, "12% usado (88% restante)" },
            { 0.5, "0% usado (100% restante)" },
            { 42.500001, "43% usado (57% restante)" },
            { 99.6, "100% usado (0% restante)" },
            { -0.4, "-0% usado (100% restante)" },
            { -20.0, "-20% usado (100% restante)" },
            { 1e20, "100000000000000000000% usado (0% restante)" },
        };
        for (const auto& c : cases)
            QTest::addRow("%g", c.used) << c.used << QString::fromUtf8(c.numbers);
    }
    void percentagesRoundAsPrintf()
    {
        QFETCH(double, used);
        QFETCH(QString, numbers);
        const QStringList lines = CheckReport::lines(usage({ row("T", used) }), usage({}), kNow);
        QCOMPARE(lines.value(1), "  T — " + numbers);
    }

    // Whatever answers first, the report keeps its order; held answers show that both requests
    // were out at once (the second arrived before the first answer left).
    void checkFetchesBothAtOnceAndKeepsTheOrder_data()
    {
        QTest::addColumn<int>("claudeDelayMs");
        QTest::addColumn<int>("codexDelayMs");
        QTest::newRow("Codex first") << 400 << 0;
        QTest::newRow("Claude first") << 0 << 400;
        QTest::newRow("both held a second") << 1000 << 1000;
    }
    void checkFetchesBothAtOnceAndKeepsTheOrder()
    {
        QFETCH(int, claudeDelayMs);
        QFETCH(int, codexDelayMs);
        TestEnv t(kNow, std::chrono::seconds(5));
        // A session that stays fresh for an hour after kNow.
        QVERIFY(t.write(".claude/.credentials.json",
            R"({"claudeAiOauth":{"accessToken":"claude-at","refreshToken":"claude-rt",)"
            R"("expiresAt":1740834000000,"subscriptionType":"max"}})"));
        QVERIFY(
            t.write(".codex/auth.json", R"({"tokens":{"access_token":"codex-at","account_id":"acc-1"}})"));
        t.env.secrets = platform::SecretStore::system();
        // The check shows both services whatever the settings say.
        t.defaults->setShowClaude(false);
        t.defaults->setShowCodex(false);
        PeerAnswer claude = answer(200, kClaudeAnswer), codex = answer(200, kCodexAnswer);
        claude.delay = std::chrono::milliseconds(claudeDelayMs);
        codex.delay = std::chrono::milliseconds(codexDelayMs);
        t.peer.on("GET", kClaudeUsagePath, claude);
        t.peer.on("GET", kCodexUsagePath, codex);

        QString text;
        QTextStream out(&text);
        Entry::runCheck(t.env, out);
        QCOMPARE(text, kFullReport);
        const auto requests = t.peer.requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(
            t.peer.requests("GET", kClaudeUsagePath).value(0).header("authorization"), "Bearer claude-at");
        QCOMPARE(t.peer.requests("GET", kCodexUsagePath).value(0).header("authorization"), "Bearer codex-at");
        if (claudeDelayMs > 0 && codexDelayMs > 0)
            QVERIFY(std::max(requests[0].arrivedAt, requests[1].arrivedAt)
                < std::min(requests[0].answeredAt, requests[1].answeredAt));
    }
};

QTEST_GUILESS_MAIN(TestEntry)
#include "tst_entry.moc"
